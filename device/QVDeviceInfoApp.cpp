#include <quov/QVDeviceInfo.h>

#include "platform/Context.h"
#include "platform/device/DevicePlatform.h"

#include <cstdint>
#include <stdexcept>

namespace quov {
namespace {

std::optional<std::string> bundleValue(const std::map<std::string, std::string>& info, const char* key) {
    auto it = info.find(key);
    return it == info.end() ? std::nullopt : std::optional<std::string>(it->second);
}

}  // namespace

double QVDeviceInfo::getBatteryLevel() {
    auto p = platform::Context::shared().devicePlatform();
    const int state = p->applicationState();
    if (state != platform::kAppActive && state != platform::kAppInactive) return 0.0;
    auto capacity = p->batteryCapacity();
    if (!capacity) return 0.0;
    // One unsigned test covers both 0 and negatives.
    if (static_cast<std::uint32_t>(*capacity) - 1u < 100u) return static_cast<double>(*capacity);
    return 0.0;
}

std::optional<std::string> QVDeviceInfo::getBatteryState() {
    switch (platform::Context::shared().devicePlatform()->batteryState()) {
        case platform::kBatteryUnknown: return "UnKnow";
        case platform::kBatteryUnplugged: return "Unplugged";
        case platform::kBatteryCharging: return "Charging";
        case platform::kBatteryFull: return "Full";
        default: return std::nullopt;
    }
}

std::string QVDeviceInfo::getDeviceLanguage() {
    auto languages = platform::Context::shared().devicePlatform()->preferredLanguages();
    if (languages.empty()) throw std::out_of_range("getDeviceLanguage: the preferred-language list is empty");
    return languages.front();
}

std::optional<std::string> QVDeviceInfo::getLocalAppVersion() {
    return bundleValue(platform::Context::shared().devicePlatform()->bundleInfo(), "CFBundleShortVersionString");
}

std::string QVDeviceInfo::getApplicationName() {
    auto name = bundleValue(platform::Context::shared().devicePlatform()->bundleInfo(), "CFBundleName");
    if (!name) throw std::invalid_argument(
            "getApplicationName: the bundle information has no \"CFBundleName\"; set it with QuovHost::setBundleInfo");
    return *name;
}

std::optional<std::string> QVDeviceInfo::getBundleID() {
    return bundleValue(platform::Context::shared().devicePlatform()->bundleInfo(), "CFBundleIdentifier");
}

std::map<std::string, std::string> QVDeviceInfo::appVersionInfo() {
    auto info = platform::Context::shared().devicePlatform()->bundleInfo();
    std::map<std::string, std::string> out;
    auto name = bundleValue(info, "CFBundleDisplayName");
    if (!name) return out;
    out["VersionName"] = *name;
    auto code = bundleValue(info, "CFBundleVersion");
    if (!code) return out;
    out["VersionCode"] = *code;
    out["VersionType"] = "";
    out["VersionSource"] = "";
    return out;
}

}  // namespace quov
