#include "support/TestServer.h"

#include "support/FaultServer.h"

#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <stdexcept>

namespace quov::test {
namespace {

Received parse(const FaultServer::Conn& c) {
    Received r;
    std::istringstream in(c.head);
    std::string line;
    in >> r.method >> r.target;
    std::getline(in, line);  // the protocol version
    while (std::getline(in, line) && line.size() > 1) {  // each line ends in '\r'; the blank one is just that
        line.pop_back();
        if (const auto colon = line.find(':'); colon != std::string::npos) {
            std::string value = line.substr(colon + 1);
            value.erase(0, value.find_first_not_of(' '));
            r.headers.emplace(line.substr(0, colon), value);
        }
    }
    const auto q = r.target.find('?');
    r.path = r.target.substr(0, q);
    r.query = q == std::string::npos ? "" : r.target.substr(q + 1);
    r.body = c.body;
    return r;
}

std::string reply(const Answer& a) {
    std::string out = "HTTP/1.1 " + std::to_string(a.status) + " Scripted\r\n";
    if (!a.contentType.empty()) out += "Content-Type: " + a.contentType + "\r\n";
    for (const auto& [k, v] : a.headers) out += k + ": " + v + "\r\n";
    if (!a.chunked) return out + "Content-Length: " + std::to_string(a.body.size()) + "\r\n\r\n" + a.body;
    out += "Transfer-Encoding: chunked\r\n\r\n";
    for (std::size_t at = 0; at < a.body.size(); at += 64 * 1024) {
        const std::string piece = a.body.substr(at, 64 * 1024);
        char size[24];
        std::snprintf(size, sizeof size, "%zx\r\n", piece.size());
        out += size + piece + "\r\n";
    }
    return out + "0\r\n\r\n";
}

}  // namespace

std::string Received::header(const std::string& name) const {
    for (const auto& [k, v] : headers)
        if (strcasecmp(k.c_str(), name.c_str()) == 0) return v;
    return "";
}

TestServer::TestServer()
    : server_(std::make_unique<FaultServer>([this](FaultServer::Conn& c) {
          do {
              const Answer a = answer(parse(c));
              if (a.delay.count() > 0 && !c.pause(static_cast<int>(a.delay.count()))) return;
              if (!c.send(reply(a))) return;
          } while (c.next());
      })) {}

Answer TestServer::answer(Received r) {
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
    return a;
}

TestServer::~TestServer() = default;

std::string TestServer::base() const { return server_->base(); }

void TestServer::onSequence(const std::string& path, std::vector<Answer> answers) {
    if (answers.empty()) throw std::invalid_argument("TestServer::onSequence: no answers");
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
