#include "tests/support/fake_device.h"

#include <arpa/inet.h>

namespace quov::platform {

InterfaceAddress FakeDevicePlatform::ipv4(std::string name, const char* dotted) {
    InterfaceAddress a;
    a.name = std::move(name);
    a.family = kFamilyIPv4;
    ::inet_pton(AF_INET, dotted, &a.ipv4);
    return a;
}

}  // namespace quov::platform
