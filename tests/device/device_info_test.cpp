// The selection rules of QVDeviceInfo, driven through the scriptable platform.
#include <quov/QVDeviceInfo.h>
#include <quov/QVRequestHelper.h>

#include "platform/fake_device.h"
#include "platform/linux_device.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <memory>

using quov::DeviceInfoRecord;
using quov::QVDeviceInfo;
using quov::platform::FakeDevicePlatform;
using quov::platform::ScopedDevicePlatform;

namespace {

// A fresh fake installed for the test's lifetime.
struct FakeDevice : ::testing::Test {
    std::shared_ptr<FakeDevicePlatform> fake = std::make_shared<FakeDevicePlatform>();
    ScopedDevicePlatform scope{fake};
};

const char* const kNoIP = "an error occurred when obtaining ip address";

}  // namespace

// ---- model and screen naming ----

TEST_F(FakeDevice, ModelTableNamesEveryIdentifier) {
    // One line per table row; several identifiers share a name where the row has them.
    const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
        {{"iPhone1,1"}, "iPhone 1G"},
        {{"iPhone1,2"}, "iPhone 3G"},
        {{"iPhone2,1"}, "iPhone 3GS"},
        {{"iPhone3,1"}, "iPhone 4"},
        {{"iPhone3,2"}, "Verizon iPhone 4"},
        {{"iPhone4,1"}, "iPhone 4S"},
        {{"iPhone5,1", "iPhone5,2"}, "iPhone 5"},
        {{"iPhone5,3", "iPhone5,4"}, "iPhone 5C"},
        {{"iPhone6,1", "iPhone6,2"}, "iPhone 5S"},
        {{"iPhone7,1"}, "iPhone 6 Plus"},
        {{"iPhone7,2"}, "iPhone 6"},
        {{"iPhone8,1"}, "iPhone 6s"},
        {{"iPhone8,2"}, "iPhone 6s Plus"},
        {{"iPhone8,4"}, "iPhone SE"},
        {{"iPhone9,1"}, "iPhone 7"},
        {{"iPhone9,2"}, "iPhone 7 Plus"},
        {{"iPhone9,3"}, "iPhone 7"},
        {{"iPhone9,4"}, "iPhone 7 Plus"},
        {{"iPhone10,1", "iPhone10,2", "iPhone10,4", "iPhone10,5"}, "iPhone 8"},
        {{"iPhone10,3", "iPhone10,6"}, "iPhone X"},
        {{"iPhone11,8"}, "iPhone XR"},
        {{"iPhone11,2"}, "iPhone XS"},
        {{"iPhone11,4", "iPhone11,6"}, "iPhone XS Max"},
        {{"iPhone12,1"}, "iPhone 11"},
        {{"iPhone12,3"}, "iPhone 11 Pro"},
        {{"iPhone12,5"}, "iPhone 11 Pro Max"},
        {{"iPhone12,8"}, "iPhone SE (2nd generation)"},
        {{"iPad1,1"}, "iPad"},
        {{"iPad2,1"}, "iPad 2 (WiFi)"},
        {{"iPad2,2"}, "iPad 2 (GSM)"},
        {{"iPad2,3"}, "iPad 2 (CDMA)"},
        {{"iPad2,4"}, "iPad 2 (32nm)"},
        {{"iPad2,5"}, "iPad mini (WiFi)"},
        {{"iPad2,6"}, "iPad mini (GSM)"},
        {{"iPad2,7"}, "iPad mini (CDMA)"},
        {{"iPad4,4", "iPad4,5", "iPad4,6"}, "iPad mini 2"},
        {{"iPad4,7", "iPad4,8"}, "iPad mini 3"},
        {{"iPad5,1", "iPad5,2"}, "iPad mini 4"},
        {{"iPad3,1"}, "iPad 3(WiFi)"},
        {{"iPad3,2"}, "iPad 3(CDMA)"},
        {{"iPad3,3"}, "iPad 3(4G)"},
        {{"iPad3,4"}, "iPad 4 (WiFi)"},
        {{"iPad3,5"}, "iPad 4 (4G)"},
        {{"iPad3,6"}, "iPad 4 (CDMA)"},
        {{"iPad4,1", "iPad4,2", "iPad4,3"}, "iPad Air"},
        {{"iPad5,3", "iPad5,4"}, "iPad Air 2"},
        {{"iPad6,3", "iPad6,4"}, "iPad Pro (9.7-inch)"},
        {{"iPad6,7", "iPad6,8"}, "iPad Pro (12.9-inch)"},
        {{"iPad6,11", "iPad6,12"}, "iPad (5th generation)"},
        {{"iPad7,1", "iPad7,2"}, "iPad Pro (12.9-inch, 2nd generation)"},
        {{"iPad7,3", "iPad7,4"}, "iPad Pro (10.5-inch)"},
        {{"iPad7,5", "iPad7,6"}, "iPad (6th generation)"},
        {{"i386", "x86_64"}, "Simulator"},
        // Not in the table: returned as they are (newer, lower-case, padded, empty, Linux).
        {{"iPhone13,2"}, "iPhone13,2"},
        {{"iphone1,1"}, "iphone1,1"},
        {{"iPhone1,1 "}, "iPhone1,1 "},
        {{""}, ""},
        {{"aarch64"}, "aarch64"},
    };
    std::size_t identifiers = 0;
    for (const auto& [ids, name] : rows) {
        for (const auto& id : ids) {
            fake->machine = id;
            EXPECT_EQ(QVDeviceInfo::deviceTypeDetail(), name) << id;
            EXPECT_EQ(QVDeviceInfo::cpuArchitectures(), id) << "always the raw identifier";
            ++identifiers;
        }
    }
    EXPECT_EQ(identifiers, 75u + 5u) << "the 53 rows hold 75 identifiers";
}

