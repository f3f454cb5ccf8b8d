#include <quov/QVBidModel.h>
#include <quov/QVRequestHelper.h>
#include <quov/QuovAd.h>

#include "support/LogCapture.h"
#include "support/NetworkScope.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace quov {
namespace {

using json = nlohmann::json;
using test::Answer;
using test::LogCapture;
using test::NetworkScope;
using test::TestServer;

class Reporting : public ::testing::Test {
protected:
    void SetUp() override {
        scope.device->idfa = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
        QuovAd::shared().setIMEI(std::string("861"));
        for (const char* path : {"/v1", "/c"}) server.on(path, Answer::empty());
        server.on("/bad", Answer::text("no", 500));
    }
    QVBidModelPtr bid(json views, json clicks) {
        return QVBidModel::initWithDict(json{{"check_views", views}, {"check_clicks", clicks}});
    }
    void flush() { ASSERT_TRUE(QuovAd::shared().flush(std::chrono::seconds(20))); }

    TestServer server;
    NetworkScope scope;
    LogCapture log;
};

TEST_F(Reporting, ShowFillsIdentityMacrosClickAlsoTouchMacrosEmptyListsSendNothing) {
    bid({server.url("/v1?d=__IDFA__&i=__IMEI__&o=__OAID__&x=__ABS_DOWN_X__")}, json::array())->reportAdShow();
    EXPECT_EQ(log.linesStartingWith("GET URL WITH retry").size(), 1u) << "a short list starts at once";
    bid(json::array(), {server.url("/c?i=__IMEI__&dx=__ABS_DOWN_X__&ruy=__REL_UP_Y__&tu=__CLICK_UP_TIME__")})
        ->reportAdClickWithAdSize({300, 400}, {100.6, 200.2}, 12.5, {450, 60}, 13.25);
    for (const json& d : {json::object(), json{{"check_views", json::array()}, {"check_clicks", json::array()}}}) {
        QVBidModel::initWithDict(d)->reportAdShow();
        QVBidModel::initWithDict(d)->reportAdClickWithAdSize({300, 400}, {1, 1}, 1, {1, 1}, 2);
    }
    flush();
    ASSERT_TRUE(server.count() == 2u && server.countOn("/v1") == 1u && server.countOn("/c") == 1u);
    EXPECT_EQ(server.receivedOn("/v1")[0].query, "d=" + scope.device->idfa + "&i=861&o=__OAID__&x=__ABS_DOWN_X__");
    EXPECT_EQ(server.receivedOn("/c")[0].query, "i=861&dx=100&ruy=1&tu=13.25");
    EXPECT_EQ(log.lines().size(), 2u) << "one GET line each, no failure";
}

// A list past network::kFillOffMainBytes is filled on the task worker: still in
// list order, with the values of the moment of reporting.
TEST_F(Reporting, ALongListStartsInListOrderWithTheValuesOfTheReport) {
    std::vector<std::string> views;
    const std::string pad(2000, 'p');
    for (int i = 0; i < 12; ++i)
        views.push_back(server.url("/v1?n=" + std::to_string(i) + "&m=__MAC__&i=__IMEI__&p=" + pad));
    bid(views, json::array())->reportAdShow();
    EXPECT_TRUE(log.linesStartingWith("GET URL WITH retry").empty());
    QuovAd::shared().setIMEI(std::string("changed"));
    flush();
    const auto lines = log.linesStartingWith("GET URL WITH retry");
    ASSERT_EQ(lines.size(), views.size());
    QuovAd::shared().setIMEI(std::string("861"));
    for (std::size_t i = 0; i < views.size(); ++i)
        EXPECT_EQ(lines[i], "GET URL WITH retry, 3, " + QVRequestHelper::formatURL(views[i]));
    EXPECT_EQ(server.countOn("/v1"), views.size());
}

TEST_F(Reporting, EachAddressFailsOnItsOwnAfterThreeAttempts) {
    const std::string dead = "http://127.0.0.1:" + std::to_string(TestServer::deadPort()) + "/d";
    bid({server.url("/bad"), dead, server.url("/v1")}, {server.url("/bad"), server.url("/c")})->reportAdShow();
    bid({}, {server.url("/bad"), server.url("/c")})->reportAdClickWithAdSize({1, 1}, {}, 0, {}, 0);
    flush();
    EXPECT_EQ(server.countOn("/bad"), 6u);
    EXPECT_EQ(server.countOn("/v1"), 1u);
    EXPECT_EQ(server.countOn("/c"), 1u);
    const auto shows = log.linesStartingWith("Report ad show failed, ");
    ASSERT_EQ(shows.size(), 2u);
    for (const auto& l : shows) EXPECT_NE(l.find("Error Domain=quov.http"), std::string::npos) << l;
    EXPECT_EQ(log.linesStartingWith("Report ad click failed, ").size(), 1u);
}

}  // namespace
}  // namespace quov
