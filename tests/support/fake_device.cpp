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
    in_addr addr{};
    ::inet_pton(AF_INET, dotted, &addr);
    a.ipv4 = addr.s_addr;
    return a;
}

#define QUOV_FAKE_ANSWER(type, method, value) \
    type FakeDevicePlatform::method() const { \
        ++calls[#method];                     \
        return value;                         \
    }

QUOV_FAKE_ANSWER(std::string, machineIdentifier, machine)
QUOV_FAKE_ANSWER(std::string, systemName, osName)
QUOV_FAKE_ANSWER(std::string, systemVersion, osVersion)
QUOV_FAKE_ANSWER(std::string, model, modelWord)
QUOV_FAKE_ANSWER(std::optional<int>, userInterfaceIdiom, idiom)
QUOV_FAKE_ANSWER(bool, screenAnswersDisplayLink, displayLink)
QUOV_FAKE_ANSWER(double, screenScale, scale)
QUOV_FAKE_ANSWER(bool, screensAnswerCurrentMode, currentModeAnswered)
QUOV_FAKE_ANSWER(Size, screenCurrentModeSize, currentMode)
QUOV_FAKE_ANSWER(Size, screenBounds, bounds)
QUOV_FAKE_ANSWER(std::optional<std::string>, identifierForVendor, vendorId)
QUOV_FAKE_ANSWER(std::string, advertisingIdentifier, idfa)
QUOV_FAKE_ANSWER(bool, advertisingTrackingEnabled, trackingEnabled)
QUOV_FAKE_ANSWER(std::optional<std::string>, primaryInterfaceName, primaryInterface)
QUOV_FAKE_ANSWER(std::optional<std::vector<InterfaceAddress>>, interfaceAddresses, addresses)
QUOV_FAKE_ANSWER(std::optional<std::string>, carrierName, carrier)
QUOV_FAKE_ANSWER(std::vector<std::string>, preferredLanguages, languages)
QUOV_FAKE_ANSWER(int, applicationState, appState)
QUOV_FAKE_ANSWER(std::optional<std::int32_t>, batteryCapacity, capacity)
QUOV_FAKE_ANSWER(int, batteryState, battery)

#undef QUOV_FAKE_ANSWER

std::map<std::string, std::string> FakeDevicePlatform::bundleInfo() const {
    ++calls["bundleInfo"];
    return bundle;
}

std::optional<HardwareAddress> FakeDevicePlatform::hardwareAddress(const std::string& interface) const {
    ++calls["hardwareAddress"];
    if (!primaryInterface || interface != *primaryInterface) return std::nullopt;
    return hwAddress;
}

std::optional<std::uint32_t> FakeDevicePlatform::reachabilityFlags(const std::string&) const {
    ++calls["reachabilityFlags"];
    return reachability;
}

}  // namespace quov::platform
