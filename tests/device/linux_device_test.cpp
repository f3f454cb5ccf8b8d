// The Linux platform against temporary file trees, and once against this machine.
#include <quov/QVDeviceInfo.h>

#include "platform/Context.h"
#include "platform/device/linux_device.h"

#include <gtest/gtest.h>

#include <net/if.h>
#include <net/route.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>

namespace fs = std::filesystem;
using quov::platform::LinuxDevicePlatform;

namespace {

// A scratch root holding only the files a case writes.
struct Tree {
    using Files = std::map<std::string, std::string>;
    fs::path dir;

    explicit Tree(const Files& files = {}) {
        std::string tmpl = (fs::temp_directory_path() / "quov-device-XXXXXX").string();
        dir = ::mkdtemp(tmpl.data());
        for (const auto& [path, content] : files) write(path, content);
    }
    ~Tree() { fs::remove_all(dir); }
    void write(const std::string& absolute, const std::string& content) const {
        fs::path p = dir / absolute.substr(1);
        fs::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary) << content;
    }
    LinuxDevicePlatform platform() const { return LinuxDevicePlatform({dir.string(), {}}); }
};
using Files = Tree::Files;

const std::string kRouteHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

std::string route(const char* iface, unsigned flags, int metric, const char* dest = "00000000",
                  const char* mask = "00000000") {
    char line[160];
    std::snprintf(line, sizeof line, "%s\t%s\t0100A8C0\t%04X\t0\t0\t%d\t%s\t0\t0\t0\n", iface, dest, flags, metric, mask);
    return line;
}

}  // namespace

TEST(LinuxDevice, SystemVersionFromOsReleaseElseTheKernel) {
    const std::pair<Files, std::string> cases[] = {
        {{{"/etc/os-release", "# VERSION_ID=9\n VERSION_ID=\"22.04\"\nID=ubuntu"}}, "22.04"},
        {{{"/etc/os-release", "VERSION_ID='3.18'\nVERSION_ID=\"1\\\"x\n"}}, "1\"x"},  // last wins, escape, no end quote
        {{{"/usr/lib/os-release", "VERSION_ID=39\n"}}, "39"},
        {{{"/etc/os-release", "BUILD_ID=rolling\n"}, {"/proc/sys/kernel/osrelease", "6.9.1-arch1\n"}}, "6.9.1-arch1"},
        {{}, [] { utsname u{}; return ::uname(&u), std::string(u.release); }()},
    };
    for (const auto& [files, expected] : cases) EXPECT_EQ(Tree(files).platform().systemVersion(), expected);
}

TEST(LinuxDevice, ChassisGivesModelWordAndIdiom) {
    const std::tuple<Files, std::string, std::optional<int>> cases[] = {
        {{{"/etc/machine-info", "X=y\nCHASSIS=handset\n"}}, "Handset", 0},
        {{{"/sys/firmware/devicetree/base/chassis-type", std::string("tablet\0", 7)}}, "Tablet", 1},
        {{{"/etc/machine-info", "CHASSIS=spaceship\n"}, {"/sys/class/dmi/id/chassis_type", "17"}}, "Server", 5},
        {{}, "Computer", std::nullopt},
    };
    for (const auto& [files, model, idiom] : cases) {
        Tree t(files);
        EXPECT_EQ(t.platform().model(), model);
        EXPECT_EQ(t.platform().userInterfaceIdiom(), idiom) << model;
    }
}

