#include <quov/QuovAd.h>
#include <quov/QuovHost.h>

#include "facade/QuovAdFlow.h"
#include "network/BidRequest.h"
#include "network/BidResponse.h"
#include "network/BidServerBase.h"
#include "platform/Context.h"
#include "support/LogCapture.h"
#include "support/NetworkScope.h"
#include "support/RecordingDelegate.h"
#include "support/TestServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <stdexcept>

namespace quov {
namespace {

using json = nlohmann::json;
using test::Answer;
using test::NetworkScope;
using test::TestServer;
using testing::HasSubstr;
using testing::ThrowsMessage;
using Calls = std::vector<std::string>;
using Opt = std::optional<std::string>;

class BidRequest : public ::testing::Test {
protected:
    void SetUp() override {
        QuovAd::shared().setupWithAppId(std::string("app1"), std::string("key1"));
        QuovAd::shared().setDelegate(delegate);
        server.on("/network", Answer::json("{}"));
    }
    /// One load through the facade singleton; true when it failed with 4001.
    bool loadFails() {
        log.clear();
        delegate->calls.clear();
        QuovAd::shared().loadAdWithAdId(std::string("slot"));
        EXPECT_TRUE(NetworkScope::runUntil([&] { return !delegate->calls.empty(); }));
        return delegate->calls == Calls{"loadFailed"} && delegate->errors.back() == QVError::errorWithCode(4001);
    }
    test::TestServer server;
    test::NetworkScope scope{server.base()};
    test::LogCapture log;
    std::shared_ptr<test::RecordingDelegate> delegate = std::make_shared<test::RecordingDelegate>();
    QuovAdFlow::ScopedViewPresenter presenter{platform::Context::shared(),
                                              [this](QuovAd&, QVBidModelPtr) { delegate->calls.push_back("view"); }};
};

TEST_F(BidRequest, UrlHeadersAndACompactBodyFromTheDeviceAndTheRecord) {
    QuovAd::shared().setupWithAppId(std::string("a&b=c"), std::string("k&1"));
    scope.device->trackingEnabled = true;
    scope.device->idfa = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
    scope.device->scale = 2.0;
    QuovAd::shared().setIMEI(std::string("861234"));
    QuovAd::shared().setOAID(std::string(""));  // an empty identifier is not sent
    loadFails();
    QuovAd::shared().setIMEI(std::nullopt);
    const auto got = server.received();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].method, "POST");
    EXPECT_EQ(got[0].target, "/network?appid=a&b=c") << "AppId goes in unescaped";
    EXPECT_EQ(got[0].header("Content-Type"), "application/json");
    EXPECT_EQ(got[0].header("appkey"), "k&1");
    const json body = json::parse(got[0].body);
    EXPECT_EQ(got[0].body, body.dump()) << "compact JSON";
    EXPECT_EQ(body.size(), 4u);
    EXPECT_EQ(got[0].body.find("slot"), std::string::npos) << "the slot is never sent";
    EXPECT_EQ(body["imp"], (json::array({{{"id", body["imp"][0]["id"]}, {"tagid", "0"}}})));
    EXPECT_EQ(body["id"].get<std::string>().size(), 18u);
    EXPECT_NE(body["id"], body["imp"][0]["id"]);
    EXPECT_EQ(body["app"], (json{{"bundle", "com.example.fake"}, {"sdk_ver", 1}, {"ver", "1.2.3"}}));
    const json& d = body["device"];
    const DeviceInfoRecord record = QVDeviceInfo::deviceInfo();
    const std::pair<const char*, const char*> fromRecord[] = {{"device_size", "DeviceMetrics"}, {"language", "Langauge"},
                                                             {"open_udid", "DeviceMac"}, {"model", "DeviceModelDetail"},
                                                             {"osv", "DeviceOsVersion"}};
    for (const auto& [member, key] : fromRecord) EXPECT_EQ(d.value(member, ""), *record.text(key)) << member;
    const json fixed = {{"os", "linux"}, {"make", "apple"}, {"idfa", "6D92078A-8246-4BA4-AE5B-76104861E7DC"},
                        {"ppi", 440},    {"pxratio", 2.0},  {"lmt", 0},      {"imei", "861234"}};
    for (const auto& [member, value] : fixed.items()) EXPECT_EQ(d.value(member, json()), value) << member;
    EXPECT_FALSE(d.contains("oaid"));
}

TEST(BidRequestRules, DeviceSizeTypeConnectionCarrierAndTracking) {
    using namespace platform;
    const struct {
        const char *metrics, *model;
        std::int64_t h, w;
        std::optional<std::uint32_t> flags;
        Opt carrier;
        const char *devicetype, *connectiontype, *code;
    } cases[] = {
        {"960*640", "iPhone", 960, 640, kReachable | 1u, "中国移动", "phone", "wifi", "70120"},
        {" 12px*-3x", "iPad", 12, -3, kReachable | kConnectionRequired, "中国联通", "ipad", "4g", "70123"},
        {"abc*7", "iphone", 0, 7, kReachable | kIsCellular, "中国电信", "ipad", "4g", "70121"},
        {"5*6*7", "Desktop", 5, 6, 0u, "China Mobile", "ipad", "4g", ""},
        {"640", "iPod touch", 640, 0, std::nullopt, std::nullopt, "ipad", "4g", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.model);
        network::BidRequestInputs in;
        for (const char* key : {"BundleID", "AppVersion", "Langauge", "DeviceMac", "DeviceModelDetail", "DeviceOs",
                                "DeviceOsVersion"})
            in.record.insert(key, Opt("x"));
        in.record.insert("DeviceMetrics", Opt(c.metrics));
        in.record.insert("DeviceModel", Opt(c.model));
        in.reachabilityFlags = c.flags;
        in.carrierName = c.carrier;
        const json d = network::buildBidRequest(in)["device"];
        EXPECT_EQ(d["h"], c.h);
        EXPECT_EQ(d["w"], c.w);
        EXPECT_EQ(d["devicetype"], c.devicetype);
        EXPECT_EQ(d["connectiontype"], c.connectiontype);
        EXPECT_EQ(d["carrier"], c.code);
    }
}

