#include "platform/device/linux_device.h"

#include "platform/runtime/Fd.h"
#include "platform/runtime/Crypto.h"
#include "platform/runtime/Text.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

namespace quov::platform {

struct RouteEntry {
    std::string iface;
    std::uint32_t destination = 0;  // network byte order, as the kernel prints it
    std::uint32_t mask = 0;
    unsigned flags = 0;
    long metric = 0;
};

namespace {

using Route = RouteEntry;

// Everything we read is a small text file; the cap keeps a hostile or odd file cheap.
constexpr std::size_t kMaxFileBytes = 64 * 1024;

std::optional<std::string> readFile(const std::string& path) {
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) return std::nullopt;
    const int fd = file.get();
    std::string out;
    char buf[4096];
    bool ok = true;
    while (out.size() < kMaxFileBytes) {
        ssize_t n = ::read(fd, buf, sizeof buf);
        if (n < 0) {
            if (errno == EINTR) continue;
            ok = false;
            break;
        }
        if (n == 0) break;
        out.append(buf, static_cast<std::size_t>(n));
    }
    if (!ok) return std::nullopt;
    if (out.size() > kMaxFileBytes) out.resize(kMaxFileBytes);
    return out;
}

std::string_view trim(std::string_view s) {
    const char* ws = " \t\r\n\v\f";
    auto b = s.find_first_not_of(ws);
    if (b == std::string_view::npos) return {};
    auto e = s.find_last_not_of(ws);
    return s.substr(b, e - b + 1);
}

std::optional<std::string> readTrimmed(const std::string& path) {
    auto content = readFile(path);
    if (!content) return std::nullopt;
    return std::string(trim(*content));
}

// Value of KEY in an os-release style file (KEY=value, optionally quoted).
std::optional<std::string> envFileValue(std::string_view content, std::string_view key) {
    std::optional<std::string> found;
    while (!content.empty()) {
        auto nl = content.find('\n');
        std::string_view line = trim(content.substr(0, nl));
        content = nl == std::string_view::npos ? std::string_view{} : content.substr(nl + 1);
        if (line.empty() || line.front() == '#') continue;
        auto eq = line.find('=');
        if (eq == std::string_view::npos || trim(line.substr(0, eq)) != key) continue;
        std::string_view raw = trim(line.substr(eq + 1));
        std::string value;
        if (!raw.empty() && (raw.front() == '"' || raw.front() == '\'')) {
            const char quote = raw.front();
            for (std::size_t i = 1; i < raw.size() && raw[i] != quote; ++i) {
                if (quote == '"' && raw[i] == '\\' && i + 1 < raw.size()) ++i;
                value += raw[i];
            }
        } else {
            value = raw;
        }
        found = std::move(value);  // the last assignment wins, as in a shell
    }
    return found;
}

bool allDigits(std::string_view s) {
    return !s.empty() && std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isdigit(c); });
}

// Chassis words we understand; others are treated as unknown.
constexpr std::string_view kChassisWords[] = {"desktop", "laptop", "convertible", "server",
                                              "tablet",  "handset", "watch",     "embedded",
                                              "vm",      "container"};

bool knownChassis(std::string_view word) {
    return std::find(std::begin(kChassisWords), std::end(kChassisWords), word) != std::end(kChassisWords);
}

// SMBIOS chassis types (DMI "chassis_type") to chassis words.
std::string_view chassisFromDmi(int type) {
    switch (type) {
        case 3: case 4: case 5: case 6: case 7: case 13: case 15: case 16: case 24: case 35: case 36:
            return "desktop";
        case 8: case 9: case 10: case 14:
            return "laptop";
        case 11:
            return "handset";
        case 17: case 23: case 25: case 28: case 29:
            return "server";
        case 30:
            return "tablet";
        case 31: case 32:
            return "convertible";
        default:
            return {};
    }
}

bool parseHex32(std::string_view s, std::uint32_t& out) {
    if (s.empty() || s.size() > 8) return false;
    std::uint32_t v = 0;
    for (char c : s) {
        int d;
        if (c >= '0' && c <= '9') d = c - '0';
        else if (c >= 'a' && c <= 'f') d = c - 'a' + 10;
        else if (c >= 'A' && c <= 'F') d = c - 'A' + 10;
        else return false;
        v = (v << 4) | static_cast<std::uint32_t>(d);
    }
    out = v;
    return true;
}

