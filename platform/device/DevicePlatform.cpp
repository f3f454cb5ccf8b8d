#include "platform/device/DevicePlatform.h"

#include "platform/device/linux_device.h"

#include <mutex>

namespace quov::platform {
namespace {
std::mutex& slotMutex() {
    static std::mutex m;
    return m;
}
std::shared_ptr<const DevicePlatform>& slot() {
    static std::shared_ptr<const DevicePlatform> installed;
    return installed;
}
}  // namespace

std::shared_ptr<const DevicePlatform> devicePlatform() {
    {
        std::lock_guard lock(slotMutex());
        if (slot()) return slot();
    }
    return LinuxDevicePlatform::shared();
}

std::shared_ptr<const DevicePlatform> setDevicePlatform(std::shared_ptr<const DevicePlatform> platform) {
    std::lock_guard lock(slotMutex());
    std::swap(slot(), platform);
    return platform;
}

}  // namespace quov::platform
