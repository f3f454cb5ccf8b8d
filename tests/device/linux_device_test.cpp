// The Linux platform against temporary file trees, and once against this machine.
#include <quov/QVDeviceInfo.h>
#include <quov/QuovHost.h>

#include "platform/linux_device.h"

#include <gtest/gtest.h>

#include <sys/utsname.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

namespace fs = std::filesystem;
using quov::platform::LinuxDevicePlatform;

namespace {

// A scratch root holding only the files a case writes.
class TempRoot {
public:
    TempRoot() {
        std::string tmpl = (fs::temp_directory_path() / "quov-device-XXXXXX").string();
        if (!::mkdtemp(tmpl.data())) throw std::runtime_error("mkdtemp");
        dir_ = tmpl;
    }
    ~TempRoot() {
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }
    void write(const std::string& relative, const std::string& content) const {
        fs::path p = dir_ / relative.substr(1);
        fs::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary) << content;
    }
    std::string str() const { return dir_.string(); }

private:
    fs::path dir_;
};

struct Tree {
    TempRoot root;
    std::map<std::string, std::string> environment;
    LinuxDevicePlatform platform() const {
        auto env = environment;
        return LinuxDevicePlatform({root.str(), [env](const std::string& name) -> std::optional<std::string> {
                                        auto it = env.find(name);
                                        return it == env.end() ? std::nullopt : std::optional(it->second);
                                    }});
    }
};

const std::string kRouteHeader =
    "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n";

std::string route(const char* iface, const char* dest, unsigned flags, int metric, const char* mask) {
    char line[160];
    std::snprintf(line, sizeof line, "%s\t%s\t0100A8C0\t%04X\t0\t0\t%d\t%s\t0\t0\t0\n", iface, dest, flags, metric,
                  mask);
    return line;
}

std::string kernelRelease() {
    struct utsname u {};
    ::uname(&u);
    return u.release;
}

}  // namespace

TEST(LinuxDevice, SystemVersionFromOsReleaseElseTheKernel) {
    struct Case {
        const char* name;
        std::map<std::string, std::string> files;
        std::string expected;
    } cases[] = {
        {"plain", {{"/etc/os-release", "NAME=Debian\nVERSION_ID=12\n"}}, "12"},
        {"double quoted", {{"/etc/os-release", "VERSION_ID=\"22.04\"\nID=ubuntu"}}, "22.04"},
        {"single quoted", {{"/etc/os-release", "VERSION_ID='3.18'\n"}}, "3.18"},
        {"escaped quote", {{"/etc/os-release", "VERSION_ID=\"1\\\"x\"\n"}}, "1\"x"},
        {"spaces and comments", {{"/etc/os-release", "# VERSION_ID=9\n  VERSION_ID = 40 \n"}}, "40"},
        {"unterminated quote", {{"/etc/os-release", "VERSION_ID=\"7.1\n"}}, "7.1"},
        {"last one wins", {{"/etc/os-release", "VERSION_ID=1\nVERSION_ID=2\n"}}, "2"},
        {"usr/lib fallback", {{"/usr/lib/os-release", "VERSION_ID=39\n"}}, "39"},
        {"etc wins over usr/lib",
         {{"/etc/os-release", "VERSION_ID=1\n"}, {"/usr/lib/os-release", "VERSION_ID=2\n"}}, "1"},
        {"rolling release: kernel",
         {{"/etc/os-release", "NAME=Arch\nBUILD_ID=rolling\n"}, {"/proc/sys/kernel/osrelease", "6.9.1-arch1\n"}},
         "6.9.1-arch1"},
        {"empty value: kernel",
         {{"/etc/os-release", "VERSION_ID=\"\"\n"}, {"/proc/sys/kernel/osrelease", "5.10.0\n"}}, "5.10.0"},
        {"binary junk: kernel",
         {{"/etc/os-release", std::string("\0\xff\xfe=VERSION_ID\n==\n", 16)},
          {"/proc/sys/kernel/osrelease", "6.1.0"}},
         "6.1.0"},
        {"nothing readable: uname", {}, kernelRelease()},
    };
    for (const auto& c : cases) {
        Tree t;
        for (const auto& [path, content] : c.files) t.root.write(path, content);
        EXPECT_EQ(t.platform().systemVersion(), c.expected) << c.name;
    }
}