// The kernel prints each 32-bit field as the in-memory word, so the parsed value is
// the s_addr as it stands; masks and destinations compare without byte swapping.
std::optional<std::vector<Route>> readRoutes(const std::string& path) {
    auto content = readFile(path);
    if (!content) return std::nullopt;
    std::vector<Route> routes;
    std::string_view rest = *content;
    bool header = true;
    while (!rest.empty()) {
        auto nl = rest.find('\n');
        std::string_view line = rest.substr(0, nl);
        rest = nl == std::string_view::npos ? std::string_view{} : rest.substr(nl + 1);
        if (header) {
            header = false;
            continue;
        }
        std::vector<std::string_view> fields;
        std::size_t i = 0;
        while (i < line.size()) {
            while (i < line.size() && std::isspace(static_cast<unsigned char>(line[i]))) ++i;
            std::size_t start = i;
            while (i < line.size() && !std::isspace(static_cast<unsigned char>(line[i]))) ++i;
            if (i > start) fields.push_back(line.substr(start, i - start));
        }
        if (fields.size() < 8) continue;
        Route r;
        std::uint32_t flags = 0, metric = 0;
        if (!parseHex32(fields[1], r.destination) || !parseHex32(fields[3], flags) ||
            !parseHex32(fields[7], r.mask) || !allDigits(fields[6]) || fields[6].size() > 9)
            continue;
        metric = static_cast<std::uint32_t>(std::strtoul(std::string(fields[6]).c_str(), nullptr, 10));
        r.iface = std::string(fields[0]);
        r.flags = flags;
        r.metric = static_cast<long>(metric);
        routes.push_back(std::move(r));
    }
    return routes;
}

// The usable route for address (network byte order): longest mask, then lowest metric.
const Route* bestRoute(const std::vector<Route>& routes, std::uint32_t address) {
    const Route* best = nullptr;
    for (const auto& r : routes) {
        if (!(r.flags & RTF_UP) || (address & r.mask) != r.destination) continue;
        if (!best) {
            best = &r;
            continue;
        }
        const int bits = __builtin_popcount(r.mask), bestBits = __builtin_popcount(best->mask);
        if (bits > bestBits || (bits == bestBits && r.metric < best->metric)) best = &r;
    }
    return best;
}

// The default route with the lowest metric: the interface traffic leaves by.
const Route* defaultRoute(const std::vector<Route>& routes) {
    const Route* best = nullptr;
    for (const auto& r : routes) {
        if (!(r.flags & RTF_UP) || r.destination != 0 || r.mask != 0) continue;
        if (!best || r.metric < best->metric) best = &r;
    }
    return best;
}

// Interface names come from a file we read; never let one walk out of the sysfs directory.
bool safeInterfaceName(const std::string& name) {
    return !name.empty() && name.size() < 64 && name != "." && name != ".." &&
           name.find('/') == std::string::npos && name.find('\0') == std::string::npos;
}

// Turns a POSIX locale name into a language tag: "en_US.UTF-8" gives "en-US".
std::optional<std::string> localeToTag(std::string_view locale) {
    locale = trim(locale);
    locale = locale.substr(0, locale.find_first_of(".@"));
    if (locale.empty() || locale == "C" || locale == "POSIX") return std::nullopt;
    auto sep = locale.find_first_of("_-");
    std::string_view lang = locale.substr(0, sep);
    std::string_view region = sep == std::string_view::npos ? std::string_view{} : locale.substr(sep + 1);
    if (lang.size() < 2 || lang.size() > 8 ||
        !std::all_of(lang.begin(), lang.end(), [](unsigned char c) { return std::isalpha(c); }))
        return std::nullopt;
    std::string tag = asciiLower(lang);
    if (sep != std::string_view::npos) {
        bool alpha2 = region.size() == 2 &&
                      std::all_of(region.begin(), region.end(), [](unsigned char c) { return std::isalpha(c); });
        bool digit3 = region.size() == 3 && allDigits(region);
        if (!alpha2 && !digit3) return std::nullopt;
        tag += '-';
        for (char c : region) tag += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    return tag;
}

// A machine id is 32 hex digits; anything else (empty, "uninitialized", truncated) is none.
std::optional<std::string> validMachineId(const std::optional<std::string>& raw) {
    if (!raw) return std::nullopt;
    std::string_view id = trim(*raw);
    if (id.size() != 32 ||
        !std::all_of(id.begin(), id.end(), [](unsigned char c) { return std::isxdigit(c); }))
        return std::nullopt;
    std::string out = asciiLower(id);
    if (out == std::string(32, '0')) return std::nullopt;
    return out;
}

std::string executableName() {
    const char* name = program_invocation_short_name;
    return name ? std::string(name) : std::string();
}

}  // namespace

