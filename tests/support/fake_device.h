#pragma once

#include "platform/device/DevicePlatform.h"

#include <map>
#include <string>

namespace quov::platform {

/// A scriptable device platform: every answer a public field (defaults: a complete,
/// unremarkable device). Script it before installing it.
struct FakeDevicePlatform final : DevicePlatform {
    std::string machine = "Fake1,1";
    std::string osName = "Linux";
    std::string osVersion = "12";
    std::string modelWord = "Desktop";
    std::optional<int> idiom = kIdiomDesktop;

    bool displayLink = true;
    double scale = 1.0;
    bool currentModeAnswered = true;
    Size currentMode{1280, 720};
    Size bounds{1280, 720};

    std::optional<std::string> vendorId = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
    std::string idfa = "00000000-0000-0000-0000-000000000000";
    bool trackingEnabled = false;

    std::optional<std::string> primaryInterface = "en0";
    std::optional<HardwareAddress> hwAddress = HardwareAddress{0x02, 0x00, 0x00, 0x00, 0x00, 0x01};
    std::optional<std::vector<InterfaceAddress>> addresses = std::vector<InterfaceAddress>{};
    std::optional<std::string> carrier;
    std::optional<std::uint32_t> reachability = kReachable;

    std::vector<std::string> languages{"en-US"};
    using Bundle = std::map<std::string, std::string>;
    Bundle bundle{
        {"CFBundleShortVersionString", "1.2.3"}, {"CFBundleIdentifier", "com.example.fake"}, {"CFBundleName", "Fake"}};
    int appState = kAppActive;
    std::optional<std::int32_t> capacity = 80;
    int battery = kBatteryUnplugged;

    static InterfaceAddress ipv4(std::string name, const char* dotted);

#define QUOV_FAKE(type, method, value) \
    type method() const override { return value; }
    QUOV_FAKE(std::string, machineIdentifier, machine)
    QUOV_FAKE(std::string, systemName, osName)
    QUOV_FAKE(std::string, systemVersion, osVersion)
    QUOV_FAKE(std::string, model, modelWord)
    QUOV_FAKE(std::optional<int>, userInterfaceIdiom, idiom)
    QUOV_FAKE(bool, screenAnswersDisplayLink, displayLink)
    QUOV_FAKE(double, screenScale, scale)
    QUOV_FAKE(bool, screensAnswerCurrentMode, currentModeAnswered)
    QUOV_FAKE(Size, screenCurrentModeSize, currentMode)
    QUOV_FAKE(Size, screenBounds, bounds)
    QUOV_FAKE(std::optional<std::string>, identifierForVendor, vendorId)
    QUOV_FAKE(std::string, advertisingIdentifier, idfa)
    QUOV_FAKE(bool, advertisingTrackingEnabled, trackingEnabled)
    QUOV_FAKE(std::optional<std::string>, primaryInterfaceName, primaryInterface)
    QUOV_FAKE(std::optional<std::vector<InterfaceAddress>>, interfaceAddresses, addresses)
    QUOV_FAKE(std::optional<std::string>, carrierName, carrier)
    QUOV_FAKE(std::vector<std::string>, preferredLanguages, languages)
    QUOV_FAKE(int, applicationState, appState)
    QUOV_FAKE(std::optional<std::int32_t>, batteryCapacity, capacity)
    QUOV_FAKE(int, batteryState, battery)
    QUOV_FAKE(Bundle, bundleInfo, bundle)
#undef QUOV_FAKE
    std::optional<HardwareAddress> hardwareAddress(const std::string& interface) const override {
        return primaryInterface && interface == *primaryInterface ? hwAddress : std::nullopt;
    }
    std::optional<std::uint32_t> reachabilityFlags(const std::string&) const override { return reachability; }
};

}  // namespace quov::platform
