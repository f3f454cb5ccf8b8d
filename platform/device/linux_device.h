#pragma once

#include <quov/QuovHost.h>

#include "platform/device/DevicePlatform.h"

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>

namespace quov::platform {

struct RouteEntry;

/// The Linux device platform. Facts come from the file system (os-release,
/// machine-info, DMI, the routing table, sysfs network and power-supply entries),
/// uname, getifaddrs and the locale environment; nothing is sent on the network.
/// What cannot change while the process runs (machine, chassis, system version, a
/// valid machine id and the vendor identifiers derived from it) is read once per
/// instance; live facts (routes, addresses, the primary hardware address, the battery's location) are reused for
/// kLiveWindow, so one record or a burst of tracking URLs reads each once. Answers the phone platform got from its toolkit (screen,
/// application state) or from system services (bundle, advertising identifier,
/// carrier) come from setters; the setters are thread-safe.
class LinuxDevicePlatform final : public DevicePlatform {
public:
    struct Options {
        /// Prefix for every file read ("/proc/...", "/sys/...", "/etc/..."); empty is the real root.
        std::string root;
        /// Environment lookup for the locale variables; empty uses getenv.
        std::function<std::optional<std::string>(const std::string& name)> environment;
    };

    LinuxDevicePlatform() : LinuxDevicePlatform(Options{}) {}
    explicit LinuxDevicePlatform(Options options);

    // ---- what the host or the toolkit supplies ----
    void setBundleInfo(std::map<std::string, std::string> info);
    void setAdvertisingIdentifier(std::optional<std::string> identifier, bool trackingEnabled);
    void setCarrierName(std::optional<std::string> name);
    void setMainScreen(const MainScreen& screen);
    void setApplicationState(ApplicationState state);
    /// A toolkit's live answers; they win over the plain values above. Empty removes.
    /// Called on the thread that builds the record (the main thread).
    void setScreenProvider(std::function<MainScreen()> provider);
    void setApplicationStateProvider(std::function<ApplicationState()> provider);

    // ---- DevicePlatform ----
    std::string machineIdentifier() const override;
    std::string systemName() const override;
    std::string systemVersion() const override;
    std::string identityRuleVersion() const override;
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

    /// The chassis word ("handset", "tablet", "laptop", ...) or empty when unknown.
    std::string chassis() const;

    /// How long a live fact read for one answer serves the next ones.
    static constexpr std::chrono::milliseconds kLiveWindow{1000};

private:
    using Clock = std::chrono::steady_clock;
    // A live value and when it was read; stale after kLiveWindow.
    template <class T>
    struct Recent {
        Clock::time_point at{};
        bool filled = false;
        T value{};
        bool fresh(Clock::time_point now) const { return filled && now - at < kLiveWindow; }
    };
    struct Facts {
        std::string machine;
        std::string chassis;
        std::string systemVersion;
    };

    const Facts& facts() const;
    std::shared_ptr<const std::vector<RouteEntry>> routes() const;
    std::optional<std::string> battery() const;
    std::optional<std::string> machineId() const;
    std::string readChassis() const;
    std::string readSystemVersion(const std::string& unameRelease) const;
    static std::optional<std::string> deriveVendorIdentifier(const std::string& machineId, const std::string& key);
    static std::optional<std::vector<InterfaceAddress>> readInterfaceAddresses();
    std::optional<HardwareAddress> readHardwareAddress(const std::string& interface) const;
    std::string path(const char* absolute) const { return options_.root + absolute; }
    std::optional<std::string> env(const std::string& name) const;
    MainScreen screen() const;

    Options options_;
    mutable std::mutex mutex_;  // guards the host-supplied values below
    std::map<std::string, std::string> bundleInfo_;
    std::optional<std::string> advertisingIdentifier_;
    bool trackingEnabled_ = false;
    std::optional<std::string> carrierName_;
    MainScreen screen_;
    ApplicationState appState_ = ApplicationState::Active;
    std::function<MainScreen()> screenProvider_;
    std::function<ApplicationState()> appStateProvider_;

    mutable std::once_flag factsOnce_;
    mutable Facts facts_;
    mutable std::mutex cacheMutex_;  // guards the caches below
    mutable std::optional<std::string> machineId_;  // only a valid one: early boot reads "uninitialized"
    mutable std::map<std::string, std::optional<std::string>> vendorIds_;  // by bundle identifier
    mutable Recent<std::shared_ptr<const std::vector<RouteEntry>>> routes_;
    mutable Recent<std::optional<std::string>> battery_;
    mutable Recent<std::optional<std::vector<InterfaceAddress>>> addresses_;
    mutable Recent<std::pair<std::string, std::optional<HardwareAddress>>> hardwareAddress_;
};

}  // namespace quov::platform