LinuxDevicePlatform::LinuxDevicePlatform(Options options) : options_(std::move(options)) {}

// ---- setters ----

void LinuxDevicePlatform::setBundleInfo(std::map<std::string, std::string> info) {
    std::lock_guard lock(mutex_);
    bundleInfo_ = std::move(info);
}

void LinuxDevicePlatform::setAdvertisingIdentifier(std::optional<std::string> identifier, bool trackingEnabled) {
    std::lock_guard lock(mutex_);
    trackingEnabled_ = identifier.has_value() && trackingEnabled;
    advertisingIdentifier_ = std::move(identifier);
}

void LinuxDevicePlatform::setCarrierName(std::optional<std::string> name) {
    std::lock_guard lock(mutex_);
    carrierName_ = std::move(name);
}

void LinuxDevicePlatform::setMainScreen(const MainScreen& screen) {
    std::lock_guard lock(mutex_);
    screen_ = screen;
}

void LinuxDevicePlatform::setApplicationState(ApplicationState state) {
    std::lock_guard lock(mutex_);
    appState_ = state;
}

void LinuxDevicePlatform::setScreenProvider(std::function<MainScreen()> provider) {
    std::lock_guard lock(mutex_);
    screenProvider_ = std::move(provider);
}

void LinuxDevicePlatform::setApplicationStateProvider(std::function<ApplicationState()> provider) {
    std::lock_guard lock(mutex_);
    appStateProvider_ = std::move(provider);
}

std::optional<std::string> LinuxDevicePlatform::env(const std::string& name) const {
    if (options_.environment) return options_.environment(name);
    const char* v = std::getenv(name.c_str());
    return v ? std::optional<std::string>(v) : std::nullopt;
}

// ---- system and model ----

const LinuxDevicePlatform::Facts& LinuxDevicePlatform::facts() const {
    std::call_once(factsOnce_, [this] {
        struct utsname u {};
        const bool haveUname = ::uname(&u) == 0;
        if (haveUname) facts_.machine = u.machine;
        facts_.chassis = readChassis();
        facts_.systemVersion = readSystemVersion(haveUname ? u.release : "");
    });
    return facts_;
}

std::string LinuxDevicePlatform::machineIdentifier() const { return facts().machine; }

std::string LinuxDevicePlatform::systemName() const { return "Linux"; }

std::string LinuxDevicePlatform::systemVersion() const { return facts().systemVersion; }

std::string LinuxDevicePlatform::readSystemVersion(const std::string& unameRelease) const {
    for (const char* file : {"/etc/os-release", "/usr/lib/os-release"}) {
        auto content = readFile(path(file));
        if (!content) continue;
        auto v = envFileValue(*content, "VERSION_ID");
        if (v && !trim(*v).empty()) return std::string(trim(*v));
        break;  // the first file that exists is authoritative
    }
    if (auto release = readTrimmed(path("/proc/sys/kernel/osrelease")); release && !release->empty())
        return *release;
    return unameRelease;
}

// Distribution and kernel versions (Debian 12, Alpine 3.19, Yocto 4.0, kernel 6.x) say
// nothing about the address rule's numbering; below 7 it would send the real MAC.
std::string LinuxDevicePlatform::identityRuleVersion() const { return "7"; }

std::string LinuxDevicePlatform::chassis() const { return facts().chassis; }

std::string LinuxDevicePlatform::readChassis() const {
    if (auto info = readFile(path("/etc/machine-info"))) {
        if (auto c = envFileValue(*info, "CHASSIS"); c && knownChassis(*c)) return *c;
    }
    if (auto dt = readFile(path("/sys/firmware/devicetree/base/chassis-type"))) {
        std::string word(trim(std::string_view(dt->c_str())));  // the property ends in a NUL
        if (knownChassis(word)) return word;
    }
    if (auto dmi = readTrimmed(path("/sys/class/dmi/id/chassis_type")); dmi && allDigits(*dmi) && dmi->size() < 4) {
        return std::string(chassisFromDmi(std::atoi(dmi->c_str())));
    }
    return std::string();
}

