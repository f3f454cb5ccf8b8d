#include "tests/support/fake_device.h"

#include <arpa/inet.h>

namespace quov::platform {

int FakeDevicePlatform::callCount(const std::string& query) const {
    auto it = calls.find(query);
    return it == calls.end() ? 0 : it->second;
}

InterfaceAddress FakeDevicePlatform::ipv4(std::string name, const char* dotted) {
    InterfaceAddress a;
    a.name = std::move(name);
    a.family = kFamilyIPv4;
    ::inet_pton(AF_INET, dotted, &a.ipv4);
    return a;
}

}  // namespace quov::platform
