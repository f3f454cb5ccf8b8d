#include "support/TestServer.h"

#include "support/ListenBacklog.h"

#include <httplib.h>
#include <netinet/in.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace quov::test {

int listenOnLoopback(int backlog, int& port, const char* who) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 || ::listen(fd, backlog) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
        if (fd >= 0) ::close(fd);
        throw std::runtime_error(std::string(who) + ": cannot listen on 127.0.0.1");
    }
    port = ntohs(addr.sin_port);
    return fd;
}

std::string Received::header(const std::string& name) const {
    for (const auto& [k, v] : headers)
        if (strcasecmp(k.c_str(), name.c_str()) == 0) return v;
    return "";
}

bool Received::hasHeader(const std::string& name) const {
    return std::any_of(headers.begin(), headers.end(),
                       [&](const auto& kv) { return strcasecmp(kv.first.c_str(), name.c_str()) == 0; });
}

TestServer::TestServer() : server_(std::make_unique<httplib::Server>()) {
    // Without these every reused connection stalls on Nagle and delayed ACKs,
    // and keep-alive ends after a handful of requests.
    server_->set_tcp_nodelay(true);
    server_->set_keep_alive_max_count(100000);
    // An idle kept-alive connection pins a worker until this runs out, and the
    // destructor waits for every worker: drop idle connections at once (clients
    // reconnect or retry on their own).
    server_->set_keep_alive_timeout(0);
    server_->set_payload_max_length(64u << 20);
    // Each kept-alive connection holds a worker; several clients at once need more than the default.
    server_->new_task_queue = [] { return new httplib::ThreadPool(32); };

    auto handler = [this](const httplib::Request& req, httplib::Response& res) {
        Received r;
        r.method = req.method;
        r.target = req.target;
        const auto q = req.target.find('?');
        r.path = req.target.substr(0, q);
        if (q != std::string::npos) r.query = req.target.substr(q + 1);
        for (const auto& [k, v] : req.headers) r.headers.emplace(k, v);
        r.body = req.body;
        const std::string path = r.path;
        {
            std::lock_guard lock(mutex_);
            received_.push_back(std::move(r));
            maxConcurrent_ = std::max(maxConcurrent_, ++inHandler_);
        }
        arrived_.notify_all();

        Answer a = answerFor(path);
        if (a.delay.count() > 0) std::this_thread::sleep_for(a.delay);
        {
            std::lock_guard lock(mutex_);
            --inHandler_;
        }
        res.status = a.status;
        for (const auto& [k, v] : a.headers) res.set_header(k.c_str(), v);
        if (a.chunked) {
            auto body = std::make_shared<std::string>(std::move(a.body));
            res.set_chunked_content_provider(
                a.contentType.empty() ? "application/octet-stream" : a.contentType,
                [body, sent = std::size_t(0)](std::size_t, httplib::DataSink& sink) mutable {
                    const std::size_t piece = std::min<std::size_t>(64 * 1024, body->size() - sent);
                    if (piece > 0 && !sink.write(body->data() + sent, piece)) return false;
                    sent += piece;
                    if (sent == body->size()) sink.done();
                    return true;
                });
        } else if (!a.contentType.empty()) {
            res.set_content(a.body, a.contentType.c_str());
        } else {
            res.body = a.body;
        }
    };
    server_->Get(".*", handler);
    server_->Post(".*", handler);
    server_->Put(".*", handler);
    server_->Delete(".*", handler);

    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ > 0) raiseListenBacklog(port_);
    if (port_ <= 0) throw std::runtime_error("TestServer: cannot bind 127.0.0.1");
    // The socket already listens, so connections made before the loop runs just queue.
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // stop() is a no-op until the loop runs, so a quick test could otherwise
    // leave the destructor joining a server that never stops.
    for (int i = 0; i < 10000 && !server_->is_running(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TestServer::~TestServer() {
    server_->stop();
    if (thread_.joinable()) thread_.join();
}

std::string TestServer::base() const { return "http://127.0.0.1:" + std::to_string(port_); }

std::string TestServer::url(const std::string& pathAndQuery) const { return base() + pathAndQuery; }

void TestServer::on(const std::string& path, Answer answer) { onSequence(path, {std::move(answer)}); }

void TestServer::onSequence(const std::string& path, std::vector<Answer> answers) {
    if (answers.empty()) throw std::invalid_argument("TestServer::onSequence: no answers");
    std::lock_guard lock(mutex_);
    scripts_[path] = Script{std::move(answers), 0};
}

void TestServer::redirect(const std::string& path, const std::string& location, int status) {
    Answer a{status, "", ""};
    a.headers.emplace_back("Location", location);
    on(path, std::move(a));
}

Answer TestServer::answerFor(const std::string& path) {
    std::lock_guard lock(mutex_);
    auto it = scripts_.find(path);
    if (it == scripts_.end()) return Answer::text("not found", 404);
    Script& s = it->second;
    Answer a = s.answers[std::min(s.next, s.answers.size() - 1)];
    ++s.next;
    return a;
}

std::vector<Received> TestServer::received() const {
    std::lock_guard lock(mutex_);
    return received_;
}

std::vector<Received> TestServer::receivedOn(const std::string& path) const {
    std::vector<Received> out;
    for (auto& r : received())
        if (r.path == path) out.push_back(std::move(r));
    return out;
}

std::size_t TestServer::count() const {
    std::lock_guard lock(mutex_);
    return received_.size();
}

std::size_t TestServer::maxConcurrent() const {
    std::lock_guard lock(mutex_);
    return maxConcurrent_;
}

std::size_t TestServer::countOn(const std::string& path) const { return receivedOn(path).size(); }

void TestServer::clearReceived() {
    std::lock_guard lock(mutex_);
    received_.clear();
}

bool TestServer::waitForCount(std::size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return received_.size() >= n; });
}

