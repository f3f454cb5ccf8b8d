// Each way a server can misbehave ends a bid load in one stated outcome and a tracker
// after counted attempts, within the time-outs set here and with bounded memory.
#include <quov/QVRequestHelper.h>
#include <quov/QuovAd.h>

#include "facade/QuovAdFlow.h"
#include "platform/Context.h"
#include "network/Tracking.h"
#include "support/FaultServer.h"
#include "support/LogCapture.h"
#include "support/NetworkScope.h"
#include "support/RecordingDelegate.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>

namespace quov {
namespace {

using test::FaultServer;
using test::NetworkScope;
using test::RecordingDelegate;
using namespace std::chrono_literals;

using Conn = FaultServer::Conn;

constexpr std::size_t kMiB = 1u << 20;

std::size_t peakRss() {
    std::ifstream status("/proc/self/status");
    std::string key;
    std::size_t kb = 0;
    while (status >> key && key != "VmHWM:") continue;
    return (status >> kb, kb * 1024);
}

std::string head(const std::string& status, const std::string& headers) {
    return "HTTP/1.1 " + status + "\r\n" + headers + "Connection: close\r\n\r\n";
}

FaultServer::Behaviour answer(const std::string& body, const std::string& status = "200 OK",
                              const std::string& type = "application/json") {
    return [=](Conn& c) {
        c.send(head(status, "Content-Type: " + type + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n") +
               body);
    };
}

// A JSON head announcing a body of this length (empty: none, chunked), then more() until it fails.
FaultServer::Behaviour flood(const std::string& length, const std::string& first, std::function<bool(Conn&)> more) {
    return [=](Conn& c) {
        const std::string framing = length.empty() ? "Transfer-Encoding: chunked" : "Content-Length: " + length;
        if (c.send(head("200 OK", "Content-Type: application/json\r\n" + framing + "\r\n") + first))
            while (more(c)) continue;
    };
}

// Zeros as fixed-Huffman gzip (one literal, then 258-byte matches at distance 1): 3 MiB
// that inflate to ~490 MiB, so only a client that inflated would see the flood.
std::string gzipBomb(std::size_t compressedBytes) {
    std::string out("\x1f\x8b\x08\x00\x00\x00\x00\x00\x00\xff", 10);
    unsigned bits = 0, count = 0;
    auto put = [&](unsigned code, unsigned length) {  // Huffman codes go most significant bit first
        for (unsigned i = length; i-- > 0;) {
            bits |= ((code >> i) & 1u) << count;
            if (++count == 8) {
                out += static_cast<char>(bits);
                bits = count = 0;
            }
        }
    };
    put(0b10, 2);  // BFINAL 0, then BTYPE 1 (fixed), least significant bit first
    put(0b00110000, 8);  // literal 0
    while (out.size() < compressedBytes) {
        put(0b11000101, 8);  // length 258
        put(0b00000, 5);     // distance 1
    }
    return out;
}

// What a load tells the delegate ("view": put on screen) and its error code; how a tracker
// given 3 attempts ends, and the connections it opened.
struct FaultCase {
    const char* name;
    FaultServer::Behaviour behaviour;
    bool tls = false, deadPort = false;
    const char* bidCalls = "loadFailed";
    std::int64_t bidCode = 4001;
    const char* trackerOutcome = "failure";
    std::size_t trackerConnections = 3;
};

std::vector<FaultCase> faultCases() {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    const auto redirect = [](std::string status, std::string to) {
        return [=](Conn& c) { c.send(head(status, "Location: " + to + "\r\nContent-Length: 0\r\n")); };
    };
    return {
        {.name = "DeadPort", .deadPort = true, .trackerConnections = 0},
        {"NotFoundWithBody", answer("no such page", "404 Not Found", "text/plain")},
        {"ServerErrorWithBody", answer(R"({"seatbid":[]})", "500 Internal Server Error")},
        {"ResetMidBody", flood("1000", R"({"seatbid":[)", [](Conn& c) { return c.reset(), false; })},
        {"StallBeforeHeaders", [](Conn& c) { c.pause(60000); }},
        {"SlowlorisBody", flood("100000", "{", [](Conn& c) { return c.pause(100) && c.send(" "); })},
        {"FiftyMegabyteBody",
         flood("52428800", "", [](Conn& c) { return c.send(std::string(64 * 1024, ' ')); })},  // until the client stops
        {"EndlessChunkedBody",
         flood("", "1\r\n[\r\n", [](Conn& c) { return c.send("10000\r\n" + std::string(0x10000, ' ') + "\r\n"); })},
        {"GzipBomb", answer(gzipBomb(3 * kMiB), "200 OK", "application/json\r\nContent-Encoding: gzip")},
        {"MalformedJson", answer(R"({"seatbid":[{"bid":[{"image":)")},
        {"InvalidUtf8", answer("{\"seatbid\":[{\"bid\":[{\"adm\":\"\xff\xfe\xc0\"}]}]}")},
        {"SeatbidOfTheWrongType", answer(R"({"seatbid":{"bid":[{}]}})"), false, false, "loadFailed", 204, "success", 1},
        {"WrongTypesEverywhere",
         answer(R"({"seatbid":[{"bid":[1,"x",null,[],{"image":7,"adm":[],"check_views":{},"check_clicks":"u",)"
                R"("isRendering":"1","price":"high","crid":{}}]}]})"),
         false, false, "loaded view", 0, "success", 1},
        {"NestedHundredThousandDeep", answer(R"({"seatbid":[{"bid":[)" + deep + "]}]}"), false, false, "loadFailed", 204,
         "success", 1},
        {"RedirectLoop", redirect("302 Found", "/network"), false, false, "loadFailed", 4001, "failure", 33},
        {"RedirectToFile", redirect("302 Found", "file:///etc/passwd")},
        {"RedirectToAnotherScheme", redirect("301 Moved Permanently", "ftp://127.0.0.1/network")},
        {.name = "SelfSignedHttps", .tls = true},
    };
}

class FaultMatrix : public ::testing::TestWithParam<FaultCase> {
protected:
    void SetUp() override {
        QuovAd::shared().setupWithAppId(std::string("faults"), std::string("key"));
        QuovAd::shared().setDelegate(delegate);
        QuovAd::shared().setLoadTimeout(1s);
        network::setTrackingTimeout(1s);
        if (GetParam().deadPort) {
            base = "http://127.0.0.1:" + std::to_string(test::TestServer::deadPort());
        } else {
            server = std::make_unique<FaultServer>(GetParam().behaviour, GetParam().tls);
            base = server->base();
        }
        rssBefore = peakRss();
    }
    void TearDown() override {
        QuovAd::shared().setLoadTimeout(60s);
        network::setTrackingTimeout(60s);
        // Whatever was sent, the client kept at most its body cap.
        EXPECT_TRUE(QUOV_SANITIZED || peakRss() - rssBefore < 48 * kMiB) << (peakRss() - rssBefore) / kMiB << " MiB";
    }

    std::unique_ptr<FaultServer> server;
    std::string base;
    std::size_t rssBefore = 0;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    QuovAdFlow::ScopedViewPresenter presenter{platform::Context::shared(),
                                              [this](QuovAd&, QVBidModelPtr) { delegate->calls.push_back("view"); }};
    test::LogCapture log;
};

TEST_P(FaultMatrix, TheBidLoadEndsInOneStatedOutcome) {
    NetworkScope scope(base);
    QuovAd::shared().loadAdWithAdId(std::string("slot"));
    ASSERT_TRUE(NetworkScope::runUntil([&] { return !delegate->calls.empty(); }));
    std::string calls;
    for (const std::string& call : delegate->calls) calls += (calls.empty() ? "" : " ") + call;
    const std::int64_t code = delegate->errors.empty() ? 0 : delegate->errors[0].code;
    std::printf("matrix-load %s %s %lld\n", GetParam().name, calls.c_str(), static_cast<long long>(code));
    EXPECT_EQ(calls, GetParam().bidCalls);
    EXPECT_EQ(code, GetParam().bidCode);
}

TEST_P(FaultMatrix, ATrackerEndsAfterItsCountedAttempts) {
    NetworkScope scope;
    std::string outcome;
    QVRequestHelper::getURLWithRetry(
        base + "/network?id=1", 3, [&](const nlohmann::json*) { outcome = "success"; },
        [&](const Error&) { outcome = "failure"; });
    ASSERT_TRUE(NetworkScope::runUntil([&] { return !outcome.empty(); }));
    std::printf("matrix-tracker %s %s %zu\n", GetParam().name, outcome.c_str(), server ? server->connections() : 0);
    EXPECT_EQ(outcome, GetParam().trackerOutcome);
    EXPECT_EQ(server ? server->connections() : 0, server ? GetParam().trackerConnections : 0);
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultMatrix, ::testing::ValuesIn(faultCases()),
                         [](const auto& test) { return std::string(test.param.name); });

}  // namespace
}  // namespace quov
