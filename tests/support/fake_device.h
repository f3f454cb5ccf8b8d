#pragma once

#include "platform/device/DevicePlatform.h"

#include <map>
#include <string>

namespace quov::platform {

/// A scriptable device platform for tests and benchmarks: every answer is a public
/// field, absent-able where the interface allows it, and every query is counted.
/// Defaults describe a complete, unremarkable device (all answers present). Not
/// thread-safe: script it before installing it, then read it from one thread.
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
    std::map<std::string, std::string> bundle{{"CFBundleShortVersionString", "1.2.3"},
                                              {"CFBundleIdentifier", "com.example.fake"},
                                              {"CFBundleName", "Fake"}};
    int appState = kAppActive;
    std::optional<std::int32_t> capacity = 80;
    int battery = kBatteryUnplugged;

    /// How often each query (by its method name) was asked.
    mutable std::map<std::string, int> calls;
    int callCount(const std::string& query) const;

    /// An IPv4 list entry from dotted text.
    static InterfaceAddress ipv4(std::string name, const char* dotted);

    std::string machineIdentifier() const override;
    std::string systemName() const override;
    std::string systemVersion() const override;
    std::string model() const override;
    std::optional<int> userInterfaceIdiom() const override;
    bool screenAnswersDisplayLink() const override;
    double screenScale() const override;
    bool screensAnswerCurrentMode() const override;
    Size screenCurrentModeSize() const override;
    Size screenBounds() const override;
    std::optional<std::string> identifierForVendor() const override;
    std::string advertisingIdentifier() const override;
    bool advertisingTrackingEnabled() const override;
    std::optional<std::string> primaryInterfaceName() const override;
    std::optional<HardwareAddress> hardwareAddress(const std::string& interface) const override;
    std::optional<std::vector<InterfaceAddress>> interfaceAddresses() const override;
    std::optional<std::string> carrierName() const override;
    std::optional<std::uint32_t> reachabilityFlags(const std::string& hostName) const override;
    std::vector<std::string> preferredLanguages() const override;
    std::map<std::string, std::string> bundleInfo() const override;
    int applicationState() const override;
    std::optional<std::int32_t> batteryCapacity() const override;
    int batteryState() const override;
};

}  // namespace quov::platform