TEST_F(FakeDevice, IPhoneXByIdentifierOnDevicesAndByBoundsOnSimulators) {
    struct Case {
        const char* machine;
        quov::Size bounds;
        bool expected;
    } cases[] = {
        {"iPhone10,3", {1, 1}, true},
        {"iPhone10,6", {1, 1}, true},
        {"iPhone11,2", {375, 812}, false},  // a device: bounds are not looked at
        {"iPhone10,1", {812, 375}, false},
        {"x86_64", {375, 812}, true},
        {"i386", {812, 375}, true},
        {"x86_64", {375, 667}, false},
        {"x86_64", {375.5, 812}, false},
        {"aarch64", {375, 812}, false},
    };
    for (const auto& c : cases) {
        fake->machine = c.machine;
        fake->bounds = c.bounds;
        EXPECT_EQ(QVDeviceInfo::iPhoneX(), c.expected) << c.machine << " " << c.bounds.width;
    }
}

TEST_F(FakeDevice, DisplayMetricsFollowIdiomAndScaleOnly) {
    struct Case {
        const char* name;
        std::optional<int> idiom;
        bool displayLink;
        double scale;
        const char* machine;
        quov::Size mode;
        const char* expected;
    } cases[] = {
        // Tablets: the scale-2.0 one gets the smaller text.
        {"tablet@2", 1, true, 2.0, "iPad7,5", {1536, 2048}, "1024*768"},
        {"tablet@1", 1, true, 1.0, "iPad2,1", {768, 1024}, "2048*1536"},
        {"tablet@3", 1, true, 3.0, "iPad7,5", {1, 1}, "2048*1536"},
        {"tablet without display link", 1, false, 2.0, "iPad7,5", {1, 1}, "2048*1536"},
        {"desktop idiom counts as a tablet", 5, true, 2.0, "x86_64", {1, 1}, "1024*768"},
        // Phones: every candidate is dropped, the scale decides.
        {"phone@2", 0, true, 2.0, "iPhone12,1", {828, 1792}, "960*640"},
        {"phone@3", 0, true, 3.0, "iPhone12,1", {1, 1}, "480*320"},
        {"XR@2", 0, true, 2.0, "iPhone11,8", {828, 1792}, "960*640"},
        {"XS Max@3", 0, true, 3.0, "iPhone11,6", {1242, 2688}, "480*320"},
        {"X@3", 0, true, 3.0, "iPhone10,3", {1125, 2436}, "480*320"},
        {"640x1136 mode@3", 0, true, 3.0, "iPhone6,1", {640, 1136}, "480*320"},
        {"640x1136 mode@2", 0, true, 2.0, "iPhone6,1", {640, 1136}, "960*640"},
        {"phone without display link", 0, false, 2.0, "iPhone6,1", {1, 1}, "480*320"},
        {"no idiom answer takes the phone branch", std::nullopt, true, 2.0, "iPad7,5", {1, 1}, "960*640"},
        {"no idiom answer, scale 1", std::nullopt, true, 1.0, "iPad7,5", {1, 1}, "480*320"},
    };
    for (const auto& c : cases) {
        fake->idiom = c.idiom;
        fake->displayLink = c.displayLink;
        fake->scale = c.scale;
        fake->machine = c.machine;
        fake->currentMode = c.mode;
        EXPECT_EQ(QVDeviceInfo::getDeviceDisplayMetrics(), c.expected) << c.name;
    }
}

