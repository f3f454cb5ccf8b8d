#pragma once

#include <string>
#include <sys/types.h>

namespace demo {

/// The bundled sample bid server, run as a child process on a free loopback port.
class BidServerProcess {
public:
    BidServerProcess() = default;
    ~BidServerProcess();  // stops the child
    BidServerProcess(const BidServerProcess&) = delete;
    BidServerProcess& operator=(const BidServerProcess&) = delete;

    /// Finds quov-bid-server beside this program (or in the build tree's tools/),
    /// starts it with --port 0 and returns its base URL; empty with `error` set on failure.
    std::string start(std::string& error);

private:
    pid_t pid_ = -1;
    int stdout_ = -1;
};

}  // namespace demo
