// The selection rules of QVDeviceInfo, driven through the scriptable platform.
#include <quov/QVDeviceInfo.h>
#include <quov/QVRequestHelper.h>
#include <quov/QuovAd.h>

#include "tests/support/fake_device.h"
#include "platform/Context.h"
#include "support/LogCapture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using quov::QuovAd;
using quov::QVDeviceInfo;
using quov::platform::FakeDevicePlatform;
using quov::platform::Context;
using ScopedDevicePlatform = quov::platform::Context::ScopedDevicePlatform;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

const char* const kNoIP = "an error occurred when obtaining ip address";

struct FakeDevice : ::testing::Test {
    std::shared_ptr<FakeDevicePlatform> fake = std::make_shared<FakeDevicePlatform>();
    ScopedDevicePlatform scope{Context::shared(), fake};
};

}  // namespace

TEST_F(FakeDevice, DisplayMetricsFollowIdiomAndScaleOnly) {
    // Tablets (any idiom but phone): the scale-2.0 one gets the smaller text; others the scale-based one.
    const std::tuple<std::optional<int>, bool, double, const char*> cases[] = {
        {1, true, 2.0, "1024*768"}, {1, false, 2.0, "2048*1536"}, {5, true, 2.0, "1024*768"},
        {0, true, 2.0, "960*640"},  {0, true, 3.0, "480*320"},    {0, false, 2.0, "480*320"},
        {std::nullopt, true, 2.0, "960*640"},
    };
    for (const auto& [idiom, displayLink, scale, expected] : cases) {
        fake->idiom = idiom;
        fake->displayLink = displayLink;
        fake->scale = scale;
        EXPECT_EQ(QVDeviceInfo::getDeviceDisplayMetrics(), expected) << idiom.value_or(-1) << " @" << scale;
    }
}

TEST_F(FakeDevice, MacAddressVersionTable) {
    const std::string hw = "02:0A:FF:00:10:C3", vendor = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
    const std::string bare = "E621E1F8C36C495A93FC0C247A3E6E5F", zeros = "000000000000";
    // Version, whether an interface has a readable hardware address, vendor identifier, answer.
    const std::tuple<const char*, bool, std::optional<std::string>, std::string> cases[] = {
        {"13", true, vendor, bare},   {"13.7", true, std::nullopt, zeros}, {"13", true, "", zeros},
        {"6.1.0-18-amd64", true, vendor, hw}, {"6", false, vendor, bare}, {"6", false, std::nullopt, zeros},
        {"5.1", true, vendor, hw},    {"5", false, vendor, zeros},
        {"rolling", true, vendor, hw},  // no leading number reads as 0
    };
    fake->hwAddress = quov::platform::HardwareAddress{0x02, 0x0a, 0xff, 0x00, 0x10, 0xc3};
    for (const auto& [version, hasAddress, vendorId, expected] : cases) {
        fake->osVersion = version;
        fake->primaryInterface = hasAddress ? std::optional<std::string>("en0") : std::nullopt;
        fake->vendorId = vendorId;
        EXPECT_EQ(QVDeviceInfo::getMacAddress(), expected) << "version '" << version << "'";
    }
}

TEST_F(FakeDevice, IPWalkKeepsTheLastIPv4OfThePrimaryInterface) {
    using P = FakeDevicePlatform;
    const quov::platform::InterfaceAddress v6{"en0", 10, 0};
    // Primary interface, address list, the address found ("": none).
    const std::tuple<std::optional<std::string>, std::optional<std::vector<quov::platform::InterfaceAddress>>,
                     std::string> cases[] = {
        {"en0", std::vector{P::ipv4("en0", "10.0.0.5"), P::ipv4("en0", "10.0.0.9")}, "10.0.0.9"},
        {"en0", std::vector{P::ipv4("en0", "10.0.0.5"), P::ipv4("en1", "10.1.1.1"), v6}, "10.0.0.5"},
        {"en0", std::vector{v6}, ""},
        {"en0", std::nullopt, ""},
    };
    for (const auto& [primary, list, address] : cases) {
        fake->primaryInterface = primary;
        fake->addresses = list;
        EXPECT_EQ(QVDeviceInfo::getDeviceIPAdress(), address.empty() ? kNoIP : address);
        EXPECT_EQ(quov::QVRequestHelper::getIPAddress(), address);
    }
}