TEST(LinuxDevice, ChassisGivesModelWordAndIdiom) {
    struct Case {
        const char* name;
        std::map<std::string, std::string> files;
        std::string model;
        std::optional<int> idiom;
    } cases[] = {
        {"machine-info handset", {{"/etc/machine-info", "PRETTY_HOSTNAME=x\nCHASSIS=handset\n"}}, "Handset", 0},
        {"device tree tablet", {{"/sys/firmware/devicetree/base/chassis-type", std::string("tablet\0", 7)}},
         "Tablet", 1},
        {"DMI laptop", {{"/sys/class/dmi/id/chassis_type", "9\n"}}, "Laptop", 5},
        {"DMI hand held", {{"/sys/class/dmi/id/chassis_type", "11\n"}}, "Handset", 0},
        {"DMI unknown", {{"/sys/class/dmi/id/chassis_type", "2\n"}}, "Computer", std::nullopt},
        {"DMI junk", {{"/sys/class/dmi/id/chassis_type", "-1x\n"}}, "Computer", std::nullopt},
        {"unknown word falls through",
         {{"/etc/machine-info", "CHASSIS=spaceship\n"}, {"/sys/class/dmi/id/chassis_type", "17"}}, "Server", 5},
        {"machine-info wins",
         {{"/etc/machine-info", "CHASSIS=\"vm\"\n"}, {"/sys/class/dmi/id/chassis_type", "30"}}, "Virtual Machine",
         5},
        {"nothing", {}, "Computer", std::nullopt},
    };
    for (const auto& c : cases) {
        Tree t;
        for (const auto& [path, content] : c.files) t.root.write(path, content);
        auto p = t.platform();
        EXPECT_EQ(p.model(), c.model) << c.name;
        EXPECT_EQ(p.userInterfaceIdiom(), c.idiom) << c.name;
    }
}

TEST(LinuxDevice, VendorIdentifierIsDerivedPerAppAndNeverTheMachineId) {
    const std::string machineId = "3d1219c7c4c5404aaa1f6d2a48adfda4";
    const std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    Tree t;
    t.root.write("/etc/machine-id", machineId + "\n");
    auto p = t.platform();
    p.setBundleInfo({{"CFBundleIdentifier", "com.example.one"}});
    auto one = p.identifierForVendor();
    ASSERT_TRUE(one);
    EXPECT_TRUE(std::regex_match(*one, uuid)) << *one;
    EXPECT_EQ(p.identifierForVendor(), one) << "stable across calls";
    std::string bare = *one;
    std::erase(bare, '-');
    EXPECT_NE(bare, "3D1219C7C4C5404AAA1F6D2A48ADFDA4");

    p.setBundleInfo({{"CFBundleIdentifier", "com.example.two"}});
    EXPECT_NE(p.identifierForVendor(), one) << "differs per bundle identifier";
    p.setBundleInfo({});
    EXPECT_TRUE(p.identifierForVendor()) << "no bundle identifier still derives one";

    Tree upper;
    upper.root.write("/etc/machine-id", "3D1219C7C4C5404AAA1F6D2A48ADFDA4");
    auto q = upper.platform();
    q.setBundleInfo({{"CFBundleIdentifier", "com.example.one"}});
    EXPECT_EQ(q.identifierForVendor(), one) << "case of the machine id does not matter";

    for (const std::string& bad : std::vector<std::string>{"", "uninitialized\n", "3d1219c7c4c5404a", machineId + "00",
                                  "zz1219c7c4c5404aaa1f6d2a48adfda4", std::string(32, '0')}) {
        Tree b;
        b.root.write("/etc/machine-id", bad);
        EXPECT_EQ(b.platform().identifierForVendor(), std::nullopt) << "'" << bad << "'";
    }
    Tree dbus;
    dbus.root.write("/var/lib/dbus/machine-id", machineId);
    EXPECT_TRUE(dbus.platform().identifierForVendor()) << "the D-Bus copy serves when /etc has none";
}