std::string LinuxDevicePlatform::model() const {
    static const std::map<std::string, std::string, std::less<>> words = {
        {"desktop", "Desktop"}, {"laptop", "Laptop"},     {"convertible", "Convertible"},
        {"server", "Server"},   {"tablet", "Tablet"},     {"handset", "Handset"},
        {"watch", "Watch"},     {"embedded", "Embedded"}, {"vm", "Virtual Machine"},
        {"container", "Container"}};
    auto it = words.find(chassis());
    return it == words.end() ? std::string("Computer") : it->second;
}

std::optional<int> LinuxDevicePlatform::userInterfaceIdiom() const {
    std::string c = chassis();
    if (c.empty()) return std::nullopt;
    if (c == "handset") return kIdiomPhone;
    if (c == "tablet") return kIdiomPad;
    return kIdiomDesktop;
}

// ---- main screen ----

MainScreen LinuxDevicePlatform::screen() const {
    std::function<MainScreen()> provider;
    {
        std::lock_guard lock(mutex_);
        if (!screenProvider_) return screen_;
        provider = screenProvider_;
    }
    return provider();
}

bool LinuxDevicePlatform::screenAnswersDisplayLink() const { return true; }
double LinuxDevicePlatform::screenScale() const { return screen().scale; }
bool LinuxDevicePlatform::screensAnswerCurrentMode() const { return true; }

Size LinuxDevicePlatform::screenCurrentModeSize() const {
    MainScreen s = screen();
    if (s.currentModePixels) return *s.currentModePixels;
    return Size{s.bounds.width * s.scale, s.bounds.height * s.scale};
}

Size LinuxDevicePlatform::screenBounds() const { return screen().bounds; }

// ---- identity ----

std::optional<std::string> LinuxDevicePlatform::machineId() const {
    {
        std::lock_guard lock(cacheMutex_);
        if (machineId_) return machineId_;
    }
    auto id = validMachineId(readFile(path("/etc/machine-id")));
    if (!id) id = validMachineId(readFile(path("/var/lib/dbus/machine-id")));
    if (id) {
        std::lock_guard lock(cacheMutex_);
        machineId_ = id;
    }
    return id;
}

std::optional<std::string> LinuxDevicePlatform::identifierForVendor() const {
    auto machineId = this->machineId();
    if (!machineId) return std::nullopt;

    std::string key;
    {
        std::lock_guard lock(mutex_);
        if (auto it = bundleInfo_.find("CFBundleIdentifier"); it != bundleInfo_.end()) key = it->second;
    }
    {
        std::lock_guard lock(cacheMutex_);
        if (auto it = vendorIds_.find(key); it != vendorIds_.end()) return it->second;
    }
    auto id = deriveVendorIdentifier(*machineId, key);
    std::lock_guard lock(cacheMutex_);
    vendorIds_.emplace(key, id);
    return id;
}

std::optional<std::string> LinuxDevicePlatform::deriveVendorIdentifier(const std::string& machineId,
                                                                        const std::string& key) {
    // Keyed by the application so two apps on one machine cannot correlate users,
    // and the machine id itself never leaves the device.
    auto digest = hmacSha256(key, machineId);
    if (!digest || digest->size() < 16) return std::nullopt;
    std::uint8_t* mac = digest->data();
    mac[6] = static_cast<unsigned char>((mac[6] & 0x0F) | 0x40);  // a well-formed version 4 UUID
    mac[8] = static_cast<unsigned char>((mac[8] & 0x3F) | 0x80);
    char out[37];
    std::snprintf(out, sizeof out,
                  "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", mac[0], mac[1],
                  mac[2], mac[3], mac[4], mac[5], mac[6], mac[7], mac[8], mac[9], mac[10], mac[11], mac[12],
                  mac[13], mac[14], mac[15]);
    return std::string(out);
}

std::string LinuxDevicePlatform::advertisingIdentifier() const {
    std::lock_guard lock(mutex_);
    return advertisingIdentifier_.value_or("00000000-0000-0000-0000-000000000000");
}

bool LinuxDevicePlatform::advertisingTrackingEnabled() const {
    std::lock_guard lock(mutex_);
    return trackingEnabled_;
}

// ---- network ----

