#pragma once

#include <quov/Geometry.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quov::platform {

/// Interface idioms; any value other than kIdiomPhone counts as "not a phone".
inline constexpr int kIdiomPhone = 0;
inline constexpr int kIdiomPad = 1;
inline constexpr int kIdiomDesktop = 5;

/// Application states as plain numbers (0 active, 1 inactive, 2 background); a
/// platform may answer others, which count as "not in the foreground".
inline constexpr int kAppActive = 0;
inline constexpr int kAppInactive = 1;
inline constexpr int kAppBackground = 2;

/// Battery states: 0 unknown, 1 unplugged, 2 charging, 3 full.
inline constexpr int kBatteryUnknown = 0;
inline constexpr int kBatteryUnplugged = 1;
inline constexpr int kBatteryCharging = 2;
inline constexpr int kBatteryFull = 3;

/// Reachability flag bits, as the bid request reads them.
inline constexpr std::uint32_t kReachable = 2;
inline constexpr std::uint32_t kConnectionRequired = 4;
inline constexpr std::uint32_t kIsCellular = 262144;

inline constexpr int kFamilyIPv4 = 2;

/// One entry of the interface-address list, in the kernel's list order.
struct InterfaceAddress {
    std::string name;
    int family = 0;           // 2 for IPv4
    std::uint32_t ipv4 = 0;   // network byte order, as in in_addr.s_addr
};

using HardwareAddress = std::array<std::uint8_t, 6>;

/// One record's worth of device reads on this thread. While a scope is open a
/// platform reads each live fact (routes, addresses, the battery) at most once
/// and answers the repeats from that read, so one record is self-consistent and
/// cheap; outside any scope every answer is current. Nested scopes join the
/// outermost one.
class RecordScope {
public:
    RecordScope() : previous_(current_) {
        if (current_ == 0) current_ = next_.fetch_add(1, std::memory_order_relaxed) + 1;
    }
    ~RecordScope() { current_ = previous_; }
    RecordScope(const RecordScope&) = delete;
    RecordScope& operator=(const RecordScope&) = delete;

    /// The open scope on this thread, 0 when none; a new scope never repeats an id.
    static std::uint64_t current() { return current_; }

private:
    std::uint64_t previous_;
    static inline thread_local std::uint64_t current_ = 0;
    static inline std::atomic<std::uint64_t> next_{0};
};

/// Every device fact the SDK reads goes through this interface. Queries are plain
/// reads without side effects; each may be called any number of times per record
/// (see RecordScope).
/// Called on the main thread (screen, application state) unless noted.
class DevicePlatform {
public:
    virtual ~DevicePlatform() = default;

    // ---- system and model ----
    /// The hardware machine identifier (uname's machine field).
    virtual std::string machineIdentifier() const = 0;
    virtual std::string systemName() const = 0;
    virtual std::string systemVersion() const = 0;
    /// The version the hardware-address rule of getMacAddress reads; by default the
    /// system version. A platform whose version numbers do not follow that rule's
    /// numbering answers one of 7 or more, so no hardware address is ever sent.
    virtual std::string identityRuleVersion() const { return systemVersion(); }
    /// The generic model word of the device.
    virtual std::string model() const = 0;
    /// The interface idiom, absent when the device does not answer the question.
    virtual std::optional<int> userInterfaceIdiom() const = 0;

    // ---- main screen ----
    /// Whether the main screen can drive a display link (gates the scale).
    virtual bool screenAnswersDisplayLink() const = 0;
    virtual double screenScale() const = 0;
    /// Whether screens report a current mode at all.
    virtual bool screensAnswerCurrentMode() const = 0;
    /// The current mode's size in pixels.
    virtual Size screenCurrentModeSize() const = 0;
    /// The main screen's bounds in points.
    virtual Size screenBounds() const = 0;

    // ---- identity ----
    /// Upper-case 8-4-4-4-12 UUID text, absent when it cannot be derived.
    virtual std::optional<std::string> identifierForVendor() const = 0;
    virtual std::string advertisingIdentifier() const = 0;
    virtual bool advertisingTrackingEnabled() const = 0;

    // ---- network ----
    /// The interface that stands for the device's Wi-Fi interface, absent when none.
    virtual std::optional<std::string> primaryInterfaceName() const = 0;
    /// The interface's hardware address; absent on any failure (silently).
    virtual std::optional<HardwareAddress> hardwareAddress(const std::string& interface) const = 0;
    /// The interface-address list, in the kernel's order; the IPv4 entries are all
    /// that is read of it, so a platform may leave the others out. Absent when the
    /// list cannot be read.
    virtual std::optional<std::vector<InterfaceAddress>> interfaceAddresses() const = 0;
    virtual std::optional<std::string> carrierName() const = 0;
    /// Reachability flags for a host name, from local state only (nothing is sent);
    /// absent when they cannot be read.
    virtual std::optional<std::uint32_t> reachabilityFlags(const std::string& hostName) const = 0;

    // ---- locale, bundle, application, battery ----
    /// Language tags in order of preference ("en-US").
    virtual std::vector<std::string> preferredLanguages() const = 0;
    /// The host application's information dictionary ("CFBundle..." keys).
    virtual std::map<std::string, std::string> bundleInfo() const = 0;
    virtual int applicationState() const = 0;
    /// The battery's capacity in percent as the source reports it (any 32-bit value);
    /// absent when there is no battery to read.
    virtual std::optional<std::int32_t> batteryCapacity() const = 0;
    virtual int batteryState() const = 0;
};

}  // namespace quov::platform