TEST(LinuxDevice, PrimaryInterfaceAndReachabilityFromTheRoutingTable) {
    using quov::platform::kIsCellular;
    using quov::platform::kReachable;
    struct Case {
        const char* name;
        std::string table;
        std::map<std::string, std::string> extra;
        std::optional<std::string> primary;
        std::optional<std::uint32_t> flagsForName;
    } cases[] = {
        {"wired default", kRouteHeader + route("eth0", "00000000", 3, 100, "00000000"), {}, "eth0", kReachable},
        {"lowest metric wins",
         kRouteHeader + route("wlan0", "00000000", 3, 600, "00000000") + route("eth0", "00000000", 3, 100, "00000000"),
         {}, "eth0", kReachable},
        {"down route ignored",
         kRouteHeader + route("eth0", "00000000", 2, 0, "00000000") + route("wlan0", "00000000", 3, 600, "00000000"),
         {}, "wlan0", kReachable},
        {"no default route", kRouteHeader + route("eth0", "0000A8C0", 1, 0, "00FFFFFF"), {}, std::nullopt, 0u},
        {"modem by name", kRouteHeader + route("wwan0", "00000000", 3, 0, "00000000"), {}, "wwan0",
         kReachable | kIsCellular},
        {"modem by device type", kRouteHeader + route("usb0", "00000000", 3, 0, "00000000"),
         {{"/sys/class/net/usb0/uevent", "INTERFACE=usb0\nDEVTYPE=wwan\n"}}, "usb0", kReachable | kIsCellular},
        {"malformed lines skipped",
         kRouteHeader + "garbage\n\n\tonly\ttwo\n" + "eth0\tZZZZZZZZ\t0\t3\t0\t0\t0\t00000000\n" +
             route("eth1", "00000000", 3, 5, "00000000"),
         {}, "eth1", kReachable},
        {"hostile interface name", kRouteHeader + route("..", "00000000", 3, 0, "00000000"), {}, std::nullopt,
         kReachable},
        {"header only", kRouteHeader, {}, std::nullopt, 0u},
    };
    for (const auto& c : cases) {
        Tree t;
        t.root.write("/proc/net/route", c.table);
        for (const auto& [path, content] : c.extra) t.root.write(path, content);
        auto p = t.platform();
        EXPECT_EQ(p.primaryInterfaceName(), c.primary) << c.name;
        EXPECT_EQ(p.reachabilityFlags("bid.example.com"), c.flagsForName) << c.name;
    }

    Tree none;
    EXPECT_EQ(none.platform().primaryInterfaceName(), std::nullopt);
    EXPECT_EQ(none.platform().reachabilityFlags("8.8.8.8"), std::nullopt) << "unreadable table: no flags";
    EXPECT_EQ(none.platform().reachabilityFlags("127.0.0.1"), kReachable) << "loopback needs no table";
}

TEST(LinuxDevice, NumericHostsUseTheMostSpecificRoute) {
    Tree t;
    // 192.168.1.0/24 on a modem, default over ethernet.
    t.root.write("/proc/net/route", kRouteHeader + route("eth0", "00000000", 3, 100, "00000000") +
                                        route("wwan0", "0001A8C0", 1, 0, "00FFFFFF"));
    auto p = t.platform();
    EXPECT_EQ(p.reachabilityFlags("192.168.1.20"), quov::platform::kReachable | quov::platform::kIsCellular);
    EXPECT_EQ(p.reachabilityFlags("8.8.8.8"), quov::platform::kReachable);
}

TEST(LinuxDevice, HardwareAddressFromSysfs) {
    struct Case {
        const char* content;
        std::optional<quov::platform::HardwareAddress> expected;
    } cases[] = {
        {"02:fc:00:00:00:01\n", quov::platform::HardwareAddress{0x02, 0xfc, 0, 0, 0, 1}},
        {"AA:BB:CC:DD:EE:FF", quov::platform::HardwareAddress{0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}},
        {"", std::nullopt},
        {"02-fc-00-00-00-01", std::nullopt},
        {"02:fc:00:00:00", std::nullopt},
        {"00:00:00:00:00:00:00:00:00:00", std::nullopt},  // an infiniband-length address
        {"g2:fc:00:00:00:01", std::nullopt},
    };
    for (const auto& c : cases) {
        Tree t;
        t.root.write("/sys/class/net/eth0/address", c.content);
        EXPECT_EQ(t.platform().hardwareAddress("eth0"), c.expected) << "'" << c.content << "'";
    }
    Tree t;
    t.root.write("/etc/address", "02:fc:00:00:00:01");
    EXPECT_EQ(t.platform().hardwareAddress("../../../etc"), std::nullopt) << "no walking out of sysfs";
    EXPECT_EQ(t.platform().hardwareAddress("missing0"), std::nullopt);
}