TEST_F(FakeDevice, PhoneMetricsStillWorkOutTheDroppedCandidates) {
    fake->idiom = 0;
    fake->machine = "iPhone12,1";
    fake->bounds = {1, 1};
    QVDeviceInfo::getDeviceDisplayMetrics();
    // iPhoneX reads the identifier once, then deviceTypeDetail three times.
    EXPECT_EQ(fake->callCount("machineIdentifier"), 4);
    EXPECT_EQ(fake->callCount("screensAnswerCurrentMode"), 1);

    fake->calls.clear();
    fake->idiom = 1;
    QVDeviceInfo::getDeviceDisplayMetrics();
    EXPECT_EQ(fake->callCount("machineIdentifier"), 0) << "tablets skip the candidates";

    fake->calls.clear();
    fake->idiom = 0;
    fake->currentModeAnswered = false;
    QVDeviceInfo::getDeviceDisplayMetrics();
    EXPECT_EQ(fake->callCount("screenCurrentModeSize"), 0) << "the mode is read only when answered";
}

// ---- network identity ----

TEST_F(FakeDevice, MacAddressVersionTable) {
    const quov::platform::HardwareAddress hw{0x02, 0x0a, 0xff, 0x00, 0x10, 0xc3};
    const std::string hwText = "02:0A:FF:00:10:C3";
    const std::string vendor = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
    const std::string vendorBare = "E621E1F8C36C495A93FC0C247A3E6E5F";
    struct Case {
        const char* version;
        bool hasInterface;
        bool hasAddress;
        std::optional<std::string> vendorId;
        std::string expected;
    } cases[] = {
        {"13", true, true, vendor, vendorBare},
        {"13.7", true, true, vendor, vendorBare},
        {"13", true, true, std::nullopt, "000000000000"},
        {"13", true, true, std::string(""), "000000000000"},
        {"7.0", false, false, vendor, vendorBare},
        {"6", true, true, vendor, hwText},
        {"6.1.0-18-amd64", true, true, vendor, hwText},  // a kernel release as the version
        {"6", false, false, vendor, vendorBare},
        {"6", true, false, std::nullopt, "000000000000"},
        {"5.1", true, true, vendor, hwText},
        {"5", false, false, vendor, "000000000000"},
        {"", true, true, vendor, hwText},        // no leading number reads as 0
        {"rolling", false, false, vendor, "000000000000"},
        {"-3", true, true, vendor, hwText},
        {" 12", true, true, vendor, vendorBare},
        {"99999999999", true, true, vendor, vendorBare},  // saturates, stays large
    };
    quov::test::LogCapture log;
    for (const auto& c : cases) {
        fake->osVersion = c.version;
        fake->primaryInterface = c.hasInterface ? std::optional<std::string>("en0") : std::nullopt;
        fake->hwAddress = c.hasAddress ? std::optional(hw) : std::nullopt;
        fake->vendorId = c.vendorId;
        EXPECT_EQ(QVDeviceInfo::getMacAddress(), c.expected) << "version '" << c.version << "'";
    }
    EXPECT_TRUE(log.lines().empty()) << "hardware-address failures stay silent";
}

TEST_F(FakeDevice, MacAddressReadsTheHardwareAddressEvenWhenIgnored) {
    fake->osVersion = "13";
    QVDeviceInfo::getMacAddress();
    EXPECT_EQ(fake->callCount("hardwareAddress"), 1);
    EXPECT_EQ(fake->callCount("identifierForVendor"), 1);
}