int TestServer::deadPort() {
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    if (fd < 0) throw std::runtime_error("TestServer::deadPort: socket");
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    addr.sin_port = 0;
    socklen_t len = sizeof addr;
    if (::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0) {
        ::close(fd);
        throw std::runtime_error("TestServer::deadPort: bind");
    }
    ::close(fd);  // never listened: connecting now is refused
    return ntohs(addr.sin_port);
}

RawRequestCapture::RawRequestCapture(std::string response) : response_(std::move(response)) {
    listenFd_ = listenOnLoopback(16, port_, "RawRequestCapture");
    thread_ = std::thread([this] { serve(); });
}

RawRequestCapture::~RawRequestCapture() {
    ::shutdown(listenFd_, SHUT_RDWR);  // wakes the accept loop
    if (thread_.joinable()) thread_.join();
    ::close(listenFd_);
}

std::string RawRequestCapture::base() const { return "http://127.0.0.1:" + std::to_string(port_); }

std::vector<std::pair<std::string, std::string>> RawRequestCapture::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

bool RawRequestCapture::waitForCount(std::size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return requests_.size() >= n; });
}

void RawRequestCapture::serve() {
    for (;;) {
        int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) return;
        std::string data;
        std::size_t headEnd = std::string::npos;
        std::size_t want = std::string::npos;
        char buf[4096];
        while (want == std::string::npos || data.size() < want) {
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, 5000) <= 0) break;
            const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
            if (n <= 0) break;
            data.append(buf, static_cast<std::size_t>(n));
            if (headEnd == std::string::npos && (headEnd = data.find("\r\n\r\n")) != std::string::npos) {
                headEnd += 4;
                std::size_t length = 0;
                for (std::size_t at = 0; at < headEnd;) {
                    const std::size_t eol = data.find("\r\n", at);
                    const std::string line = data.substr(at, eol - at);
                    if (strncasecmp(line.c_str(), "content-length:", 15) == 0)
                        length = std::strtoul(line.c_str() + 15, nullptr, 10);
                    at = eol + 2;
                }
                want = headEnd + length;
            }
        }
        if (headEnd != std::string::npos) {
            {
                std::lock_guard lock(mutex_);
                requests_.emplace_back(data.substr(0, headEnd), data.substr(headEnd));
            }
            arrived_.notify_all();
            (void)::send(fd, response_.data(), response_.size(), MSG_NOSIGNAL);
        }
        ::close(fd);
    }
}

namespace {

// Reads one request (head plus a Content-Length body); false at end of stream.
bool readRequest(int fd, std::string& pending) {
    char buf[4096];
    for (;;) {
        const std::size_t headEnd = pending.find("\r\n\r\n");
        if (headEnd != std::string::npos) {
            std::size_t length = 0;
            for (std::size_t at = 0; at < headEnd;) {
                const std::size_t eol = pending.find("\r\n", at);
                if (strncasecmp(pending.c_str() + at, "content-length:", 15) == 0)
                    length = std::strtoul(pending.c_str() + at + 15, nullptr, 10);
                at = eol + 2;
            }
            if (pending.size() >= headEnd + 4 + length) {
                pending.erase(0, headEnd + 4 + length);
                return true;
            }
        }
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) return false;
        pending.append(buf, static_cast<std::size_t>(n));
    }
}

}  // namespace

UnansweringServer::UnansweringServer(After after, std::size_t answered, std::string answer)
    : after_(after), answered_(answered), answer_(std::move(answer)) {
    listenFd_ = listenOnLoopback(256, port_, "UnansweringServer");
    acceptor_ = std::thread([this] {
        for (;;) {
            const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) return;
            std::lock_guard lock(mutex_);
            if (stopping_) {
                ::close(fd);
                return;
            }
            fds_.push_back(fd);
            connections_.emplace_back([this, fd] { serve(fd); });
        }
    });
}

UnansweringServer::~UnansweringServer() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        // Wakes every reader; the descriptors are closed after the joins.
        for (int fd : fds_) ::shutdown(fd, SHUT_RDWR);
    }
    ::shutdown(listenFd_, SHUT_RDWR);
    acceptor_.join();
    for (auto& t : connections_) t.join();
    for (int fd : fds_) ::close(fd);
    ::close(listenFd_);
}

std::string UnansweringServer::url(const std::string& pathAndQuery) const {
    return "http://127.0.0.1:" + std::to_string(port_) + pathAndQuery;
}

std::size_t UnansweringServer::count() const {
    std::lock_guard lock(mutex_);
    return count_;
}

std::size_t UnansweringServer::unanswered() const {
    std::lock_guard lock(mutex_);
    return unanswered_;
}

std::size_t UnansweringServer::connections() const {
    std::lock_guard lock(mutex_);
    return fds_.size();
}

bool UnansweringServer::waitForUnanswered(std::size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return unanswered_ >= n; });
}

void UnansweringServer::serve(int fd) {
    std::string pending;
    while (readRequest(fd, pending)) {
        bool answer;
        {
            std::lock_guard lock(mutex_);
            answer = ++count_ <= answered_;
            if (!answer) ++unanswered_;
        }
        arrived_.notify_all();
        if (answer) {
            (void)::send(fd, answer_.data(), answer_.size(), MSG_NOSIGNAL);
            continue;
        }
        if (after_ == After::Close) {
            ::shutdown(fd, SHUT_RDWR);
            return;
        }
        char sink[512];  // stall: drain until the client or the destructor ends it
        while (::recv(fd, sink, sizeof sink, 0) > 0) {}
        return;
    }
}

}  // namespace quov::test
