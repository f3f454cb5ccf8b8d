#pragma once

#include <quov/Export.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace quov {

/// The device record: text keys in insertion order, each value a text or a double.
/// A plain value owned by whoever holds it; safe to copy and to move between threads.
class QUOV_EXPORT DeviceInfoRecord {
public:
    using Value = std::variant<std::string, double>;
    using Entry = std::pair<std::string, Value>;

    /// Adds key (or replaces its value in place). An absent value throws
    /// std::invalid_argument whose message names key and, when given, the source
    /// the value should have come from (such as "CFBundleShortVersionString").
    void insert(const std::string& key, std::optional<std::string> value, std::string_view source = {});
    void insert(const std::string& key, std::optional<double> value, std::string_view source = {});

    bool contains(std::string_view key) const { return find(key) != nullptr; }
    /// nullptr when the key is not there.
    const Value* find(std::string_view key) const;
    /// The text under key; absent when the key is missing or holds a number.
    std::optional<std::string> text(std::string_view key) const;
    /// The number under key; absent when the key is missing or holds a text.
    std::optional<double> number(std::string_view key) const;

    const std::vector<Entry>& entries() const { return entries_; }
    std::vector<std::string> keys() const;
    std::size_t size() const { return entries_.size(); }

    /// One line for the log, keys in order, texts escaped, e.g.
    /// {"IDFA":"00000000-0000-0000-0000-000000000000",...,"BatteryLevel":0.0}
    std::string describe() const;

private:
    std::vector<Entry> entries_;
};

/// Device and application facts, and digests. Every operation is stateless and reads
/// facts through the active device platform (the Linux one unless a test or host
/// replaced it). Call on the main thread: the record reads the application state and
/// the main screen. Each call reads a few small files under /proc, /sys and /etc and
/// never blocks on the network. Nothing is cached between calls.
class QUOV_EXPORT QVDeviceInfo {
public:
    /// A fresh sixteen-key record ("Langauge" spelt so; "BatteryLevel" a double).
    /// Throws std::invalid_argument when a provider yields nothing (a bundle without
    /// "CFBundleShortVersionString" or "CFBundleIdentifier", an unknown battery state),
    /// std::out_of_range when the preferred-language list is empty.
    static DeviceInfoRecord deviceInfo();

    /// The marketing name for the machine identifier, or the identifier itself.
    static std::string deviceTypeDetail();
    /// The raw machine identifier (a model identifier, not an instruction set).
    static std::string cpuArchitectures();
    /// By identifier on a device; by the main screen's bounds on a simulator.
    static bool iPhoneX();
    /// "1024*768", "2048*1536", "960*640" or "480*320".
    static std::string getDeviceDisplayMetrics();

    /// Hardware address "AA:BB:..", the vendor identifier without hyphens, or "000000000000",
    /// chosen by the system's major version.
    static std::string getMacAddress();
    /// Last IPv4 address of the primary interface, or "an error occurred when obtaining ip address".
    static std::string getDeviceIPAdress();
    /// The advertising identifier as the platform gives it (all zeros when none).
    static std::string getIDFA();
    /// A new random UUID, upper-case 8-4-4-4-12.
    static std::string originUUID();

    /// Whole percent 1..100, else 0.0; 0.0 while the application is in the background.
    static double getBatteryLevel();
    /// "UnKnow", "Unplugged", "Charging" or "Full"; absent for any other platform state.
    static std::optional<std::string> getBatteryState();
    /// The first preferred language. Throws std::out_of_range on an empty list.
    static std::string getDeviceLanguage();
    /// "CFBundleShortVersionString" of the host's bundle information, absent when missing.
    static std::optional<std::string> getLocalAppVersion();
    /// "CFBundleName". Throws std::invalid_argument when missing.
    static std::string getApplicationName();
    /// "CFBundleIdentifier", absent when missing.
    static std::optional<std::string> getBundleID();
    /// "VersionName", "VersionCode", "VersionType", "VersionSource", built in that order
    /// and cut short at the first missing bundle value.
    static std::map<std::string, std::string> appVersionInfo();

    /// MD5 of the text's UTF-8 bytes up to the first zero byte, 32 lower-case hex
    /// digits; "" for an absent text. Any thread.
    static std::string dataMD5(const std::optional<std::string>& text);
    /// MD5 of the file's bytes, read in 1024-byte chunks; "" when the path cannot be
    /// opened for reading. A read failure after opening throws std::system_error.
    /// Blocks on file I/O; any thread.
    static std::string fileMD5(const std::string& path);
};

}  // namespace quov