TEST_F(FakeDevice, IPWalkKeepsTheLastIPv4OfThePrimaryInterface) {
    using P = FakeDevicePlatform;
    quov::platform::InterfaceAddress v6{"en0", 10, 0};
    struct Case {
        const char* name;
        std::optional<std::string> primary;
        std::optional<std::vector<quov::platform::InterfaceAddress>> list;
        std::string device;
        std::string helper;
    } cases[] = {
        {"last wins", "en0", std::vector{P::ipv4("en0", "10.0.0.5"), P::ipv4("en0", "10.0.0.9")}, "10.0.0.9",
         "10.0.0.9"},
        {"other interfaces ignored", "en0",
         std::vector{P::ipv4("en0", "10.0.0.5"), P::ipv4("lo", "127.0.0.1"), P::ipv4("en1", "10.1.1.1")},
         "10.0.0.5", "10.0.0.5"},
        {"IPv6 only", "en0", std::vector{v6}, kNoIP, ""},
        {"IPv6 after IPv4 does not reset", "en0", std::vector{P::ipv4("en0", "192.0.2.7"), v6}, "192.0.2.7",
         "192.0.2.7"},
        {"empty list", "en0", std::vector<quov::platform::InterfaceAddress>{}, kNoIP, ""},
        {"list unavailable", "en0", std::nullopt, kNoIP, ""},
        {"no primary interface", std::nullopt, std::vector{P::ipv4("en0", "10.0.0.5")}, kNoIP, ""},
        {"name match is exact", "eth0", std::vector{P::ipv4("eth0.1", "10.0.0.5")}, kNoIP, ""},
    };
    for (const auto& c : cases) {
        fake->primaryInterface = c.primary;
        fake->addresses = c.list;
        EXPECT_EQ(QVDeviceInfo::getDeviceIPAdress(), c.device) << c.name;
        EXPECT_EQ(quov::QVRequestHelper::getIPAddress(), c.helper) << c.name;
    }
}

TEST_F(FakeDevice, AdvertisingIdentifierIsPassedThroughAndUUIDsAreFresh) {
    fake->idfa = "00000000-0000-0000-0000-000000000000";
    EXPECT_EQ(QVDeviceInfo::getIDFA(), "00000000-0000-0000-0000-000000000000");
    fake->idfa = "whatever the platform says";
    EXPECT_EQ(QVDeviceInfo::getIDFA(), "whatever the platform says");

    const std::string a = QVDeviceInfo::originUUID(), b = QVDeviceInfo::originUUID();
    EXPECT_NE(a, b);
    for (const auto& u : {a, b}) {
        ASSERT_EQ(u.size(), 36u);
        for (std::size_t i = 0; i < u.size(); ++i) {
            if (i == 8 || i == 13 || i == 18 || i == 23) EXPECT_EQ(u[i], '-') << u;
            else EXPECT_TRUE(std::isdigit(u[i]) || (u[i] >= 'A' && u[i] <= 'F')) << u;
        }
    }
}

// ---- battery, language, bundle ----

TEST_F(FakeDevice, BatteryLevelContract) {
    struct Case {
        int state;
        std::optional<std::int32_t> capacity;
        double expected;
    } cases[] = {
        {0, 57, 57.0},   {1, 57, 57.0},  {2, 57, 0.0},   {3, 57, 0.0},   {-1, 57, 0.0},
        {0, 100, 100.0}, {0, 1, 1.0},    {0, 0, 0.0},    {0, 101, 0.0},  {0, -5, 0.0},
        {0, INT32_MIN, 0.0}, {0, INT32_MAX, 0.0}, {0, std::nullopt, 0.0},
    };
    for (const auto& c : cases) {
        fake->appState = c.state;
        fake->capacity = c.capacity;
        fake->calls.clear();
        EXPECT_EQ(QVDeviceInfo::getBatteryLevel(), c.expected)
            << "state " << c.state << " capacity " << c.capacity.value_or(-999);
        if (c.state != 0 && c.state != 1) {
            EXPECT_EQ(fake->callCount("batteryCapacity"), 0) << "the background never reads the battery";
        }
    }
}

TEST_F(FakeDevice, BatteryStateTexts) {
    const std::pair<int, std::optional<std::string>> cases[] = {
        {0, "UnKnow"}, {1, "Unplugged"}, {2, "Charging"}, {3, "Full"}, {4, std::nullopt}, {-1, std::nullopt}};
    for (const auto& [state, text] : cases) {
        fake->battery = state;
        EXPECT_EQ(QVDeviceInfo::getBatteryState(), text) << state;
    }
}

TEST_F(FakeDevice, LanguageIsTheFirstPreferenceAndAnEmptyListFails) {
    fake->languages = {"zh-Hans-CN", "en"};
    EXPECT_EQ(QVDeviceInfo::getDeviceLanguage(), "zh-Hans-CN");
    fake->languages = {};
    EXPECT_THROW(QVDeviceInfo::getDeviceLanguage(), std::out_of_range);
}