TEST(LinuxDevice, VendorIdentifierIsDerivedPerAppAndNeverTheMachineId) {
    const std::string machineId = "3d1219c7c4c5404aaa1f6d2a48adfda4";
    auto vendorId = [](const std::string& file, const std::string& content, const char* bundleId) {
        Tree t(Files{{file, content}});
        auto p = t.platform();
        p.setBundleInfo({{"CFBundleIdentifier", bundleId}});
        return p.identifierForVendor();
    };
    auto one = vendorId("/etc/machine-id", machineId + "\n", "com.example.one");
    // HMAC-SHA256 keyed by the bundle identifier over the machine id, as a version 4 UUID.
    EXPECT_EQ(one, std::optional<std::string>("CD0EBF03-252B-42CB-BF22-A50DDB7F10BA"));
    EXPECT_NE(vendorId("/etc/machine-id", machineId, "com.example.two"), one) << "differs per bundle identifier";
    EXPECT_EQ(vendorId("/var/lib/dbus/machine-id", machineId, "com.example.one"), one) << "the D-Bus copy serves";
    for (const char* bad : {"3d1219c7c4c5404a", "zz1219c7c4c5404aaa1f6d2a48adfda4", "00000000000000000000000000000000"})
        EXPECT_EQ(vendorId("/etc/machine-id", bad, "com.example.one"), std::nullopt) << "'" << bad << "'";

    // Kept for the process, but not the placeholder of a first boot still under way. Sent as the
    // MAC address even where a hardware address can be read.
    Tree t(Files{{"/etc/machine-id", "uninitialized\n"}, {"/proc/net/route", kRouteHeader + route("eth0", 3, 100)},
                 {"/sys/class/net/eth0/address", "02:fc:11:22:33:44\n"}});
    auto p = std::make_shared<LinuxDevicePlatform>(LinuxDevicePlatform::Options{t.dir.string(), {}});
    p->setBundleInfo({{"CFBundleIdentifier", "com.example.one"}});
    EXPECT_EQ(p->identifierForVendor(), std::nullopt);
    t.write("/etc/machine-id", machineId);
    EXPECT_EQ(p->identifierForVendor(), one);
    ASSERT_TRUE(p->hardwareAddress("eth0"));
    quov::platform::Context::ScopedDevicePlatform scope(quov::platform::Context::shared(), p);
    EXPECT_EQ(quov::QVDeviceInfo::getMacAddress(), "CD0EBF03252B42CBBF22A50DDB7F10BA");
}

TEST(LinuxDevice, PrimaryInterfaceAndReachabilityFromTheRoutingTable) {
    using quov::platform::kIsCellular;
    using quov::platform::kReachable;
    const char* bid = "bid.example.com";
    const std::string junk = "garbage\n\n\tonly\ttwo\neth0\tZZZZZZZZ\t0\t3\t0\t0\t0\t00000000\n";
    const std::string subnet = route("eth0", 3, 100) + route("wwan0", 1, 0, "0001A8C0", "00FFFFFF");  // 192.168.1/24
    const std::tuple<std::string, const char*, std::optional<std::string>, std::uint32_t> cases[] = {
        {route("wlan0", 3, 600) + route("eth0", 3, 100), bid, "eth0", kReachable},
        {route("eth0", 2, 0) + route("wlan0", 3, 600), bid, "wlan0", kReachable},  // a route not up does not count
        {route("wwan0", 3, 0), bid, "wwan0", kReachable | kIsCellular},
        {junk + route("tun0", 1, 0, "00000000", "000000FF") + route("eth1", 3, 5), bid, "eth1", kReachable},
        {route("..", 3, 0), bid, std::nullopt, kReachable},
        {subnet, "192.168.1.20", "eth0", kReachable | kIsCellular},
        {subnet, "8.8.8.8", "eth0", kReachable},
    };
    for (const auto& [table, host, primary, flags] : cases) {
        Tree t(Files{{"/proc/net/route", kRouteHeader + table}});
        EXPECT_EQ(t.platform().primaryInterfaceName(), primary) << table;
        EXPECT_EQ(t.platform().reachabilityFlags(host), flags) << table << host;
    }
    Tree none;
    EXPECT_EQ(none.platform().reachabilityFlags("8.8.8.8"), std::nullopt) << "unreadable table: no flags";
    EXPECT_EQ(none.platform().reachabilityFlags("127.0.0.1"), kReachable) << "loopback needs no table";
}

