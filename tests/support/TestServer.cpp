#include "support/TestServer.h"

#include "support/FaultServer.h"
#include "support/ListenBacklog.h"

#include <httplib.h>
#include <strings.h>

#include <algorithm>
#include <stdexcept>

namespace quov::test {

std::string Received::header(const std::string& name) const {
    for (const auto& [k, v] : headers)
        if (strcasecmp(k.c_str(), name.c_str()) == 0) return v;
    return "";
}

TestServer::TestServer() : server_(std::make_unique<httplib::Server>()) {
    // Without nodelay every reused connection stalls on Nagle and delayed ACKs. An idle
    // kept-alive connection pins a worker, and the destructor waits for every worker.
    server_->set_tcp_nodelay(true);
    server_->set_keep_alive_max_count(100000);
    server_->set_keep_alive_timeout(0);
    server_->new_task_queue = [] { return new httplib::ThreadPool(32); };

    auto handler = [this](const httplib::Request& req, httplib::Response& res) {
        const auto q = req.target.find('?');
        Received r{req.method, req.target, req.target.substr(0, q),
                   q == std::string::npos ? "" : req.target.substr(q + 1), {}, req.body};
        for (const auto& [k, v] : req.headers) r.headers.emplace(k, v);
        Answer a = Answer::text("not found", 404);
        {
            std::lock_guard lock(mutex_);
            if (auto it = scripts_.find(r.path); it != scripts_.end()) {
                auto& [answers, next] = it->second;
                a = answers[std::min(next++, answers.size() - 1)];
            }
            received_.push_back(std::move(r));
        }
        arrived_.notify_all();
        std::this_thread::sleep_for(a.delay);
        res.status = a.status;
        for (const auto& [k, v] : a.headers) res.set_header(k.c_str(), v);
        if (a.chunked) {
            auto body = std::make_shared<std::string>(std::move(a.body));
            res.set_chunked_content_provider(
                a.contentType.empty() ? "application/octet-stream" : a.contentType,
                [body, sent = std::size_t(0)](std::size_t, httplib::DataSink& sink) mutable {
                    const std::size_t piece = std::min<std::size_t>(64 * 1024, body->size() - sent);
                    if (piece > 0 && !sink.write(body->data() + sent, piece)) return false;
                    if ((sent += piece) == body->size()) sink.done();
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
    port_ = server_->bind_to_any_port("127.0.0.1");
    if (port_ <= 0) throw std::runtime_error("TestServer: cannot bind 127.0.0.1");
    raiseListenBacklog(port_);
    thread_ = std::thread([this] { server_->listen_after_bind(); });
    // stop() does nothing before the loop runs: a quick test would leave the destructor hanging.
    while (!server_->is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TestServer::~TestServer() {
    server_->stop();
    thread_.join();
}

void TestServer::onSequence(const std::string& path, std::vector<Answer> answers) {
    std::lock_guard lock(mutex_);
    scripts_[path] = {std::move(answers), 0};
}

void TestServer::redirect(const std::string& path, const std::string& location, int status) {
    Answer a = Answer::empty(status);
    a.headers.emplace_back("Location", location);
    on(path, std::move(a));
}

std::vector<Received> TestServer::received() const {
    std::lock_guard lock(mutex_);
    return received_;
}

std::vector<Received> TestServer::receivedOn(const std::string& path) const {
    auto all = received();
    std::erase_if(all, [&](const Received& r) { return r.path != path; });
    return all;
}

void TestServer::clearReceived() {
    std::lock_guard lock(mutex_);
    received_.clear();
}

bool TestServer::waitForCount(std::size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return received_.size() >= n; });
}

int TestServer::deadPort() {
    return FaultServer([](FaultServer::Conn&) {}).port();  // closed again at once: connecting is refused
}

}  // namespace quov::test