TEST_F(FakeDevice, BundleOperations) {
    fake->bundle = {{"CFBundleName", "Game"}};
    EXPECT_EQ(QVDeviceInfo::getApplicationName(), "Game");
    EXPECT_EQ(QVDeviceInfo::getLocalAppVersion(), std::nullopt);
    EXPECT_EQ(QVDeviceInfo::getBundleID(), std::nullopt);

    fake->bundle = {{"CFBundleShortVersionString", "2.1"}, {"CFBundleIdentifier", ""}};
    EXPECT_EQ(QVDeviceInfo::getLocalAppVersion(), std::optional<std::string>("2.1"));
    EXPECT_EQ(QVDeviceInfo::getBundleID(), std::optional<std::string>("")) << "present but empty is a value";
    try {
        QVDeviceInfo::getApplicationName();
        FAIL() << "a missing CFBundleName must throw";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("CFBundleName"), std::string::npos) << e.what();
    }
}

TEST_F(FakeDevice, AppVersionInfoStopsAtTheFirstMissingValue) {
    using Map = std::map<std::string, std::string>;
    const std::pair<Map, Map> cases[] = {
        {{}, {}},
        {{{"CFBundleVersion", "42"}}, {}},
        {{{"CFBundleDisplayName", "My Game"}}, {{"VersionName", "My Game"}}},
        {{{"CFBundleDisplayName", "My Game"}, {"CFBundleVersion", "42"}},
         {{"VersionName", "My Game"}, {"VersionCode", "42"}, {"VersionType", ""}, {"VersionSource", ""}}},
    };
    for (const auto& [bundle, expected] : cases) {
        fake->bundle = bundle;
        EXPECT_EQ(QVDeviceInfo::appVersionInfo(), expected);
    }
}

// ---- the record ----

TEST_F(FakeDevice, RecordHasTheSixteenKeysInOrderWithTheirTypes) {
    fake->machine = "x86_64";
    fake->osVersion = "13.4";
    fake->modelWord = "iPhone";
    fake->capacity = 80;
    fake->addresses = std::vector{FakeDevicePlatform::ipv4("en0", "10.0.0.9")};
    DeviceInfoRecord r = QVDeviceInfo::deviceInfo();
    EXPECT_EQ(r.keys(), (std::vector<std::string>{"IDFA", "DeviceOs", "DeviceOsVersion", "DeviceType", "Langauge",
                                                  "DeviceMac", "DeviceModel", "DeviceModelDetail", "DeviceMetrics",
                                                  "CPUArchitecture", "BundleID", "AppVersion", "AppName", "IP",
                                                  "BatteryLevel", "BatteryState"}));
    for (const auto& [key, value] : r.entries())
        EXPECT_EQ(std::holds_alternative<double>(value), key == "BatteryLevel") << key;
    EXPECT_EQ(r.number("BatteryLevel"), 80.0);
    EXPECT_EQ(r.text("DeviceType"), std::optional<std::string>("Simulator"));
    EXPECT_EQ(r.text("DeviceModelDetail"), r.text("DeviceType"));
    EXPECT_EQ(r.text("CPUArchitecture"), std::optional<std::string>("x86_64"));
    EXPECT_EQ(r.text("DeviceOsVersion"), std::optional<std::string>("13.4"));
    EXPECT_EQ(r.text("DeviceModel"), std::optional<std::string>("iPhone"));
    EXPECT_EQ(r.text("DeviceMac"), std::optional<std::string>("E621E1F8C36C495A93FC0C247A3E6E5F"));
    EXPECT_EQ(r.text("IP"), std::optional<std::string>("10.0.0.9"));
    EXPECT_EQ(r.text("Langauge"), std::optional<std::string>("en-US"));
    EXPECT_EQ(r.text("BatteryState"), std::optional<std::string>("Unplugged"));
    EXPECT_EQ(r.text("AppVersion"), std::optional<std::string>("1.2.3"));
}

TEST_F(FakeDevice, RecordIsBuiltAfreshAndKeepsFallbackTexts) {
    fake->addresses = std::nullopt;
    fake->capacity = std::nullopt;
    fake->battery = 0;
    DeviceInfoRecord first = QVDeviceInfo::deviceInfo();
    EXPECT_EQ(first.text("IP"), std::optional<std::string>(kNoIP));
    EXPECT_EQ(first.number("BatteryLevel"), 0.0);
    EXPECT_EQ(first.text("BatteryState"), std::optional<std::string>("UnKnow"));

    fake->capacity = 33;
    fake->bundle["CFBundleShortVersionString"] = "9";
    DeviceInfoRecord second = QVDeviceInfo::deviceInfo();
    EXPECT_EQ(second.number("BatteryLevel"), 33.0);
    EXPECT_EQ(second.text("AppVersion"), std::optional<std::string>("9"));
}

