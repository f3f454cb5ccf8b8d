#pragma once

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

/// A socket listening on 127.0.0.1 at a free port (written to port); throws, naming
/// who, when the kernel refuses.
int listenOnLoopback(int backlog, int& port, const char* who);

/// One scripted answer of the test server.
struct Answer {
    int status = 200;
    std::string contentType;  // empty: no Content-Type header at all
    std::string body;
    std::chrono::milliseconds delay{0};  // slept before answering (a slow server)
    bool chunked = false;                // send the body chunked, without a Content-Length
    std::vector<std::pair<std::string, std::string>> headers;  // extra response headers

    static Answer json(std::string body, int status = 200) {
        return Answer{status, "application/json", std::move(body)};
    }
    static Answer text(std::string body, int status = 200) {
        return Answer{status, "text/plain", std::move(body)};
    }
    static Answer empty(int status = 200) { return Answer{status, "", ""}; }
};

/// One request as it arrived.
struct Received {
    std::string method;
    std::string target;  // the request target exactly as sent, escapes included
    std::string path;    // target before '?', still escaped
    std::string query;   // target after '?', still escaped; empty when none
    std::multimap<std::string, std::string> headers;  // names as sent by the client
    std::string body;

    /// The first header of that name (case-insensitive), or "" when absent.
    std::string header(const std::string& name) const;
    bool hasHeader(const std::string& name) const;
};

/// A real HTTP server on 127.0.0.1 with a port chosen by the kernel, for tests
/// and benchmarks. Answers are scripted per path (the path before '?', as
/// sent); unscripted paths get 404 "not found". Every request is recorded.
/// All members are thread-safe; the server runs on its own threads from the
/// constructor until the destructor.
class TestServer {
public:
    TestServer();
    ~TestServer();
    TestServer(const TestServer&) = delete;
    TestServer& operator=(const TestServer&) = delete;

    int port() const { return port_; }
    /// "http://127.0.0.1:<port>", no trailing slash.
    std::string base() const;
    /// base() + pathAndQuery (which starts with '/').
    std::string url(const std::string& pathAndQuery) const;

    /// Every request to path gets this answer.
    void on(const std::string& path, Answer answer);
    /// Requests to path get these answers in turn; the last one repeats.
    void onSequence(const std::string& path, std::vector<Answer> answers);
    /// Redirects path to location with the given 3xx status.
    void redirect(const std::string& path, const std::string& location, int status = 302);

    std::vector<Received> received() const;
    std::vector<Received> receivedOn(const std::string& path) const;
    std::size_t count() const;
    /// The most requests that were being answered at the same time.
    std::size_t maxConcurrent() const;
    std::size_t countOn(const std::string& path) const;
    void clearReceived();

    /// Blocks until at least n requests arrived or the timeout passed; true if they did.
    bool waitForCount(std::size_t n, std::chrono::milliseconds timeout) const;

    /// A loopback port that nothing listens on (bound, then closed).
    static int deadPort();

private:
    struct Script {
        std::vector<Answer> answers;
        std::size_t next = 0;
    };
    Answer answerFor(const std::string& path);

    std::unique_ptr<httplib::Server> server_;
    std::thread thread_;
    int port_ = 0;
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::map<std::string, Script> scripts_;
    std::vector<Received> received_;
    std::size_t inHandler_ = 0;
    std::size_t maxConcurrent_ = 0;
};

/// A bare loopback listener that records each request's raw bytes (request
/// line and headers exactly as sent, which the HTTP server above normalises:
/// it drops headers with empty values, for one) and answers every request with
/// one fixed response, closing the connection after it.
class RawRequestCapture {
public:
    explicit RawRequestCapture(std::string response =
                                   "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                                   "Content-Length: 2\r\nConnection: close\r\n\r\n{}");
    ~RawRequestCapture();
    RawRequestCapture(const RawRequestCapture&) = delete;
    RawRequestCapture& operator=(const RawRequestCapture&) = delete;

    int port() const { return port_; }
    std::string base() const;
    /// Head (up to and including the blank line) and body of each request, in arrival order.
    std::vector<std::pair<std::string, std::string>> requests() const;
    bool waitForCount(std::size_t n, std::chrono::milliseconds timeout) const;

private:
    void serve();
    std::string response_;
    int listenFd_ = -1;
    int port_ = 0;
    std::thread thread_;
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::vector<std::pair<std::string, std::string>> requests_;
};

/// A loopback server that answers its first `answered` requests on kept-alive
/// connections (warming a client's connection pool), then reads every later
/// request in full and either closes the connection at once without a word
/// (Close) or holds it open, silent, until the server ends (Stall).
class UnansweringServer {
public:
    enum class After { Close, Stall };
    explicit UnansweringServer(After after, std::size_t answered = 0,
                               std::string answer = "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\n"
                                                    "Content-Length: 2\r\n\r\n{}");
    ~UnansweringServer();  // closes every connection, stalled ones too
    UnansweringServer(const UnansweringServer&) = delete;
    UnansweringServer& operator=(const UnansweringServer&) = delete;

    int port() const { return port_; }
    std::string url(const std::string& pathAndQuery) const;
    /// Requests read in full, answered ones included.
    std::size_t count() const;
    /// Requests read in full and left unanswered.
    std::size_t unanswered() const;
    bool waitForUnanswered(std::size_t n, std::chrono::milliseconds timeout) const;
    /// Connections accepted so far.
    std::size_t connections() const;

private:
    void serve(int fd);
    After after_;
    std::size_t answered_;
    std::string answer_;
    int listenFd_ = -1;
    int port_ = 0;
    std::thread acceptor_;
    mutable std::mutex mutex_;
    mutable std::condition_variable arrived_;
    std::vector<std::thread> connections_;
    std::vector<int> fds_;
    std::size_t count_ = 0;
    std::size_t unanswered_ = 0;
    bool stopping_ = false;
};

}  // namespace quov::test
