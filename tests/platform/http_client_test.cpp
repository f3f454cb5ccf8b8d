#include "platform/http/HttpClient.h"

#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <optional>
#include <thread>

namespace quov::platform {
namespace {

using test::Answer;
using test::TestServer;
using test::UnansweringServer;
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

TEST_F(HttpClientTest, GetAndPostCarryWhatWasAskedAndAnswered) {
    server.on("/a", Answer::json(R"({"k":1})", 201));
    server.redirect("/old", "/a", 301);
    for (const char* path : {"/a?x=1", "/old"}) {
        HttpResponse r = fetch(get(server.url(path)));
        EXPECT_TRUE(r.transportOk) << r.errorText;
        EXPECT_EQ(r.status, 201);
        EXPECT_EQ(r.contentType, "application/json");
        EXPECT_EQ(r.body, R"({"k":1})");
    }
    EXPECT_EQ(server.received()[0].query, "x=1");

    // Headers as the wire has them: the test server would drop an empty one.
    test::RawRequestCapture raw;
    HttpRequest post;
    post.method = "POST";
    post.url = raw.base() + "/p";
    post.body = R"({"a":"é"})";
    post.headers = {{"Content-Type", "application/json"}, {"appkey", ""}};
    EXPECT_TRUE(fetch(post).transportOk);
    ASSERT_EQ(raw.requests().size(), 1u);
    const auto [head, body] = raw.requests()[0];
    EXPECT_EQ(head.rfind("POST /p HTTP/1.1\r\n", 0), 0u) << head;
    EXPECT_NE(head.find("\r\nContent-Type: application/json\r\n"), std::string::npos) << head;
    EXPECT_NE(head.find("\r\nappkey:"), std::string::npos) << "an empty value is still sent";
    EXPECT_EQ(body, post.body);
}

TEST_F(HttpClientTest, TransportFailuresAreReportedNotThrown) {
    server.redirect("/to-file", "file:///etc/passwd");
    server.redirect("/loop", "/loop");
    Answer big = Answer::json(std::string(300 * 1024, ' '));
    server.on("/sized", big);
    big.chunked = true;
    server.on("/chunked", big);
    struct Case {
        const char* name;
        std::string url;
        const char* errorPart;
    };
    const std::vector<Case> cases = {
        {"dead port", "http://127.0.0.1:" + std::to_string(TestServer::deadPort()) + "/", ""},
        {"file scheme", "file:///etc/passwd", ""},
        {"ftp scheme", "ftp://127.0.0.1/x", ""},
        {"not a URL", "::::", ""},
        {"redirect to file", server.url("/to-file"), ""},
        {"redirect loop", server.url("/loop"), ""},
        {"body over the cap", server.url("/sized"), "larger than"},
        {"chunked body over the cap", server.url("/chunked"), "larger than"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        HttpRequest r = get(c.url);
        r.maxBodyBytes = 100 * 1024;
        HttpResponse resp = fetch(r);
        EXPECT_FALSE(resp.transportOk);
        EXPECT_NE(resp.errorText.find(c.errorPart), std::string::npos) << resp.errorText;
        EXPECT_FALSE(resp.errorText.empty());
        EXPECT_TRUE(resp.body.empty());
    }
    EXPECT_LE(server.countOn("/loop"), 12u) << "redirects are bounded";

    HttpRequest injected = get(server.url("/h"));
    injected.headers = {{"appkey", "k\r\nX-Injected: 1"}};
    EXPECT_FALSE(fetch(injected).transportOk);
    EXPECT_EQ(server.countOn("/h"), 0u) << "a header that would split is never sent";
}

TEST_F(HttpClientTest, PathsAreSentAsWrittenNeverNormalised) {
    test::RawRequestCapture raw;
    const std::vector<std::string> paths = {"/a/../b", "/./c", "/d/./e/../f?x=../y", "/%2e%2e/g"};
    for (const auto& path : paths) EXPECT_TRUE(fetch(get(raw.base() + path)).transportOk) << path;
    const auto got = raw.requests();
    ASSERT_EQ(got.size(), paths.size());
    for (std::size_t i = 0; i < paths.size(); ++i)
        EXPECT_EQ(got[i].first.rfind("GET " + paths[i] + " HTTP/1.1\r\n", 0), 0u) << got[i].first;
}

TEST_F(HttpClientTest, RedirectsLeaveTheOriginOnlyWhenTheRequestAllowsIt) {
    TestServer elsewhere;
    elsewhere.on("/land", Answer::json("{}"));
    server.on("/land", Answer::json("{}"));
    server.redirect("/same", "/land", 307);
    server.redirect("/away", elsewhere.url("/land"), 307);
    struct Case {
        const char* path;
        bool crossOrigin;
        bool ok;
        std::size_t elsewhereGets;
    };
    const Case cases[] = {
        {"/same", false, true, 0},
        {"/away", false, false, 0},
        {"/away", true, true, 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.path) + (c.crossOrigin ? " cross-origin allowed" : ""));
        elsewhere.clearReceived();
        HttpRequest r = get(server.url(c.path));
        r.method = "POST";
        r.body = "{}";
        r.headers = {{"appkey", "secret"}};
        r.crossOriginRedirects = c.crossOrigin;
        HttpResponse resp = fetch(r);
        EXPECT_EQ(resp.transportOk, c.ok) << resp.errorText;
        EXPECT_EQ(elsewhere.count(), c.elsewhereGets);
    }
}

// The pool is warmed with kept-alive connections first; the server then reads
// each request and closes without a word. Each send reaches it exactly once.
TEST_F(HttpClientTest, EachRequestGoesOutOnceOnItsOwnNewConnection) {
    constexpr std::size_t kWarm = 6;
    UnansweringServer closing(UnansweringServer::After::Close, kWarm);
    std::size_t answered = 0;
    for (std::size_t i = 0; i < kWarm; ++i)
        client.send(get(closing.url("/w")), [&](HttpResponse r) { answered += r.transportOk; });
    ASSERT_TRUE(loop.runUntil([&] { return client.inFlight() == 0; }, 20s));
    ASSERT_EQ(answered, kWarm);
    for (const char* method : {"GET", "POST"}) {
        SCOPED_TRACE(method);
        const std::size_t before = closing.unanswered();
        HttpRequest r = get(closing.url("/x"));
        r.method = method;
        r.body = method == std::string("POST") ? "{}" : "";
        EXPECT_FALSE(fetch(r).transportOk);
        EXPECT_EQ(closing.unanswered() - before, 1u);
    }
    EXPECT_EQ(closing.connections(), closing.count()) << "a connection was reused";
}

TEST_F(HttpClientTest, ManyRequestsAllCompleteOnTheLoopThread) {
    Answer slow = Answer::empty();
    slow.delay = 20ms;
    server.on("/q", slow);
    TestServer other;
    other.on("/q", slow);
    const auto mainThread = std::this_thread::get_id();
    int ok = 0;
    std::string firstError;
    bool allOnMain = true;
    for (int i = 0; i < 10; ++i) {
        for (TestServer* s : {&server, &other}) {
            client.send(get(s->url("/q")), [&](HttpResponse r) {
                allOnMain = allOnMain && std::this_thread::get_id() == mainThread;
                ok += r.transportOk && r.status == 200;
                if (!(r.transportOk && r.status == 200) && firstError.empty())
                    firstError = r.errorText + " (status " + std::to_string(r.status) + ")";
            });
        }
    }
    EXPECT_EQ(client.inFlight(), 20u);
    ASSERT_TRUE(loop.runUntil([&] { return client.inFlight() == 0; }, 60s));
    EXPECT_EQ(ok, 20) << "first failure: " << firstError;
    EXPECT_TRUE(allOnMain);
}

TEST_F(HttpClientTest, WorkerDeliveryAnswersWithoutTheLoopAndSurvivesAThrowingCompletion) {
    server.on("/a", Answer::json(R"({"k":1})"));
    struct Seen {
        std::thread::id thread;
        HttpResponse response;
    };
    std::promise<Seen> first, second;
    // The main loop is never run here: only a completion on the worker can answer.
    client.send(get(server.url("/a")),
                [&](HttpResponse r) {
                    first.set_value({std::this_thread::get_id(), std::move(r)});
                    throw std::runtime_error("a careless completion");
                },
                HttpClient::Delivery::Worker);
    client.send(get(server.url("/a")), [&](HttpResponse r) { second.set_value({std::this_thread::get_id(), std::move(r)}); },
                HttpClient::Delivery::Worker);
    for (auto* promise : {&first, &second}) {
        auto seen = promise->get_future();
        ASSERT_EQ(seen.wait_for(20s), std::future_status::ready) << "the worker stopped answering";
        const Seen got = seen.get();
        EXPECT_NE(got.thread, std::this_thread::get_id());
        EXPECT_TRUE(got.response.transportOk) << got.response.errorText;
        EXPECT_EQ(got.response.body, R"({"k":1})");
    }
    EXPECT_EQ(loop.drain(), 0u) << "nothing was posted to the loop";
}

TEST_F(HttpClientTest, AnotherLaneNeverWaitsBehindAHostsBusyConnections) {
    Answer stuck = Answer::empty();
    stuck.delay = 3s;  // trackers at a slow endpoint fill the host's slots
    server.on("/track", stuck);
    server.on("/network", Answer::json("{}"));
    std::vector<std::string> order;
    for (int i = 0; i < 6; ++i)
        client.send(get(server.url("/track")), [&](HttpResponse) { order.push_back("track"); });
    HttpRequest bid = get(server.url("/network"));
    bid.method = "POST";
    bid.lane = "bid";
    client.send(std::move(bid), [&](HttpResponse r) { order.push_back(r.status == 200 ? "bid" : "bid failed"); });
    ASSERT_TRUE(loop.runUntil([&] { return order.size() == 7; }, 60s));
    EXPECT_EQ(order.front(), "bid") << "the bid was queued behind the trackers";
}

TEST_F(HttpClientTest, HostSignalSetupIsLeftAlone) {
    struct sigaction before {}, after {};
    sigset_t maskBefore, maskAfter;
    sigaction(SIGPIPE, nullptr, &before);
    pthread_sigmask(SIG_SETMASK, nullptr, &maskBefore);
    server.on("/s", Answer::empty());
    fetch(get(server.url("/s")));
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
        for (int i = 0; i < 8; ++i) {  // more than one host's share: some are still queued
            HttpRequest r;
            r.url = server.url("/slow");
            client.send(r, [&](HttpResponse resp) { got.push_back(std::move(resp)); });
        }
        ASSERT_TRUE(server.waitForCount(1, 10s));
    }
    loop.drain();
    ASSERT_EQ(got.size(), 8u) << "every caller hears back exactly once";
    for (const auto& r : got) EXPECT_TRUE(!r.transportOk && r.shutDown);
}

TEST(HttpClientLifecycle, SendsAfterShutDownFailOnceMarkedFinal) {
    MainLoop loop;
    HttpClient client(loop);
    client.shutDown();
    client.shutDown();
    int calls = 0;
    HttpRequest r;
    r.url = "http://127.0.0.1:" + std::to_string(TestServer::deadPort()) + "/";
    client.send(r, [&](HttpResponse resp) { calls += !resp.transportOk && resp.shutDown; });
    loop.drain();
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(client.inFlight(), 0u);
}

// A listener that never accepts: connections to it hang until their time-out.
int hungListener() {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof a;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(fd, 1) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0)
        return -1;
    return ntohs(a.sin_port);
}

