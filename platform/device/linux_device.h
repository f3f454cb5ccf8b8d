#pragma once

#include <quov/QuovHost.h>

#include "platform/device/DevicePlatform.h"
#include "platform/runtime/Fd.h"

#include <functional>
#include <memory>
#include <mutex>

namespace quov::platform {

struct RouteEntry;

/// The Linux device platform. Facts come from the file system (os-release,
/// machine-info, DMI, the routing table, sysfs network and power-supply entries),
/// uname, a netlink address dump and the locale environment; nothing is sent on the network.
/// What cannot change while the process runs (machine, chassis, system version, a
/// valid machine id and the vendor identifiers derived from it) is read once per
/// instance. Live facts (routes, addresses, hardware addresses, the battery's
/// location) are never stale: on the real root a netlink subscription to link,
/// address and route changes vouches for the last read until a change arrives;
/// inside a RecordScope each is read at most once. Answers the phone platform got from its toolkit (screen,
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

private:
    // A live value, the record scope it was read in and the network generation
    // that vouches for it (0: none does).
    template <class T>
    struct Live {
        bool filled = false;
        std::uint64_t scope = 0;
        std::uint64_t generation = 0;
        T value{};
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
    std::uint64_t networkGeneration() const;
    template <class T, class Read>
    T live(Live<T>& entry, bool network, Read read) const;
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
    mutable Live<std::shared_ptr<const std::vector<RouteEntry>>> routes_;
    mutable Live<std::optional<std::string>> battery_;
    mutable Live<std::optional<std::vector<InterfaceAddress>>> addresses_;
    mutable Live<std::pair<std::string, std::optional<HardwareAddress>>> hardwareAddress_;
    mutable UniqueFd netlink_;  // the change subscription; none on a scripted root
    mutable bool netlinkTried_ = false;
    mutable std::uint64_t generation_ = 1;  // bumped by every change the subscription reports
    mutable std::uint64_t polledScope_ = 0;  // the record scope that already polled it
};

}  // namespace quov::platform