TEST_F(BidRequest, FailuresGive4001AndLogTheAnswer) {
    const std::pair<Answer, std::string> cases[] = {
        {Answer::text("no such slot", 404), "no such slot"},
        {Answer{200, "text/html", "<b>hi</b>"}, "<b>hi</b>"},
        {Answer::text("\xff\xfe", 404), "(null)"},
        {Answer::json(R"({"seatbid":)"), "(null)"},
    };
    for (const auto& [answer, logged] : cases) {
        SCOPED_TRACE(logged);
        server.on("/network", answer);
        EXPECT_TRUE(loadFails());
        EXPECT_EQ(log.linesStartingWith("Reqeust failed"), std::vector<std::string>{"Reqeust failed, response: " + logged});
    }
}

// The bids built while the answer streams in are exactly those of the whole document.
TEST(BidResponseStream, StreamedBidsMatchTheWholeDocumentForEveryShape) {
    const auto describe = [](const std::vector<QVBidModelPtr>& bids) {
        std::string out;
        for (const auto& b : bids)
            out += b->identifier().value_or("-") + "/" + std::to_string(b->adType()) + "/" +
                   std::to_string(b->checkViews().value_or(std::vector<std::string>{}).size()) + "/" +
                   std::to_string(b->images().size()) + ";";
        return out;
    };
    for (const char* body : {
             R"({"seatbid":[{"bid":[{"id":"a","adType":"3"},{"id":"b","images":[{"url":"u","h":1}]}]}]})",
             R"({"seatbid":[5,{"bid":[{"id":"not the first seat"}]}]})",
             R"({"seatbid":[{"bid":[{"id":"old"}]}],"seatbid":[{"bid":[{"id":"new"}]}]})",
             R"({"seatbid":[{"bid":[{"id":"old"}],"bid":[{"id":"new"}],"x":{"bid":[{"id":"no"}]}}]})",
             R"({"seatbid":[{"bid":[1,"s",[{"id":"no"}],{"id":"yes","check_views":["v",["w"]]},null]}]})",
             R"({"x":{"seatbid":[{"bid":[{"id":"nested"}]}]},"y":[{"bid":[{"id":"no"}]}]})",
             R"([{"seatbid":[{"bid":[{"id":"root array"}]}]}])", R"(3)", R"({"seatbid":[{"bid":{}}]})"}) {
        platform::HttpResponse answer;
        answer.transportOk = true, answer.status = 200, answer.contentType = "application/json", answer.body = body;
        const network::BidResponse streamed = network::parseBidResponse(answer);
        ASSERT_TRUE(streamed.outcome.ok) << body;
        const json whole = json::parse(body);
        EXPECT_EQ(describe(streamed.bids), describe(network::bidsFromResponse(&whole))) << body;
    }
}

TEST(BidServerBase, HostValuesAreCheckedAndRefusalsSayWhy) {
    const std::string builtIn = network::bidServerBase();
    const std::pair<const char*, const char*> cases[] = {  // the value, and what a refusal says (null: accepted)
        {"http://127.0.0.1:8080", nullptr}, {"https://ads.example.com", nullptr}, {"http://[::1]:9000", nullptr},
        {"HTTP://h", "http:// or https://"}, {"", "empty"}, {"http://", "no host"}, {"http://h/", "end with '/'"},
        {"http://h/api", "path"}, {"http://h?q=1", "query"}, {"http://h#top", "fragment"},
        {"http://u:p@h", "user information"}, {"http://h x", "blank"}, {"http://h:99999", "not a valid URL"},
    };
    for (const auto& [in, problem] : cases) {
        SCOPED_TRACE(in);
        QuovHost::setBidServerBase("http://127.0.0.1:1");
        const std::string value = in;  // clang 14 lambdas cannot capture a structured binding
        if (problem)
            EXPECT_THAT([&] { QuovHost::setBidServerBase(value); },
                        ThrowsMessage<std::invalid_argument>(AllOf(HasSubstr(problem), HasSubstr("setBidServerBase"))));
        else
            EXPECT_NO_THROW(QuovHost::setBidServerBase(value));
        EXPECT_EQ(network::bidServerBase(), problem ? "http://127.0.0.1:1" : in) << "a refusal changes nothing";
    }
    QuovHost::setBidServerBase(std::nullopt);
    EXPECT_EQ(network::bidServerBase(), builtIn);
}

TEST_F(BidRequest, TheBidRequestNeverFollowsARedirectToAnotherOrigin) {
    TestServer elsewhere;
    elsewhere.on("/network", Answer::json(R"({"seatbid":[{"bid":[{"id":"x"}]}]})"));
    for (int status : {301, 302, 303, 307, 308}) {
        SCOPED_TRACE(status);
        server.redirect("/network", elsewhere.url("/network?appid=app1"), status);
        EXPECT_TRUE(loadFails());
    }
    EXPECT_EQ(elsewhere.count(), 0u) << "the app key left for another origin";

    server.on("/moved", Answer::json(R"({"seatbid":[{"bid":[{"id":"x"}]}]})"));
    server.redirect("/network", "/moved", 307);
    loadFails();
    EXPECT_EQ(delegate->calls, (Calls{"loaded", "view"})) << "same origin is followed";
}

}  // namespace
}  // namespace quov