TEST(LinuxDevice, PreferredLanguagesFromTheLocaleEnvironment) {
    using Env = std::map<std::string, std::string>;
    using List = std::vector<std::string>;
    const std::pair<Env, List> cases[] = {
        {{{"LANG", "en_US.UTF-8"}}, {"en-US"}},
        {{{"LANG", "de_DE@euro"}}, {"de-DE"}},
        {{{"LANG", "pt_br.utf8"}}, {"pt-BR"}},
        {{{"LANG", "es_419.UTF-8"}}, {"es-419"}},
        {{{"LANG", "fr"}}, {"fr"}},
        {{{"LC_ALL", "ja_JP.UTF-8"}, {"LC_MESSAGES", "ko_KR"}, {"LANG", "en_US"}}, {"ja-JP"}},
        {{{"LC_ALL", ""}, {"LC_MESSAGES", "ko_KR"}, {"LANG", "en_US"}}, {"ko-KR"}},
        {{{"LANGUAGE", "fr_CA:fr:en"}, {"LANG", "fr_CA.UTF-8"}}, {"fr-CA", "fr", "en"}},
        {{{"LANGUAGE", "::zz_!!:de"}, {"LANG", "C"}}, {"de"}},
        {{{"LANG", "C"}}, {"en"}},
        {{{"LANG", "C.UTF-8"}}, {"en"}},
        {{{"LC_ALL", "POSIX"}}, {"en"}},
        {{}, {"en"}},
        {{{"LANG", "garbage value!"}}, {"en"}},
        {{{"LANG", "en_USA"}}, {"en"}},
    };
    for (const auto& [env, expected] : cases) {
        Tree t;
        t.environment = env;
        EXPECT_EQ(t.platform().preferredLanguages(), expected) << (env.empty() ? "(none)" : env.begin()->second);
    }
}

TEST(LinuxDevice, BatteryFromPowerSupplies) {
    struct Supply {
        std::string name, type, capacity, status, scope;
    };
    struct Case {
        const char* name;
        std::vector<Supply> supplies;
        std::optional<std::int32_t> capacity;
        int state;
    } cases[] = {
        {"no power supplies", {}, std::nullopt, 0},
        {"mains only", {{"AC", "Mains", "", "", ""}}, std::nullopt, 0},
        {"discharging", {{"AC", "Mains", "", "", ""}, {"BAT0", "Battery", "57", "Discharging", ""}}, 57, 1},
        {"not charging", {{"BAT0", "Battery", "80\n", "Not charging\n", ""}}, 80, 1},
        {"charging", {{"BAT0", "Battery", "12", "Charging", ""}}, 12, 2},
        {"full", {{"BAT0", "Battery", "100", "Full", ""}}, 100, 3},
        {"unknown status", {{"BAT0", "Battery", "50", "Unknown", ""}}, 50, 0},
        {"odd capacity", {{"BAT0", "Battery", "abc", "Charging", ""}}, std::nullopt, 2},
        {"huge capacity", {{"BAT0", "Battery", "99999999999", "Full", ""}}, std::nullopt, 3},
        {"over 100 passes through", {{"BAT0", "Battery", "150", "Full", ""}}, 150, 3},
        {"peripheral skipped",
         {{"hidpp_battery_0", "Battery", "5", "Discharging", "Device"}, {"BAT1", "Battery", "70", "Full", ""}},
         70, 3},
        {"first in name order", {{"BAT1", "Battery", "20", "Charging", ""}, {"BAT0", "Battery", "90", "Full", ""}},
         90, 3},
    };
    for (const auto& c : cases) {
        Tree t;
        t.root.write("/sys/class/power_supply/.keep", "");
        for (const auto& s : c.supplies) {
            const std::string base = "/sys/class/power_supply/" + s.name + "/";
            t.root.write(base + "type", s.type + "\n");
            if (!s.capacity.empty()) t.root.write(base + "capacity", s.capacity);
            if (!s.status.empty()) t.root.write(base + "status", s.status);
            if (!s.scope.empty()) t.root.write(base + "scope", s.scope);
        }
        auto p = t.platform();
        EXPECT_EQ(p.batteryCapacity(), c.capacity) << c.name;
        EXPECT_EQ(p.batteryState(), c.state) << c.name;
    }
}