TEST_F(FakeDevice, BatteryLevelContract) {
    const std::tuple<int, std::optional<std::int32_t>, double> cases[] = {
        {0, 57, 57.0}, {1, 100, 100.0}, {0, 1, 1.0}, {0, 0, 0.0},         {0, 101, 0.0},
        {0, -5, 0.0},  {2, 57, 0.0},    {3, 57, 0.0}, {0, std::nullopt, 0.0}};  // 2, 3: in the background
    for (const auto& [state, capacity, expected] : cases) {
        fake->appState = state;
        fake->capacity = capacity;
        EXPECT_EQ(QVDeviceInfo::getBatteryLevel(), expected) << "state " << state << ", " << capacity.value_or(-1);
    }
    const std::optional<std::string> states[] = {"UnKnow", "Unplugged", "Charging", "Full", std::nullopt};
    for (int state = 0; state < 5; ++state) {
        fake->battery = state;
        EXPECT_EQ(QVDeviceInfo::getBatteryState(), states[state]) << state;
    }
}

// The record is logged as one line of JSON, whatever its values hold.
TEST_F(FakeDevice, SetupLogsTheSixteenKeyRecordAfterInitAndFailsWithoutAShortVersion) {
    fake->bundle["CFBundleName"] = "line\nbreak \"quoted\" bad \xff utf8";
    fake->machine = "x86_64";
    fake->addresses = std::vector{FakeDevicePlatform::ipv4("en0", "10.0.0.9")};
    QuovAd ad;
    quov::test::LogCapture log;
    ad.setupWithAppId(std::string("app"), std::string("key"));
    const auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "Init Finished, AppId: app AppKey key");
    ASSERT_EQ(lines[1].rfind("deviceInfo ", 0), 0u) << lines[1];
    const auto record = nlohmann::ordered_json::parse(lines[1].substr(11));
    std::vector<std::string> keys;
    for (const auto& [key, value] : record.items()) {
        keys.push_back(key);
        EXPECT_EQ(value.is_string(), key != "BatteryLevel") << key;
    }
    EXPECT_EQ(keys, (std::vector<std::string>{"IDFA", "DeviceOs", "DeviceOsVersion", "DeviceType", "Langauge",
                                               "DeviceMac", "DeviceModel", "DeviceModelDetail", "DeviceMetrics",
                                               "CPUArchitecture", "BundleID", "AppVersion", "AppName", "IP",
                                               "BatteryLevel", "BatteryState"}));
    using Json = nlohmann::ordered_json;  // clang finds comparing it with plain json ambiguous
    const std::pair<const char*, Json> values[] = {{"BatteryLevel", 80.0}, {"DeviceType", "Simulator"},
        {"DeviceMac", "E621E1F8C36C495A93FC0C247A3E6E5F"}, {"IP", "10.0.0.9"}, {"AppVersion", "1.2.3"},
        {"AppName", "line\nbreak \"quoted\" bad \uFFFD utf8"}};
    for (const auto& [key, value] : values) EXPECT_EQ(record[key], value) << key;

    fake->bundle.erase("CFBundleShortVersionString");
    log.clear();
    EXPECT_THAT([&] { ad.setupWithAppId(std::string("app2"), std::string("key")); },
                ThrowsMessage<std::invalid_argument>(HasSubstr("CFBundleShortVersionString")));
    EXPECT_EQ(ad.AppId(), std::optional<std::string>("app2")) << "credentials are stored before the record";
    EXPECT_TRUE(log.linesStartingWith("deviceInfo").empty());
    fake->bundle["CFBundleShortVersionString"] = "1.2.3";
    fake->languages.clear();
    EXPECT_THROW(QVDeviceInfo::deviceInfo(), std::out_of_range);
}
