#include <quov/QVRequestHelper.h>
#include <quov/QuovAd.h>

#include "network/BidRequest.h"
#include "platform/Context.h"
#include "support/LogCapture.h"
#include "support/NetworkScope.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <set>

namespace quov {
namespace {

using json = nlohmann::json;
using test::Answer;
using test::LogCapture;
using test::NetworkScope;
using test::TestServer;

const std::string kAlphabet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

struct LoadResult {
    int calls = 0;
    std::vector<QVBidModelPtr> bids;
    std::optional<Error> error;
};

LoadResult load(const std::optional<std::string>& slot = std::string("slot")) {
    LoadResult r;
    QVRequestHelper::loadAdWithAdId(slot, [&](std::vector<QVBidModelPtr> bids, std::optional<Error> error) {
        ++r.calls;
        r.bids = std::move(bids);
        r.error = std::move(error);
    });
    EXPECT_TRUE(NetworkScope::runUntil([&] { return r.calls > 0; }));
    return r;
}

class BidRequest : public ::testing::Test {
protected:
    void SetUp() override {
        QuovAd::shared().setupWithAppId(std::string("app1"), std::string("key1"));
        server.on("/network", Answer::json("{}"));
    }
    json lastBody() {
        const auto got = server.receivedOn("/network");
        return got.empty() ? json() : json::parse(got.back().body);
    }