TEST(LinuxDevice, HostAndToolkitAnswers) {
    Tree t;
    auto p = t.platform();
    EXPECT_EQ(p.advertisingIdentifier(), "00000000-0000-0000-0000-000000000000");
    EXPECT_FALSE(p.advertisingTrackingEnabled());
    p.setAdvertisingIdentifier("6D92078A-8246-4BA4-AE5B-76104861E7DC", true);
    EXPECT_EQ(p.advertisingIdentifier(), "6D92078A-8246-4BA4-AE5B-76104861E7DC");
    EXPECT_TRUE(p.advertisingTrackingEnabled());
    p.setAdvertisingIdentifier(std::nullopt, true);
    EXPECT_FALSE(p.advertisingTrackingEnabled()) << "no identifier, no tracking";

    EXPECT_EQ(p.carrierName(), std::nullopt);
    p.setCarrierName("Carrier");
    EXPECT_EQ(p.carrierName(), std::optional<std::string>("Carrier"));

    auto bundle = p.bundleInfo();
    EXPECT_FALSE(bundle["CFBundleName"].empty()) << "the executable's name by default";
    EXPECT_EQ(bundle.count("CFBundleShortVersionString"), 0u) << "no invented version";
    p.setBundleInfo({{"CFBundleName", "Host"}, {"CFBundleShortVersionString", "3.0"}});
    EXPECT_EQ(p.bundleInfo()["CFBundleName"], "Host");
    EXPECT_EQ(p.bundleInfo()["CFBundleExecutable"], bundle["CFBundleExecutable"]) << "defaults stay underneath";

    EXPECT_EQ(p.screenCurrentModeSize(), (quov::Size{1280, 720}));
    p.setMainScreen({{390, 844}, 3.0, std::nullopt});
    EXPECT_EQ(p.screenBounds(), (quov::Size{390, 844}));
    EXPECT_EQ(p.screenCurrentModeSize(), (quov::Size{1170, 2532})) << "bounds times scale when not given";
    p.setScreenProvider([] { return quov::MainScreen{{800, 600}, 2.0, quov::Size{1, 2}}; });
    EXPECT_EQ(p.screenScale(), 2.0) << "the toolkit's screen wins";
    EXPECT_EQ(p.screenCurrentModeSize(), (quov::Size{1, 2}));

    EXPECT_EQ(p.applicationState(), 0);
    p.setApplicationState(quov::ApplicationState::Background);
    EXPECT_EQ(p.applicationState(), 2);
    p.setApplicationStateProvider([] { return quov::ApplicationState::Inactive; });
    EXPECT_EQ(p.applicationState(), 1);
    p.setApplicationStateProvider({});
    EXPECT_EQ(p.applicationState(), 2);
}

TEST(LinuxDevice, RecordBuildsOnThisMachine) {
    // The process's platform, configured as the test binary's host configured it.
    auto r = quov::QVDeviceInfo::deviceInfo();
    ASSERT_EQ(r.size(), 16u);
    for (const auto& [key, value] : r.entries()) {
        EXPECT_EQ(std::holds_alternative<double>(value), key == "BatteryLevel") << key;
        if (auto* s = std::get_if<std::string>(&value)) {
            EXPECT_FALSE(s->empty()) << key;
        }
    }
    EXPECT_EQ(r.text("DeviceOs"), std::optional<std::string>("Linux"));
    EXPECT_EQ(r.text("DeviceType"), r.text("DeviceModelDetail"));
    double level = *r.number("BatteryLevel");
    EXPECT_TRUE(level == 0.0 || (level >= 1.0 && level <= 100.0 && level == static_cast<int>(level))) << level;
    const std::string mac = *r.text("DeviceMac");
    EXPECT_TRUE(std::regex_match(mac, std::regex("[0-9A-F]{32}|000000000000|([0-9A-F]{2}:){5}[0-9A-F]{2}")))
        << mac;
}

TEST(LinuxDevice, VendorIdentifierOnThisMachineIsStableAndPerApp) {
    LinuxDevicePlatform p;
    p.setBundleInfo({{"CFBundleIdentifier", "com.example.one"}});
    auto one = p.identifierForVendor();
    if (!one) GTEST_SKIP() << "this machine has no readable machine id";
    EXPECT_EQ(p.identifierForVendor(), one);
    p.setBundleInfo({{"CFBundleIdentifier", "com.example.two"}});
    EXPECT_NE(p.identifierForVendor(), one);
}