TEST_F(FakeDevice, RecordFailsWholeOnAnAbsentValue) {
    struct Case {
        const char* name;
        std::function<void(FakeDevicePlatform&)> break_;
        std::vector<std::string> mentions;
    } cases[] = {
        {"no short version", [](auto& f) { f.bundle.erase("CFBundleShortVersionString"); },
         {"AppVersion", "CFBundleShortVersionString"}},
        {"no bundle id", [](auto& f) { f.bundle.erase("CFBundleIdentifier"); },
         {"BundleID", "CFBundleIdentifier"}},
        {"no bundle name", [](auto& f) { f.bundle.erase("CFBundleName"); }, {"CFBundleName"}},
        {"unknown battery state", [](auto& f) { f.battery = 9; }, {"BatteryState"}},
    };
    for (const auto& c : cases) {
        auto broken = std::make_shared<FakeDevicePlatform>();
        c.break_(*broken);
        ScopedDevicePlatform inner(broken);
        try {
            QVDeviceInfo::deviceInfo();
            ADD_FAILURE() << c.name << ": no exception";
        } catch (const std::invalid_argument& e) {
            for (const auto& m : c.mentions)
                EXPECT_NE(std::string(e.what()).find(m), std::string::npos) << c.name << ": " << e.what();
        }
    }
    fake->languages.clear();
    EXPECT_THROW(QVDeviceInfo::deviceInfo(), std::out_of_range);
}

// ---- the record value ----

TEST(DeviceInfoRecord, InsertKeepsOrderReplacesInPlaceAndRefusesAbsentValues) {
    DeviceInfoRecord r;
    r.insert("a", std::optional<std::string>("1"));
    r.insert("b", std::optional<double>(2.5));
    r.insert("a", std::optional<double>(3.0));
    EXPECT_EQ(r.keys(), (std::vector<std::string>{"a", "b"}));
    EXPECT_EQ(r.number("a"), 3.0);
    EXPECT_EQ(r.text("a"), std::nullopt) << "a number is not a text";
    EXPECT_EQ(r.find("missing"), nullptr);

    try {
        r.insert("AppVersion", std::optional<std::string>(), "CFBundleShortVersionString");
        FAIL();
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(),
                     "DeviceInfoRecord: absent value for key \"AppVersion\" (from \"CFBundleShortVersionString\")");
    }
    EXPECT_THROW(r.insert("n", std::optional<double>()), std::invalid_argument);
    EXPECT_EQ(r.size(), 2u) << "a failed insertion leaves the record as it was";
}

TEST(DeviceInfoRecord, DescribeIsOneParseableLineWhateverTheValues) {
    DeviceInfoRecord r;
    r.insert("Z", std::optional<std::string>("line\nbreak \"quoted\""));
    r.insert("A", std::optional<std::string>(std::string("bad \xff utf8")));
    r.insert("BatteryLevel", std::optional<double>(80.0));
    const std::string line = r.describe();
    EXPECT_EQ(line.find('\n'), std::string::npos) << line;
    auto parsed = nlohmann::ordered_json::parse(line);
    EXPECT_EQ(parsed.begin().key(), "Z") << "insertion order, not sorted";
    EXPECT_EQ(parsed["Z"], "line\nbreak \"quoted\"");
    EXPECT_TRUE(parsed["BatteryLevel"].is_number_float());
    EXPECT_EQ(parsed["BatteryLevel"].get<double>(), 80.0);
}

// ---- choosing the platform ----

TEST(DevicePlatformSelection, InstallReturnsThePreviousAndNullRestoresLinux) {
    auto fake = std::make_shared<FakeDevicePlatform>();
    auto previous = quov::platform::setDevicePlatform(fake);
    EXPECT_EQ(quov::platform::devicePlatform(), fake);
    auto back = quov::platform::setDevicePlatform(previous);
    EXPECT_EQ(back, fake);
    if (!previous) {
        EXPECT_EQ(quov::platform::devicePlatform(),
                  std::static_pointer_cast<const quov::platform::DevicePlatform>(
                      quov::platform::LinuxDevicePlatform::shared()));
    }
}