    TestServer server;
    NetworkScope scope{server.base()};
    LogCapture log;
};

TEST_F(BidRequest, UrlHeadersAndCompactBodyOnTheWire) {
    QuovAd::shared().setupWithAppId(std::string("a&b=c"), std::string("k&1"));
    load();
    const auto got = server.received();
    ASSERT_EQ(got.size(), 1u);
    EXPECT_EQ(got[0].method, "POST");
    EXPECT_EQ(got[0].target, "/network?appid=a&b=c") << "AppId goes in unescaped";
    EXPECT_EQ(got[0].header("Content-Type"), "application/json");
    EXPECT_EQ(got[0].header("appkey"), "k&1");
    const json body = json::parse(got[0].body);
    EXPECT_EQ(got[0].body, body.dump()) << "compact JSON";
    EXPECT_EQ(body.size(), 4u);
    for (const char* key : {"id", "app", "device", "imp"}) EXPECT_TRUE(body.contains(key)) << key;
}

TEST_F(BidRequest, AppAndDeviceMembersFromTheDeviceAndTheRecord) {
    scope.device->trackingEnabled = true;
    scope.device->idfa = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
    scope.device->scale = 2.0;
    load();
    const json body = lastBody();
    const DeviceInfoRecord record = QVDeviceInfo::deviceInfo();
    EXPECT_EQ(body["app"], (json{{"bundle", "com.example.fake"}, {"sdk_ver", 1}, {"ver", "1.2.3"}}));
    const json& d = body["device"];
    const std::pair<const char*, const char*> fromRecord[] = {{"device_size", "DeviceMetrics"},
                                                             {"language", "Langauge"},
                                                             {"open_udid", "DeviceMac"},
                                                             {"model", "DeviceModelDetail"},
                                                             {"osv", "DeviceOsVersion"}};
    for (const auto& [member, key] : fromRecord) EXPECT_EQ(d[member], *record.text(key)) << member;
    EXPECT_EQ(d["os"], "linux");
    EXPECT_EQ(d["make"], "apple");
    EXPECT_EQ(d["idfa"], "6D92078A-8246-4BA4-AE5B-76104861E7DC");
    EXPECT_EQ(d["ppi"], 440);
    EXPECT_EQ(d["pxratio"], 2.0);
    EXPECT_EQ(d["lmt"], 0);
    EXPECT_TRUE(d["h"].is_number_integer() && d["w"].is_number_integer());
}

TEST_F(BidRequest, IdentifiersAreSentOnlyWhenNotEmpty) {
    struct Case {
        std::optional<std::string> imei, oaid;
        std::size_t members;
    };
    const Case cases[] = {
        {std::string(""), std::string(""), 16},
        {std::string("861234"), std::string("oa-1"), 18},
        {std::string("861234"), std::string(""), 17},
        {std::nullopt, std::nullopt, 16},  // absent reads as empty
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.members);
        QuovAd::shared().setIMEI(c.imei);
        QuovAd::shared().setOAID(c.oaid);
        load();
        const json d = lastBody()["device"];
        EXPECT_EQ(d.size(), c.members) << d.dump();
        EXPECT_EQ(d.value("imei", ""), c.imei.value_or(""));
        EXPECT_EQ(d.value("oaid", ""), c.oaid.value_or(""));
    }
}

TEST_F(BidRequest, FreshIndependentIdsAndTheSlotIsNeverSent) {
    load(std::string("slot-A"));
    load(std::string("slot-B"));
    load(std::nullopt);
    std::set<std::string> ids;
    for (const auto& r : server.received()) {
        const json body = json::parse(r.body);
        EXPECT_EQ(r.body.find("slot-"), std::string::npos);
        ASSERT_EQ(body["imp"].size(), 1u);
        const json& imp = body["imp"][0];
        EXPECT_EQ(imp.size(), 2u);
        EXPECT_EQ(imp["tagid"], "0");
        for (const std::string& id : {body["id"].get<std::string>(), imp["id"].get<std::string>()}) {
            EXPECT_EQ(id.size(), 18u);
            EXPECT_EQ(id.find_first_not_of(kAlphabet), std::string::npos) << id;
            ids.insert(id);
        }
    }
    EXPECT_EQ(ids.size(), 6u) << "every id differs";
}

// The device rules, on a record made by hand.
network::BidRequestInputs inputs() {
    network::BidRequestInputs in;
    for (const auto& [k, v] : std::vector<std::pair<std::string, std::string>>{
             {"BundleID", "b"}, {"AppVersion", "v"}, {"DeviceMetrics", "960*640"}, {"Langauge", "en"},
             {"DeviceMac", "m"}, {"DeviceModelDetail", "iPhone 4"}, {"DeviceOs", "iOS"},
             {"DeviceOsVersion", "7.1"}, {"DeviceModel", "iPhone"}})
        in.record.insert(k, std::optional<std::string>(v));
    in.idfa = "i";
    in.reachabilityFlags = platform::kReachable;
    in.requestId = "r";
    in.impressionId = "p";
    return in;
}

TEST(BidRequestRules, MetricsGiveHeightFromTheFirstPiece) {
    struct Case {
        const char* metrics;
        std::int64_t h, w;
    };
    const Case cases[] = {{"960*640", 960, 640},   {"2048*1536", 2048, 1536}, {"480*320", 480, 320},
                          {" 12px*-3x", 12, -3},   {"abc*7", 0, 7},           {"5*6*7", 5, 6},
                          {"640", 640, 0},         {"*", 0, 0}};
    for (const Case& c : cases) {
        auto in = inputs();
        in.record.insert("DeviceMetrics", std::optional<std::string>(c.metrics));
        const json d = network::buildBidRequest(in)["device"];
        EXPECT_EQ(d["device_size"], c.metrics);
        EXPECT_EQ(d["h"], c.h) << c.metrics;
        EXPECT_EQ(d["w"], c.w) << c.metrics;
    }
}

TEST(BidRequestRules, DeviceTypeConnectionCarrierAndTracking) {
    using namespace platform;
    struct Case {
        const char* model;
        std::optional<std::uint32_t> flags;
        std::optional<std::string> carrier;
        const char *devicetype, *connectiontype, *code;
    };
    const Case cases[] = {
        {"iPhone", kReachable | 1u, "中国移动", "phone", "wifi", "70120"},
        {"iPad", kReachable | kConnectionRequired, "中国联通", "ipad", "4g", "70123"},
        {"iphone", kReachable | kIsCellular, "中国电信", "ipad", "4g", "70121"},
        {"Desktop", 0u, "China Mobile", "ipad", "4g", ""},
        {"iPod touch", std::nullopt, std::nullopt, "ipad", "4g", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.model);
        auto in = inputs();
        in.record.insert("DeviceModel", std::optional<std::string>(c.model));
        in.reachabilityFlags = c.flags;
        in.carrierName = c.carrier;
        const json d = network::buildBidRequest(in)["device"];
        EXPECT_EQ(d["devicetype"], c.devicetype);
        EXPECT_EQ(d["connectiontype"], c.connectiontype);
        EXPECT_EQ(d["carrier"], c.code);
        EXPECT_EQ(d["lmt"], 1) << "tracking not enabled";
    }
}

// ---- the answer ----

class BidResponse : public BidRequest {};

TEST_F(BidResponse, SuccessfulAnswersGiveTheFirstSeatsBidsInOrder) {
    struct Case {
        const char* name;
        Answer answer;
        std::vector<std::string> ids;
    };
    const std::vector<Case> cases = {
        {"empty object", Answer::json("{}"), {}},
        {"empty body", Answer::empty(), {}},
        {"two seat bids", Answer::json(R"({"seatbid":[{"bid":[{"id":"a"}]},{"bid":[{"id":"b"}]}]})"), {"a"}},
        {"three bids", Answer::json(R"({"seatbid":[{"bid":[{"id":"1"},{"id":"2"},{"id":"3"}]}]})"),
         {"1", "2", "3"}},
        {"seatbid empty", Answer::json(R"({"seatbid":[]})"), {}},
        {"seatbid object", Answer::json(R"({"seatbid":{"bid":[{"id":"x"}]}})"), {}},
        {"seatbid string", Answer::json(R"({"seatbid":"x"})"), {}},
        {"seat not object", Answer::json(R"({"seatbid":[[{"id":"x"}]]})"), {}},
        {"seat without bid", Answer::json(R"({"seatbid":[{}]})"), {}},
        {"bid object", Answer::json(R"({"seatbid":[{"bid":{"id":"x"}}]})"), {}},
        {"bid null", Answer::json(R"({"seatbid":[{"bid":null}]})"), {}},
        {"non-object bid skipped", Answer::json(R"({"seatbid":[{"bid":[1,{"id":"k"},"s"]}]})"), {"k"}},
        {"document array", Answer::json(R"([{"seatbid":[{"bid":[{"id":"x"}]}]}])"), {}},
        {"document number", Answer{200, "text/json", "42"}, {}},
        {"deeply nested", Answer::json(std::string(500000, '[') + std::string(500000, ']')), {}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        server.on("/network", c.answer);
        log.clear();
        LoadResult r = load();
        EXPECT_EQ(r.calls, 1);
        EXPECT_FALSE(r.error.has_value());
        std::vector<std::string> ids;
        for (const auto& b : r.bids) ids.push_back(b->identifier().value_or("?"));
        EXPECT_EQ(ids, c.ids);
        EXPECT_TRUE(log.linesStartingWith("Reqeust failed").empty());
    }
}

TEST_F(BidResponse, FailuresGive4001AndLogTheAnswer) {
    Answer huge = Answer::json("[" + std::string(5u << 20, ' ') + "]");
    huge.chunked = true;
    struct Case {
        const char* name;
        Answer answer;
        std::string logged;
    };
    const std::vector<Case> cases = {
        {"404 text", Answer::text("no such slot", 404), "no such slot"},
        {"500 json", Answer::json(R"({"e":1})", 500), R"({"e":1})"},
        {"500 empty", Answer::empty(500), ""},
        {"html 200", Answer{200, "text/html", "<b>hi</b>"}, "<b>hi</b>"},
        {"no content type", Answer{200, "", "{}"}, "{}"},
        {"bad UTF-8", Answer::text("\xff\xfe", 404), "(null)"},
        {"broken JSON", Answer::json(R"({"seatbid":)"), "(null)"},
        {"oversized", huge, "(null)"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        server.on("/network", c.answer);
        log.clear();
        LoadResult r = load();
        EXPECT_EQ(r.calls, 1);
        EXPECT_TRUE(r.bids.empty());
        EXPECT_EQ(r.error, QVError::errorWithCode(4001));
        EXPECT_EQ(log.linesStartingWith("Reqeust failed"),
                  std::vector<std::string>{"Reqeust failed, response: " + c.logged});
    }
}

}  // namespace
}  // namespace quov
