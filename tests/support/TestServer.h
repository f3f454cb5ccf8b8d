#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace httplib {
class Server;
}

namespace quov::test {

class FaultServer;

/// One scripted answer of the test server.
struct Answer {
    int status = 200;
    std::string contentType;  // empty: no Content-Type header at all
    std::string body;
    std::chrono::milliseconds delay{0};  // slept before answering
    bool chunked = false;                // no Content-Length
    std::vector<std::pair<std::string, std::string>> headers;

    static Answer json(std::string body, int status = 200) { return {status, "application/json", std::move(body)}; }
    static Answer text(std::string body, int status = 200) { return {status, "text/plain", std::move(body)}; }
    static Answer empty(int status = 200) { return {status, "", ""}; }
};

/// One request as it arrived; target, path and query still escaped.
struct Received {
    std::string method, target, path, query;
    std::multimap<std::string, std::string> headers;
    std::string body;
    /// The first header of that name (case-insensitive), or "".
    std::string header(const std::string& name) const;
};

/// A real HTTP server on 127.0.0.1, answering as scripted per path (unscripted: 404)
/// and recording every request. Thread-safe.
class TestServer {
public:
    TestServer();
    ~TestServer();

    std::string base() const { return "http://127.0.0.1:" + std::to_string(port_); }
    std::string url(const std::string& pathAndQuery) const { return base() + pathAndQuery; }

    void on(const std::string& path, Answer answer) { onSequence(path, {std::move(answer)}); }
    /// These answers in turn; the last one repeats.
    void onSequence(const std::string& path, std::vector<Answer> answers);
    void redirect(const std::string& path, const std::string& location, int status = 302);

    std::vector<Received> received() const;
    std::vector<Received> receivedOn(const std::string& path) const;
    std::size_t count() const { return received().size(); }
    std::size_t countOn(const std::string& path) const { return receivedOn(path).size(); }
    void clearReceived();
    bool waitForCount(std::size_t n, std::chrono::milliseconds timeout) const;

    /// A loopback port that nothing listens on.
    static int deadPort();

private:
    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    int port_ = 0;
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::map<std::string, std::pair<std::vector<Answer>, std::size_t>> scripts_;
    std::vector<Received> received_;
};

/// Answers its first `answered` requests on kept-alive connections, then reads each
/// later one and closes without a word or holds the connection open, silent.
class UnansweringServer {
public:
    enum class After { Close, Stall };
    explicit UnansweringServer(After after, std::size_t answered = 0);
    ~UnansweringServer();

    std::string url(const std::string& pathAndQuery) const;
    std::size_t count() const { return count_; }  // requests read, answered ones included
    std::size_t unanswered() const { return unanswered_; }
    bool waitForUnanswered(std::size_t n, std::chrono::milliseconds timeout) const;
    std::size_t connections() const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::atomic<std::size_t> count_{0}, unanswered_{0};
    std::unique_ptr<FaultServer> server_;  // last: its threads use the members above
};

}  // namespace quov::test
