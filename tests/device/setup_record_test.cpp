// Setup logs the device record right after its "Init Finished" line.
#include <quov/QuovAd.h>

#include "platform/fake_device.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

using quov::QuovAd;
using quov::platform::FakeDevicePlatform;
using quov::platform::ScopedDevicePlatform;

TEST(SetupRecord, SetupLogsTheRecordAfterInit) {
    auto fake = std::make_shared<FakeDevicePlatform>();
    ScopedDevicePlatform scope(fake);
    QuovAd ad;
    quov::test::LogCapture log;
    ad.setupWithAppId(std::string("app"), std::string("key"));
    auto lines = log.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "Init Finished, AppId: app AppKey key");
    const std::string prefix = "deviceInfo ";
    ASSERT_EQ(lines[1].rfind(prefix, 0), 0u) << lines[1];
    auto record = nlohmann::ordered_json::parse(lines[1].substr(prefix.size()));
    EXPECT_EQ(record.size(), 16u);
    EXPECT_EQ(record["AppVersion"], "1.2.3");
    EXPECT_EQ(record["BatteryLevel"], 80.0);
}

TEST(SetupRecord, MissingShortVersionMakesSetupThrowNamingTheKey) {
    auto fake = std::make_shared<FakeDevicePlatform>();
    fake->bundle.erase("CFBundleShortVersionString");
    ScopedDevicePlatform scope(fake);
    QuovAd ad;
    quov::test::LogCapture log;
    try {
        ad.setupWithAppId(std::string("app"), std::string("key"));
        FAIL() << "setup must not log a record without \"AppVersion\"";
    } catch (const std::invalid_argument& e) {
        EXPECT_NE(std::string(e.what()).find("CFBundleShortVersionString"), std::string::npos) << e.what();
    }
    EXPECT_EQ(ad.AppId(), std::optional<std::string>("app")) << "credentials are stored before the record";
    EXPECT_EQ(log.linesStartingWith("Init Finished").size(), 1u);
    EXPECT_TRUE(log.linesStartingWith("deviceInfo").empty());
}
