#include "BidServerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <vector>

extern char** environ;

namespace demo {
namespace fs = std::filesystem;

namespace {

fs::path findServer() {
    std::error_code ec;
    const fs::path self = fs::read_symlink("/proc/self/exe", ec);
    if (ec) return {};
    const fs::path dir = self.parent_path();
    for (const fs::path& candidate :
         {dir / "quov-bid-server", dir.parent_path() / "tools" / "quov-bid-server"}) {
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return {};
}

}  // namespace

BidServerProcess::~BidServerProcess() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    int status = 0;
    ::waitpid(pid_, &status, 0);
    if (stdout_ >= 0) ::close(stdout_);
}

std::string BidServerProcess::start(std::string& error) {
    const fs::path server = findServer();
    if (server.empty()) {
        error = "cannot find quov-bid-server beside quov-demo";
        return {};
    }
    int out[2];
    if (::pipe2(out, O_CLOEXEC) != 0) {
        error = std::string("pipe: ") + std::strerror(errno);
        return {};
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    const std::string path = server.string();
    std::vector<char*> argv = {const_cast<char*>(path.c_str()), const_cast<char*>("--port"),
                               const_cast<char*>("0"), nullptr};
    const int rc = ::posix_spawn(&pid_, path.c_str(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    ::close(out[1]);
    if (rc != 0) {
        ::close(out[0]);
        pid_ = -1;
        error = "cannot start " + path + ": " + std::strerror(rc);
        return {};
    }

    // The server's first line on stdout: "listening on http://127.0.0.1:PORT".
    std::string line;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (line.find('\n') == std::string::npos && std::chrono::steady_clock::now() < deadline) {
        pollfd p{out[0], POLLIN, 0};
        if (::poll(&p, 1, 200) <= 0) continue;
        char buf[256];
        const ssize_t n = ::read(out[0], buf, sizeof buf);
        if (n <= 0) break;
        line.append(buf, static_cast<size_t>(n));
    }
    stdout_ = out[0];  // kept open: the server may still write at exit
    const std::string prefix = "listening on ";
    const auto at = line.find(prefix);
    const auto end = line.find('\n');
    if (at == std::string::npos || end == std::string::npos) {
        error = "quov-bid-server did not report its address";
        return {};
    }
    return line.substr(at + prefix.size(), end - at - prefix.size());
}

}  // namespace demo