// 1,500 requests to 250 hung ports under a 1,024-descriptor limit: the open
// connections stay capped, so the host's own open() never meets EMFILE.
TEST(HttpClientLimits, StuckRequestsToManyHostsNeverExhaustTheHostsDescriptors) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            rlimit lim{};
            ::getrlimit(RLIMIT_NOFILE, &lim);
            lim.rlim_cur = std::min<rlim_t>(1024, lim.rlim_max);
            ::setrlimit(RLIMIT_NOFILE, &lim);
            std::vector<int> ports;
            for (int i = 0; i < 250; ++i) ports.push_back(hungListener());
            std::atomic<bool> done{false};
            std::atomic<bool> sawEmfile{false};
            std::size_t completed = 0;
            {
                MainLoop loop;
                HttpClient client(loop);
                std::thread probe([&] {
                    while (!done) {
                        const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
                        if (fd >= 0) ::close(fd);
                        else if (errno == EMFILE) sawEmfile = true;
                        std::this_thread::sleep_for(1ms);
                    }
                });
                for (int i = 0; i < 1500; ++i) {
                    HttpRequest r;
                    r.url = "http://127.0.0.1:" + std::to_string(ports[i % ports.size()]) + "/t";
                    r.timeout = 300ms;
                    client.send(r, [&](HttpResponse) { ++completed; });
                }
                loop.runUntil([&] { return completed == 1500; }, 120s);
                done = true;
                probe.join();
            }
            std::fprintf(stderr, "completed=%zu emfile=%d\n", completed, sawEmfile.load() ? 1 : 0);
            std::_Exit(completed == 1500 && !sawEmfile ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "completed=1500 emfile=0");
}

}  // namespace
}  // namespace quov::platform
