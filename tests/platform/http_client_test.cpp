#include "platform/http/HttpClient.h"

#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

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

TEST_F(HttpClientTest, AFewRequestsPerHostAtOnceTheRestQueuedAllOnTheLoopThread) {
    Answer slow = Answer::empty();
    slow.delay = 20ms;
    server.on("/q", slow);
    TestServer other;
    other.on("/q", slow);
    const auto mainThread = std::this_thread::get_id();
    int ok = 0;
    bool allOnMain = true;
    for (int i = 0; i < 30; ++i) {
        for (TestServer* s : {&server, &other}) {
            client.send(get(s->url("/q")), [&](HttpResponse r) {
                allOnMain = allOnMain && std::this_thread::get_id() == mainThread;
                ok += r.transportOk && r.status == 200;
            });
        }
    }
    EXPECT_EQ(client.inFlight(), 60u);
    ASSERT_TRUE(loop.runUntil([&] { return client.inFlight() == 0; }, 60s));
    EXPECT_EQ(ok, 60);
    EXPECT_TRUE(allOnMain);
    EXPECT_LE(server.maxConcurrent(), 6u);
    EXPECT_LE(other.maxConcurrent(), 6u);
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

// Answers the first request on each connection and keeps it open, then resets
// the connection when a second request arrives on it: a server whose keep-alive
// timer fires just as the client reuses the connection.
class ResettingServer {
public:
    ResettingServer() {
        fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof a;
        EXPECT_EQ(::bind(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
        ::listen(fd_, 8);
        ::getsockname(fd_, reinterpret_cast<sockaddr*>(&a), &len);
        port = ntohs(a.sin_port);
        thread_ = std::thread([this] { serve(); });
    }
    ~ResettingServer() {
        stop_ = true;
        ::shutdown(fd_, SHUT_RDWR);
        thread_.join();
        ::close(fd_);
    }
    int port = 0;
    std::atomic<int> requests{0};

private:
    bool readRequest(int c) {
        std::string data;
        char buf[2048];
        while (data.find("\r\n\r\n") == std::string::npos) {
            if (!waitReadable(c)) return false;
            const ssize_t n = ::recv(c, buf, sizeof buf, 0);
            if (n <= 0) return false;
            data.append(buf, static_cast<std::size_t>(n));
        }
        ++requests;
        return true;
    }
    bool waitReadable(int c) {
        for (pollfd p{c, POLLIN, 0}; !stop_;)
            if (int ready = ::poll(&p, 1, 20); ready != 0) return ready > 0;
        return false;
    }
    void serve() {
        for (int c; (c = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            if (readRequest(c)) {
                const char ok[] = "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n";
                (void)::send(c, ok, sizeof ok - 1, MSG_NOSIGNAL);
                if (waitReadable(c)) {  // the reuse arrives: reset without reading it
                    ++requests;
                    linger reset{1, 0};
                    ::setsockopt(c, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
                }
            }
            ::close(c);
        }
    }
    int fd_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;
};

TEST_F(HttpClientTest, ARequestLostOnAReusedConnectionIsSentAgainOnANewOne) {
    ResettingServer reset;
    const std::string url = "http://127.0.0.1:" + std::to_string(reset.port) + "/t";
    EXPECT_TRUE(fetch(get(url)).transportOk);
    HttpResponse second = fetch(get(url));
    EXPECT_TRUE(second.transportOk) << second.errorText;
    EXPECT_EQ(second.status, 200);
    EXPECT_EQ(reset.requests.load(), 3) << "sent, lost, sent again";
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
    for (const auto& r : got) EXPECT_FALSE(r.transportOk);
}

}  // namespace
}  // namespace quov::platform
