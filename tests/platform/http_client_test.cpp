#include "platform/HttpClient.h"

#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <signal.h>

#include <optional>
#include <thread>

namespace quov::platform {
namespace {

using test::Answer;
using test::TestServer;
using namespace std::chrono_literals;

class HttpClientTest : public ::testing::Test {
protected:
    // Sends one request and runs the loop until its completion has run.
    HttpResponse fetch(HttpRequest request) {
        std::optional<HttpResponse> got;
        client.send(std::move(request), [&](HttpResponse r) { got = std::move(r); });
        EXPECT_TRUE(loop.runUntil([&] { return got.has_value(); }, 20s)) << "no completion";
        return got.value_or(HttpResponse{});
    }
    static HttpRequest get(std::string url) {
        HttpRequest r;
        r.url = std::move(url);
        return r;
    }

    TestServer server;
    MainLoop loop;
    HttpClient client{loop};
};

TEST_F(HttpClientTest, GetReturnsStatusTypeAndBody) {
    server.on("/a", Answer::json(R"({"k":1})", 201));
    HttpResponse r = fetch(get(server.url("/a?x=1")));
    EXPECT_TRUE(r.transportOk) << r.errorText;
    EXPECT_EQ(r.status, 201);
    EXPECT_EQ(r.contentType, "application/json");
    EXPECT_EQ(r.body, R"({"k":1})");
    ASSERT_EQ(server.count(), 1u);
    EXPECT_EQ(server.received()[0].method, "GET");
    EXPECT_EQ(server.received()[0].query, "x=1");
}

TEST_F(HttpClientTest, PostSendsBodyAndHeadersIncludingAnEmptyOne) {
    server.on("/p", Answer::empty(204));
    HttpRequest r;
    r.method = "POST";
    r.url = server.url("/p");
    r.body = R"({"a":"é"})";
    r.headers = {{"Content-Type", "application/json"}, {"appkey", ""}, {"X-One", "1"}};
    HttpResponse resp = fetch(r);
    EXPECT_TRUE(resp.transportOk) << resp.errorText;
    EXPECT_EQ(resp.status, 204);
    ASSERT_EQ(server.count(), 1u);
    const auto got = server.received()[0];
    EXPECT_EQ(got.method, "POST");
    EXPECT_EQ(got.body, r.body);
    EXPECT_EQ(got.header("Content-Type"), "application/json");
    EXPECT_EQ(got.header("X-One"), "1");
}

TEST_F(HttpClientTest, HeaderWithAnEmptyValueIsSentNotDropped) {
    test::RawRequestCapture raw;
    HttpRequest r = get(raw.base() + "/e");
    r.headers = {{"appkey", ""}};
    EXPECT_TRUE(fetch(r).transportOk);
    ASSERT_EQ(raw.requests().size(), 1u);
    const std::string head = raw.requests()[0].first;
    EXPECT_NE(head.find("\r\nappkey:"), std::string::npos) << head;
}

TEST_F(HttpClientTest, StatusErrorsStillCarryTheAnswer) {
    server.on("/missing", Answer::text("nothing here", 404));
    HttpResponse r = fetch(get(server.url("/missing")));
    EXPECT_TRUE(r.transportOk);
    EXPECT_EQ(r.status, 404);
    EXPECT_EQ(r.body, "nothing here");
}

TEST_F(HttpClientTest, TransportFailuresAreReportedNotThrown) {
    server.redirect("/to-file", "file:///etc/passwd");
    server.redirect("/loop", "/loop");
    struct Case {
        const char* name;
        std::string url;
    };
    const std::vector<Case> cases = {
        {"dead port", "http://127.0.0.1:" + std::to_string(TestServer::deadPort()) + "/"},
        {"file scheme", "file:///etc/passwd"},
        {"ftp scheme", "ftp://127.0.0.1/x"},
        {"not a URL", "::::"},
        {"empty URL", ""},
        {"redirect to file", server.url("/to-file")},
        {"redirect loop", server.url("/loop")},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        HttpResponse r = fetch(get(c.url));
        EXPECT_FALSE(r.transportOk);
        EXPECT_FALSE(r.errorText.empty());
        EXPECT_TRUE(r.body.empty());
    }
    // The loop was cut off after a bounded number of hops.
    EXPECT_LE(server.countOn("/loop"), 12u);
}

TEST_F(HttpClientTest, RedirectsWithinHttpAreFollowed) {
    server.redirect("/old", "/new", 301);
    server.on("/new", Answer::json("[1]"));
    HttpResponse r = fetch(get(server.url("/old")));
    EXPECT_TRUE(r.transportOk) << r.errorText;
    EXPECT_EQ(r.status, 200);
    EXPECT_EQ(r.body, "[1]");
}

TEST_F(HttpClientTest, BodiesAboveTheCapFailWhetherChunkedOrNot) {
    const std::string big(300 * 1024, 'x');
    Answer chunked = Answer::json(big);
    chunked.chunked = true;
    server.on("/chunked", chunked);
    server.on("/sized", Answer::json(big));
    server.on("/fits", Answer::json(std::string(1000, ' ')));
    for (const char* path : {"/chunked", "/sized"}) {
        SCOPED_TRACE(path);
        HttpRequest r = get(server.url(path));
        r.maxBodyBytes = 100 * 1024;
        HttpResponse resp = fetch(r);
        EXPECT_FALSE(resp.transportOk);
        EXPECT_NE(resp.errorText.find("larger than"), std::string::npos) << resp.errorText;
        EXPECT_TRUE(resp.body.empty());
    }
    HttpRequest r = get(server.url("/fits"));
    r.maxBodyBytes = 1000;
    EXPECT_TRUE(fetch(r).transportOk) << "exactly the cap is allowed";
}

TEST_F(HttpClientTest, HeaderWithLineBreakIsRefusedBeforeSending) {
    server.on("/h", Answer::empty());
    HttpRequest r = get(server.url("/h"));
    r.headers = {{"appkey", "k\r\nX-Injected: 1"}};
    HttpResponse resp = fetch(r);
    EXPECT_FALSE(resp.transportOk);
    EXPECT_EQ(server.count(), 0u);
}

TEST_F(HttpClientTest, CompletionsRunOnTheLoopThreadAndAreCounted) {
    server.on("/c", Answer::empty());
    const auto mainThread = std::this_thread::get_id();
    constexpr int kRequests = 50;
    int done = 0;
    bool allOnMain = true;
    for (int i = 0; i < kRequests; ++i) {
        client.send(get(server.url("/c")), [&](HttpResponse r) {
            allOnMain = allOnMain && std::this_thread::get_id() == mainThread;
            if (r.transportOk && r.status == 200) ++done;
        });
    }
    EXPECT_EQ(client.inFlight(), std::size_t(kRequests));
    ASSERT_TRUE(loop.runUntil([&] { return client.inFlight() == 0; }, 30s));
    EXPECT_EQ(done, kRequests);
    EXPECT_TRUE(allOnMain);
}

TEST_F(HttpClientTest, AFewRequestsPerHostAtOnceTheRestQueued) {
    Answer slow = Answer::empty();
    slow.delay = 20ms;
    server.on("/q", slow);
    test::TestServer other;
    other.on("/q", slow);
    int ok = 0;
    for (int i = 0; i < 30; ++i) {
        for (TestServer* s : {&server, &other})
            client.send(get(s->url("/q")), [&](HttpResponse r) { ok += r.transportOk && r.status == 200; });
    }
    ASSERT_TRUE(loop.runUntil([&] { return client.inFlight() == 0; }, 60s));
    EXPECT_EQ(ok, 60);
    EXPECT_LE(server.maxConcurrent(), 6u);
    EXPECT_LE(other.maxConcurrent(), 6u);
}

TEST_F(HttpClientTest, HostSignalSetupIsLeftAlone) {
    struct sigaction before {};
    sigaction(SIGPIPE, nullptr, &before);
    sigset_t maskBefore, maskAfter;
    pthread_sigmask(SIG_SETMASK, nullptr, &maskBefore);

    server.on("/s", Answer::empty());
    fetch(get(server.url("/s")));

    struct sigaction after {};
    sigaction(SIGPIPE, nullptr, &after);
    pthread_sigmask(SIG_SETMASK, nullptr, &maskAfter);
    EXPECT_EQ(before.sa_handler, after.sa_handler);
    EXPECT_EQ(sigismember(&maskBefore, SIGPIPE), sigismember(&maskAfter, SIGPIPE));
}

TEST(HttpClientLifecycle, DestroyingWithRequestsInFlightCompletesThemWithAnError) {
    TestServer server;
    Answer slow = Answer::empty();
    slow.delay = 300ms;
    server.on("/slow", slow);
    MainLoop loop;
    std::vector<HttpResponse> got;
    {
        HttpClient client(loop);
        for (int i = 0; i < 3; ++i) {
            HttpRequest r;
            r.url = server.url("/slow");
            client.send(r, [&](HttpResponse resp) { got.push_back(std::move(resp)); });
        }
        ASSERT_TRUE(server.waitForCount(1, 10s));
    }
    loop.drain();
    ASSERT_EQ(got.size(), 3u) << "every caller hears back exactly once";
    for (const auto& r : got) EXPECT_FALSE(r.transportOk);
}

TEST(HttpClientLifecycle, ClientThatNeverSentStopsCleanly) {
    MainLoop loop;
    { HttpClient client(loop); }
    EXPECT_EQ(loop.pending(), 0u);
}

}  // namespace
}  // namespace quov::platform