TEST(LinuxDevice, BatteryFromPowerSupplies) {
    using Supply = std::array<const char*, 5>;  // name, type, capacity, status, scope; "" leaves the file out
    const std::tuple<std::vector<Supply>, std::optional<std::int32_t>, int> cases[] = {
        {{}, std::nullopt, 0},
        {{Supply{"AC", "Mains", "", "", ""}, {"BAT0", "Battery", "57\n", "Discharging\n", ""}}, 57, 1},
        {{Supply{"BAT0", "Battery", "80", "Not charging", ""}}, 80, 1},
        {{Supply{"BAT0", "Battery", "abc", "Charging", ""}}, std::nullopt, 2},
        {{Supply{"mouse", "Battery", "5", "Discharging", "Device"}, {"BAT1", "Battery", "150", "Full", ""}}, 150, 3},
    };
    const char* files[] = {"", "type", "capacity", "status", "scope"};
    for (const auto& [supplies, capacity, state] : cases) {
        Tree t(Files{{"/sys/class/power_supply/.keep", ""}});
        for (const auto& s : supplies)
            for (int i = 1; i < 5; ++i)
                if (*s[i]) t.write(std::string("/sys/class/power_supply/") + s[0] + "/" + files[i], s[i]);
        EXPECT_EQ(t.platform().batteryCapacity(), capacity) << supplies.size();
        EXPECT_EQ(t.platform().batteryState(), state) << supplies.size();
    }
}

// Inside one record a fact is read once; outside, every read sees the tree as it is now.
TEST(LinuxDevice, ARecordReadsEachFactOnce) {
    Tree t(Files{{"/proc/net/route", kRouteHeader + route("lo", 3, 0)}});
    auto p = t.platform();
    {
        const quov::platform::RecordScope record;
        EXPECT_EQ(p.primaryInterfaceName(), std::optional<std::string>("lo"));
        t.write("/proc/net/route", kRouteHeader + route("eth7", 3, 0));
        EXPECT_EQ(p.primaryInterfaceName(), std::optional<std::string>("lo"));
    }
    EXPECT_EQ(p.primaryInterfaceName(), std::optional<std::string>("eth7"));
}

// Kept between records only while the kernel reports no change: a child in a network
// namespace of its own changes the loopback interface and the routes.
TEST(LinuxDevice, RealFactsFollowKernelChanges) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        if (::unshare(CLONE_NEWNET) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) ::_exit(77);
        LinuxDevicePlatform p;
        auto loopbackIPv4 = [&p] {
            auto list = p.interfaceAddresses().value_or(std::vector<quov::platform::InterfaceAddress>{});
            return std::any_of(list.begin(), list.end(), [](const auto& e) {
                return e.name == "lo" && e.family == quov::platform::kFamilyIPv4 && e.ipv4 == htonl(0x7f000001);
            });
        };
        if (loopbackIPv4() || p.primaryInterfaceName()) ::_exit(10);  // a new namespace starts down
        // Up, which adds 127.0.0.1, then a default route over it.
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        ifreq up{};
        std::strncpy(up.ifr_name, "lo", IFNAMSIZ - 1);
        rtentry route{};
        route.rt_dst.sa_family = route.rt_genmask.sa_family = AF_INET;
        route.rt_flags = RTF_UP;
        route.rt_dev = up.ifr_name;
        if (::ioctl(fd, SIOCGIFFLAGS, &up) != 0) ::_exit(77);
        up.ifr_flags = static_cast<short>(up.ifr_flags | IFF_UP);
        if (::ioctl(fd, SIOCSIFFLAGS, &up) != 0 || ::ioctl(fd, SIOCADDRT, &route) != 0) ::_exit(77);
        if (!loopbackIPv4()) ::_exit(11);
        ::_exit(p.primaryInterfaceName() == std::optional<std::string>("lo") ? 0 : 12);
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no network namespace to be had here";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "10: the namespace was not fresh, 11: stale addresses, 12: stale routes";
}