namespace {

// Subscribed to what can change an interface's addresses, its hardware address or
// the IPv4 routes. Bound before the first read, so any later change is queued.
UniqueFd openChangeSubscription() {
    UniqueFd fd(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    if (!fd) return fd;
    sockaddr_nl local{};
    local.nl_family = AF_NETLINK;
    local.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE;
    if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) return UniqueFd();
    return fd;
}

enum class Drained { Quiet, Changed, Broken };

// Empties the subscription's queue without blocking; the messages' content does
// not matter, only that one came.
Drained drainChanges(int fd) {
    Drained result = Drained::Quiet;
    char buf[512];
    while (true) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT | MSG_TRUNC);
        if (n > 0) {
            result = Drained::Changed;
        } else if (n < 0 && errno == EINTR) {
            continue;
        } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            return result;
        } else if (n < 0 && errno == ENOBUFS) {
            result = Drained::Changed;  // so many changes that some were dropped
        } else {
            return Drained::Broken;
        }
    }
}

}  // namespace

// Polls the subscription; the generation that vouches for reads made from now on,
// 0 when nothing can vouch (a scripted root, or no subscription to be had).
std::uint64_t LinuxDevicePlatform::networkGeneration() const {
    if (!options_.root.empty()) return 0;
    if (!netlinkTried_) {
        netlinkTried_ = true;
        netlink_ = openChangeSubscription();
    }
    if (!netlink_) return 0;
    // One poll per record: what it vouched for holds for the whole record.
    const std::uint64_t scope = RecordScope::current();
    if (scope != 0 && scope == polledScope_) return generation_;
    polledScope_ = scope;
    switch (drainChanges(netlink_.get())) {
        case Drained::Quiet: break;
        case Drained::Changed: ++generation_; break;
        case Drained::Broken:
            netlink_.reset();
            return 0;
    }
    return generation_;
}

// The value entry holds when it is still true (read in this record scope, or a
// network fact no change was reported for since), else a new read. cacheMutex_ held.
template <class T, class Read>
T LinuxDevicePlatform::live(Live<T>& entry, bool network, Read read) const {
    const std::uint64_t scope = RecordScope::current();
    if (entry.filled && scope != 0 && entry.scope == scope) return entry.value;
    const std::uint64_t generation = network ? networkGeneration() : 0;
    if (entry.filled && generation != 0 && entry.generation == generation) {
        entry.scope = scope;
        return entry.value;
    }
    entry.value = read();
    entry.filled = true;
    entry.scope = scope;
    entry.generation = generation;
    return entry.value;
}

std::shared_ptr<const std::vector<RouteEntry>> LinuxDevicePlatform::routes() const {
    std::lock_guard lock(cacheMutex_);
    return live(routes_, true, [this] {
        std::shared_ptr<const std::vector<RouteEntry>> table;
        if (auto parsed = readRoutes(path("/proc/net/route")))
            table = std::make_shared<const std::vector<RouteEntry>>(std::move(*parsed));
        return table;
    });
}

std::optional<std::string> LinuxDevicePlatform::primaryInterfaceName() const {
    auto routes = this->routes();
    if (!routes) return std::nullopt;
    const Route* r = defaultRoute(*routes);
    if (!r || !safeInterfaceName(r->iface)) return std::nullopt;
    return r->iface;
}

std::optional<HardwareAddress> LinuxDevicePlatform::hardwareAddress(const std::string& interface) const {
    if (!safeInterfaceName(interface)) return std::nullopt;
    std::lock_guard lock(cacheMutex_);
    if (hardwareAddress_.value.first != interface) hardwareAddress_.filled = false;
    return live(hardwareAddress_, true, [&] { return std::pair(interface, readHardwareAddress(interface)); }).second;
}

std::optional<HardwareAddress> LinuxDevicePlatform::readHardwareAddress(const std::string& interface) const {
    auto text = readTrimmed(path("/sys/class/net/") + interface + "/address");
    if (!text || text->size() != 17) return std::nullopt;
    HardwareAddress out{};
    for (std::size_t i = 0; i < 6; ++i) {
        std::uint32_t byte = 0;
        if ((i < 5 && (*text)[i * 3 + 2] != ':') || !parseHex32(std::string_view(*text).substr(i * 3, 2), byte))
            return std::nullopt;
        out[i] = static_cast<std::uint8_t>(byte);
    }
    return out;
}

std::optional<std::vector<InterfaceAddress>> LinuxDevicePlatform::interfaceAddresses() const {
    std::lock_guard lock(cacheMutex_);
    return live(addresses_, true, &LinuxDevicePlatform::readInterfaceAddresses);
}

