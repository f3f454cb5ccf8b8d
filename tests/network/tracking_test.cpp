#include <quov/QVRequestHelper.h>
#include <quov/QuovAd.h>

#include "network/ResponseRule.h"
#include "support/LogCapture.h"
#include "support/NetworkScope.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdio>
#include <cstdlib>

namespace quov {
namespace {

using test::Answer;
using test::NetworkScope;
using test::UnansweringServer;
using namespace std::chrono_literals;

struct Outcome {
    int successes = 0, failures = 0;
    std::optional<nlohmann::json> body;  // of the success
    Error error;
};

Outcome track(const std::string& url, std::uint64_t n) {
    Outcome o;
    QVRequestHelper::getURLWithRetry(
        url, n, [&](const nlohmann::json* body) { ++o.successes, o.body = body ? std::optional(*body) : std::nullopt; },
        [&](const Error& e) { ++o.failures, o.error = e; });
    EXPECT_TRUE(NetworkScope::runUntil([&] { return o.successes + o.failures > 0; }));
    return o;
}

class Tracking : public ::testing::Test {
protected:
    NetworkScope scope;
    test::TestServer server;
    test::LogCapture log;
};

TEST_F(Tracking, AttemptsFollowTheAnswerAndTheCount) {
    server.on("/empty", Answer::empty());
    server.on("/space", Answer::text(" "));
    server.on("/json", Answer{200, "text/javascript; charset=utf-8", R"([1,"a"])"});
    server.on("/gif", Answer{200, "image/gif", "GIF89a"});
    server.on("/bad-json", Answer::json("{oops"));
    server.on("/500", Answer::text("down", 500));
    server.on("/300", Answer::json("{}", 300));  // no Location: nothing to follow
    // path, attempts allowed, GETs made, the error code (0: success), the body of a success
    const std::tuple<const char*, std::uint64_t, std::size_t, std::int64_t, const char*> cases[] = {
        {"/empty", 3, 1, 0, ""},
        {"/space", 3, 1, 0, ""},
        {"/json", 3, 1, 0, R"([1,"a"])"},
        {"/gif", 3, 3, network::kHttpContentType, ""},
        {"/bad-json", 2, 2, network::kHttpJson, ""},
        {"/500", 3, 3, network::kHttpStatus, ""},
        {"/500", 0, 1, network::kHttpStatus, ""},
        {"/300", 1, 1, network::kHttpStatus, ""},
    };
    for (const auto& [path, n, gets, errorCode, body] : cases) {
        SCOPED_TRACE(std::string(path) + " n=" + std::to_string(n));
        server.clearReceived();
        Outcome o = track(server.url(path), n);
        EXPECT_EQ(server.count(), gets);
        EXPECT_EQ(o.successes + o.failures, 1);
        EXPECT_EQ(o.failures ? o.error.code : 0, errorCode);
        EXPECT_EQ(o.body ? o.body->dump() : "", body);
    }
}

TEST_F(Tracking, EveryAttemptEncodesTheOriginalUrlOnceAndLogsItAsPassed) {
    server.onSequence("/p", {Answer::text("x", 500), Answer::empty()});
    const std::string url = server.url("/p?q=a b&e=%41&h=#frag");
    track(url, 3);
    const auto got = server.received();
    ASSERT_EQ(got.size(), 2u);
    for (const auto& r : got) EXPECT_EQ(r.target, "/p?q=a%20b&e=%2541&h=%23frag");
    EXPECT_EQ(log.linesStartingWith("GET URL WITH retry"),
              (std::vector<std::string>{"GET URL WITH retry, 3, " + url, "GET URL WITH retry, 2, " + url}));
    const auto retries = log.linesStartingWith("Retry request with url");
    ASSERT_EQ(retries.size(), 1u);
    EXPECT_EQ(retries[0].rfind("Retry request with url: " + url + ", error: Error Domain=", 0), 0u) << retries[0];
}

// Kept-alive connections from a warm-up must not turn one attempt into a replayed GET.
TEST_F(Tracking, EachAttemptIsExactlyOneGetEvenWithAWarmPool) {
    constexpr std::size_t kWarm = 6;
    UnansweringServer closing(UnansweringServer::After::Close, kWarm);
    int warmed = 0;
    for (std::size_t i = 0; i < kWarm; ++i)
        QVRequestHelper::getURLWithRetry(closing.url("/warm"), 1, [&](const nlohmann::json*) { ++warmed; }, {});
    ASSERT_TRUE(NetworkScope::runUntil([&] { return warmed == static_cast<int>(kWarm); }));
    EXPECT_EQ(track(closing.url("/t"), 3).failures, 1);
    EXPECT_EQ(closing.unanswered(), 3u);
}

// A host's static object flushing from its destructor, after the SDK's client stopped at exit.
TEST(TrackingAtExit, AFlushFromAStaticDestructorEndsAnInFlightChainOnce) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    static int finals = 0;
    static test::LogCapture* log = nullptr;
    struct Host {
        ~Host() {
            const bool flushed = QuovAd::shared().flush(std::chrono::seconds(5));
            std::fprintf(stderr, "finals=%d retries=%zu flushed=%d\n", finals,
                         log->linesStartingWith("Retry request").size(), flushed ? 1 : 0);
        }
    };
    EXPECT_EXIT(
        {
            static Host host;  // made before the client, so destroyed after it
            log = new test::LogCapture;
            auto* hung = new UnansweringServer(UnansweringServer::After::Stall);
            QVRequestHelper::getURLWithRetry(hung->url("/t"), 3, {}, [](const Error&) { ++finals; });
            hung->waitForUnanswered(1, 20s);
            std::exit(0);
        },
        ::testing::ExitedWithCode(0), "finals=1 retries=0 flushed=1");
}

}  // namespace
}  // namespace quov
