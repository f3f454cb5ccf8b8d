#include "platform/http/HttpClient.h"

#include "support/FaultServer.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <optional>

namespace quov::platform {
namespace {

using test::Answer;
using test::FaultServer;
using test::TestServer;
using namespace std::chrono_literals;

HttpRequest get(std::string url, std::string method = "GET") {
    HttpRequest r;
    r.url = std::move(url), r.method = std::move(method);
    return r;
}

class HttpClientTest : public ::testing::Test {
protected:
    HttpResponse fetch(HttpRequest request) {
        std::optional<HttpResponse> got;
        client.send(std::move(request), [&, main = std::this_thread::get_id()](HttpResponse r) {
            EXPECT_EQ(std::this_thread::get_id(), main) << "answers come on the loop thread";
            got = std::move(r);
        });
        EXPECT_TRUE(loop.runUntil([&] { return got.has_value(); }, 20s)) << "no completion";
        return got.value_or(HttpResponse{});
    }

    TestServer server;
    MainLoop loop;
    HttpClient client{loop};
};

TEST_F(HttpClientTest, AnswersComeBackAndRequestsGoOutExactlyAsWritten) {
    server.on("/a", Answer::json(R"({"k":1})", 201));
    HttpResponse r = fetch(get(server.url("/a?x=1")));
    EXPECT_EQ(r.status, 201);
    EXPECT_EQ(r.contentType, "application/json");
    EXPECT_EQ(r.body, R"({"k":1})");

    // The raw wire: the test server would normalise paths and drop an empty header.
    std::mutex mutex;
    std::vector<std::pair<std::string, std::string>> wire;
    FaultServer raw([&](FaultServer::Conn& c) {
        std::unique_lock lock(mutex);
        wire.emplace_back(c.head, c.body);
        lock.unlock();
        c.send("HTTP/1.1 200 OK\r\nContent-Length: 2\r\nConnection: close\r\n\r\n{}");
    });
    HttpRequest post = get(raw.base() + "/p", "POST");
    post.body = R"({"a":"é"})";
    post.headers = {{"Content-Type", "application/json"}, {"appkey", ""}};
    EXPECT_TRUE(fetch(post).transportOk);
    const std::vector<std::string> paths = {"/a/../b", "/./c", "/d/./e/../f?x=../y", "/%2e%2e/g"};
    for (const auto& path : paths) EXPECT_TRUE(fetch(get(raw.base() + path)).transportOk) << path;
    ASSERT_EQ(wire.size(), 1 + paths.size());
    const auto& [head, body] = wire[0];
    EXPECT_NE(head.find("\r\nContent-Type: application/json\r\n"), std::string::npos) << head;
    EXPECT_NE(head.find("\r\nappkey:"), std::string::npos) << "an empty value is still sent";
    EXPECT_EQ(body, post.body);
    for (std::size_t i = 0; i < paths.size(); ++i)
        EXPECT_EQ(wire[i + 1].first.rfind("GET " + paths[i] + " HTTP/1.1\r\n", 0), 0u) << wire[i + 1].first;
}

TEST_F(HttpClientTest, TransportFailuresAreReportedNotThrownAndLeaveTheHostsSignalsAlone) {
    const auto sigpipe = [] {
        struct sigaction action {};
        sigset_t mask;
        sigaction(SIGPIPE, nullptr, &action), pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        return std::pair(reinterpret_cast<void*>(action.sa_handler), sigismember(&mask, SIGPIPE));
    };
    const auto before = sigpipe();
    server.redirect("/to-file", "file:///etc/passwd");
    server.redirect("/loop", "/loop");
    const std::string big(300 * 1024, ' ');
    server.on("/sized", Answer::json(big));
    server.on("/chunked", Answer{.body = big, .chunked = true});
    const std::string urls[] = {"http://127.0.0.1:" + std::to_string(TestServer::deadPort()) + "/",
                                "file:///etc/passwd", "ftp://127.0.0.1/x", "::::", server.url("/to-file"),
                                server.url("/loop"), server.url("/sized"), server.url("/chunked")};
    for (const auto& url : urls) {
        HttpRequest r = get(url);
        r.maxBodyBytes = 100 * 1024;
        HttpResponse resp = fetch(r);
        EXPECT_TRUE(!resp.transportOk && !resp.errorText.empty() && resp.body.empty()) << url;
    }
    EXPECT_LE(server.countOn("/loop"), 12u) << "redirects are bounded";

    HttpRequest injected = get(server.url("/h"));
    injected.headers = {{"appkey", "k\r\nX-Injected: 1"}};
    EXPECT_FALSE(fetch(injected).transportOk);
    EXPECT_EQ(server.countOn("/h"), 0u) << "a header that would split is never sent";
    EXPECT_EQ(sigpipe(), before) << "the host's SIGPIPE handling is left alone";
}

TEST_F(HttpClientTest, RedirectsLeaveTheOriginOnlyWhenTheRequestAllowsIt) {
    TestServer elsewhere;
    elsewhere.on("/land", Answer::json("{}"));
    server.on("/land", Answer::json("{}"));
    server.redirect("/same", "/land", 307);
    server.redirect("/away", elsewhere.url("/land"), 307);
    const std::tuple<const char*, bool, bool, std::size_t> cases[] = {
        // path, cross-origin allowed, answered, requests that reached elsewhere
        {"/same", false, true, 0}, {"/away", false, false, 0}, {"/away", true, true, 1}};
    for (const auto& [path, crossOrigin, ok, elsewhereGets] : cases) {
        elsewhere.clearReceived();
        HttpRequest r = get(server.url(path), "POST");
        r.crossOriginRedirects = crossOrigin;
        EXPECT_EQ(fetch(r).transportOk, ok) << path << crossOrigin;
        EXPECT_EQ(elsewhere.count(), elsewhereGets) << path << crossOrigin;
    }
}

// The pool is warmed with kept-alive connections; the server then reads each
// request and closes without a word. Each send must reach it exactly once.
TEST_F(HttpClientTest, EachRequestGoesOutOnceOnItsOwnNewConnection) {
    constexpr std::size_t kWarm = 6;
    test::UnansweringServer closing(test::UnansweringServer::After::Close, kWarm);
    std::size_t answered = 0;
    for (std::size_t i = 0; i < kWarm; ++i)
        client.send(get(closing.url("/w")), [&](HttpResponse r) { answered += r.transportOk; });
    ASSERT_TRUE(loop.runUntil([&] { return client.inFlight() == 0; }, 20s));
    ASSERT_EQ(answered, kWarm);
    EXPECT_FALSE(fetch(get(closing.url("/x"), "POST")).transportOk);
    EXPECT_EQ(closing.unanswered(), 1u);
    EXPECT_EQ(closing.connections(), closing.count()) << "a connection was reused";
}

TEST_F(HttpClientTest, WorkerDeliveryAnswersWithoutTheLoopAndSurvivesAThrowingCompletion) {
    server.on("/a", Answer::json(R"({"k":1})"));
    std::promise<std::string> bodies[2];
    // The main loop is never run here: only a completion on the worker can answer.
    for (int i : {0, 1})
        client.send(get(server.url("/a")), [&, i](HttpResponse r) {
            bodies[i].set_value(r.body);
            if (i == 0) throw std::runtime_error("a careless completion");
        }, HttpClient::Delivery::Worker);
    for (auto& body : bodies) {
        auto future = body.get_future();
        ASSERT_EQ(future.wait_for(20s), std::future_status::ready) << "the worker stopped answering";
        EXPECT_EQ(future.get(), R"({"k":1})");
    }
}

TEST_F(HttpClientTest, AnotherLaneNeverWaitsBehindAHostsBusyConnections) {
    server.on("/track", Answer{.delay = 3s});  // trackers at a slow endpoint fill the host's slots
    server.on("/network", Answer::json("{}"));
    std::vector<std::string> order;
    for (int i = 0; i < 6; ++i) client.send(get(server.url("/track")), [&](HttpResponse) { order.push_back("track"); });
    HttpRequest bid = get(server.url("/network"), "POST");
    bid.lane = "bid";
    client.send(std::move(bid), [&](HttpResponse r) { order.push_back(r.status == 200 ? "bid" : "bid failed"); });
    ASSERT_TRUE(loop.runUntil([&] { return order.size() == 7; }, 60s));
    EXPECT_EQ(order.front(), "bid") << "the bid was queued behind the trackers";
}

TEST_F(HttpClientTest, RequestsInFlightOrQueuedAtDestructionEachFailOnceMarkedShutDown) {
    server.on("/slow", Answer{.delay = 300ms});
    std::vector<HttpResponse> got;
    {
        HttpClient doomed(loop);
        for (int i = 0; i < 8; ++i)  // more than one host's share: some are still queued
            doomed.send(get(server.url("/slow")), [&](HttpResponse r) { got.push_back(std::move(r)); });
        ASSERT_TRUE(server.waitForCount(1, 10s));
    }
    loop.drain();
    ASSERT_EQ(got.size(), 8u) << "every caller hears back exactly once";
    for (const auto& r : got) EXPECT_TRUE(!r.transportOk && r.shutDown);
}

// 1,500 requests to 250 hung hosts (listeners that never accept) under a 1,024-descriptor
// limit: open connections stay capped, so the host's own open() never meets EMFILE.
TEST(HttpClientLimits, StuckRequestsToManyHostsNeverExhaustTheHostsDescriptors) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            rlimit lim{};
            ::getrlimit(RLIMIT_NOFILE, &lim);
            lim.rlim_cur = std::min<rlim_t>(1024, lim.rlim_max);
            ::setrlimit(RLIMIT_NOFILE, &lim);
            std::vector<int> ports;
            for (int i = 0; i < 250; ++i) {
                sockaddr_in a = (sockaddr_in{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}});
                socklen_t len = sizeof a;
                const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
                if (::bind(fd, reinterpret_cast<sockaddr*>(&a), len) || ::listen(fd, 1) ||
                    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len))
                    std::_Exit(2);
                ports.push_back(ntohs(a.sin_port));
            }
            bool sawEmfile = false;
            std::size_t completed = 0;
            {
                MainLoop loop;
                HttpClient client(loop);
                for (int i = 0; i < 1500; ++i) {
                    HttpRequest r = get("http://127.0.0.1:" + std::to_string(ports[i % ports.size()]) + "/t");
                    r.timeout = 300ms;
                    client.send(r, [&](HttpResponse) {
                        ++completed;
                        const int fd = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
                        fd >= 0 ? void(::close(fd)) : void(sawEmfile = sawEmfile || errno == EMFILE);
                    });
                }
                loop.runUntil([&] { return completed == 1500; }, 120s);
            }
            std::_Exit(completed == 1500 && !sawEmfile ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace quov::platform