// One dump of the IPv4 addresses, which is all the walk reads: getifaddrs would add
// a dump of every link with its statistics, several times the work. Entries are
// named as getifaddrs names them (the label, so "eth0:1" for an alias).
std::optional<std::vector<InterfaceAddress>> LinuxDevicePlatform::readInterfaceAddresses() {
    const UniqueFd fd(::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE));
    if (!fd) return std::nullopt;
    struct {
        nlmsghdr header;
        ifaddrmsg body;
    } request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.header.nlmsg_seq = 1;
    request.body.ifa_family = AF_INET;
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    if (::sendto(fd.get(), &request, sizeof request, 0, reinterpret_cast<const sockaddr*>(&kernel), sizeof kernel) < 0)
        return std::nullopt;

    std::vector<InterfaceAddress> out;
    alignas(nlmsghdr) char buf[16384];
    while (true) {
        const ssize_t received = ::recv(fd.get(), buf, sizeof buf, 0);
        if (received < 0 && errno == EINTR) continue;
        if (received <= 0) return std::nullopt;
        const auto size = static_cast<std::size_t>(received);
        for (std::size_t at = 0; at + sizeof(nlmsghdr) <= size;) {
            nlmsghdr header;
            std::memcpy(&header, buf + at, sizeof header);
            if (header.nlmsg_len < sizeof header || at + header.nlmsg_len > size) return std::nullopt;
            if (header.nlmsg_type == NLMSG_DONE) return out;
            if (header.nlmsg_type == NLMSG_ERROR) return std::nullopt;
            const std::size_t body = at + NLMSG_HDRLEN;
            if (header.nlmsg_type == RTM_NEWADDR && header.nlmsg_len >= NLMSG_LENGTH(sizeof(ifaddrmsg))) {
                ifaddrmsg message;
                std::memcpy(&message, buf + body, sizeof message);
                std::optional<std::uint32_t> local, address;
                std::string label;
                const std::size_t end = at + header.nlmsg_len;
                for (std::size_t a = body + NLMSG_ALIGN(sizeof(ifaddrmsg)); a + sizeof(rtattr) <= end;) {
                    rtattr attribute;
                    std::memcpy(&attribute, buf + a, sizeof attribute);
                    if (attribute.rta_len < sizeof attribute || a + attribute.rta_len > end) break;
                    const char* data = buf + a + RTA_LENGTH(0);
                    const std::size_t length = attribute.rta_len - RTA_LENGTH(0);
                    std::uint32_t ip = 0;
                    if ((attribute.rta_type == IFA_LOCAL || attribute.rta_type == IFA_ADDRESS) && length >= sizeof ip) {
                        std::memcpy(&ip, data, sizeof ip);
                        (attribute.rta_type == IFA_LOCAL ? local : address) = ip;
                    } else if (attribute.rta_type == IFA_LABEL) {
                        label.assign(data, ::strnlen(data, length));
                    }
                    a += RTA_ALIGN(attribute.rta_len);
                }
                if (label.empty()) {
                    char name[IF_NAMESIZE] = {};
                    if (::if_indextoname(message.ifa_index, name)) label = name;
                }
                // The local end of a point-to-point link, as getifaddrs gives it.
                if (message.ifa_family == AF_INET && (local || address))
                    out.push_back(InterfaceAddress{label, kFamilyIPv4, local ? *local : *address});
            }
            at += NLMSG_ALIGN(header.nlmsg_len);
        }
    }
}

std::optional<std::string> LinuxDevicePlatform::carrierName() const {
    std::lock_guard lock(mutex_);
    return carrierName_;
}

std::optional<std::uint32_t> LinuxDevicePlatform::reachabilityFlags(const std::string& hostName) const {
    // Only numeric hosts are looked up in the table; a name would need DNS, so a
    // name is answered by the default route.
    in_addr numeric{};
    const bool isNumeric = ::inet_pton(AF_INET, hostName.c_str(), &numeric) == 1;
    if (isNumeric && (ntohl(numeric.s_addr) >> 24) == 127) return kReachable;

    auto routes = this->routes();
    if (!routes) return std::nullopt;
    const Route* r = isNumeric ? bestRoute(*routes, numeric.s_addr) : defaultRoute(*routes);
    if (!r) return 0u;

    std::uint32_t flags = kReachable;
    const std::string& name = r->iface;
    bool cellular = name.rfind("wwan", 0) == 0 || name.rfind("rmnet", 0) == 0 || name.rfind("ccmni", 0) == 0;
    if (!cellular && safeInterfaceName(name)) {
        if (auto uevent = readFile(path("/sys/class/net/") + name + "/uevent"))
            cellular = envFileValue(*uevent, "DEVTYPE") == std::optional<std::string>("wwan");
    }
    if (cellular) flags |= kIsCellular;
    return flags;
}

// ---- locale, bundle, application, battery ----

std::vector<std::string> LinuxDevicePlatform::preferredLanguages() const {
    std::vector<std::string> out;
    auto add = [&out](std::string_view locale) {
        if (auto tag = localeToTag(locale); tag && std::find(out.begin(), out.end(), *tag) == out.end())
            out.push_back(*tag);
    };
    if (auto list = env("LANGUAGE")) {
        std::string_view rest = *list;
        while (true) {
            auto colon = rest.find(':');
            add(rest.substr(0, colon));
            if (colon == std::string_view::npos) break;
            rest = rest.substr(colon + 1);
        }
    }
    for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        auto v = env(name);
        if (v && !v->empty()) {
            add(*v);
            break;  // the first one set is the effective locale
        }
    }
    // The C locale (or none at all) is an English-speaking default, not "no language".
    if (out.empty()) out.push_back("en");
    return out;
}

std::map<std::string, std::string> LinuxDevicePlatform::bundleInfo() const {
    std::map<std::string, std::string> info;
    if (std::string exe = executableName(); !exe.empty()) {
        info["CFBundleName"] = exe;
        info["CFBundleExecutable"] = exe;
    }
    std::lock_guard lock(mutex_);
    for (const auto& [k, v] : bundleInfo_) info[k] = v;
    return info;
}

int LinuxDevicePlatform::applicationState() const {
    std::function<ApplicationState()> provider;
    {
        std::lock_guard lock(mutex_);
        if (!appStateProvider_) return static_cast<int>(appState_);
        provider = appStateProvider_;
    }
    return static_cast<int>(provider());
}

namespace {

// The system battery: the first power supply of type Battery (in name order) that is
// not a peripheral's ("scope" Device is a mouse or a headset).
std::optional<std::string> findBattery(const std::string& dir) {
    DIR* d = ::opendir(dir.c_str());
    if (!d) return std::nullopt;
    std::vector<std::string> names;
    while (auto* e = ::readdir(d)) {
        std::string n = e->d_name;
        if (n != "." && n != "..") names.push_back(std::move(n));
    }
    ::closedir(d);
    std::sort(names.begin(), names.end());
    for (const auto& n : names) {
        std::string base = dir + "/" + n;
        auto type = readTrimmed(base + "/type");
        if (!type || *type != "Battery") continue;
        if (auto scope = readTrimmed(base + "/scope"); scope && *scope == "Device") continue;
        return base;
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::string> LinuxDevicePlatform::battery() const {
    // No change notice covers power supplies: only a record scope reuses the location.
    std::lock_guard lock(cacheMutex_);
    return live(battery_, false, [this] { return findBattery(path("/sys/class/power_supply")); });
}

std::optional<std::int32_t> LinuxDevicePlatform::batteryCapacity() const {
    auto battery = this->battery();
    if (!battery) return std::nullopt;
    auto text = readTrimmed(*battery + "/capacity");
    if (!text || text->empty() || text->size() > 11) return std::nullopt;
    std::string_view digits = *text;
    if (digits.front() == '-' || digits.front() == '+') digits.remove_prefix(1);
    if (!allDigits(digits)) return std::nullopt;
    long long v = std::strtoll(text->c_str(), nullptr, 10);
    if (v < std::numeric_limits<std::int32_t>::min() || v > std::numeric_limits<std::int32_t>::max())
        return std::nullopt;
    return static_cast<std::int32_t>(v);
}

int LinuxDevicePlatform::batteryState() const {
    auto battery = this->battery();
    if (!battery) return kBatteryUnknown;
    auto status = readTrimmed(*battery + "/status");
    if (!status) return kBatteryUnknown;
    if (*status == "Discharging" || *status == "Not charging") return kBatteryUnplugged;
    if (*status == "Charging") return kBatteryCharging;
    if (*status == "Full") return kBatteryFull;
    return kBatteryUnknown;
}

}  // namespace quov::platform
