#pragma once

#include <dirent.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdlib>

namespace quov::test {

/// Debian's compiled HTTP server listens with a backlog of 5. The SDK opens every
/// tracker of an ad at once (up to 128 connections), so a loopback server must queue
/// as many as a real one would; listen() again on its socket raises the backlog.
inline void raiseListenBacklog(int port, int backlog = 512) {
    DIR* fds = ::opendir("/proc/self/fd");
    if (!fds) return;
    while (dirent* entry = ::readdir(fds)) {
        const int fd = std::atoi(entry->d_name);
        sockaddr_in addr{};
        socklen_t len = sizeof addr;
        int listening = 0;
        socklen_t optLen = sizeof listening;
        if (fd <= 2 || ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) != 0 ||
            addr.sin_family != AF_INET || ntohs(addr.sin_port) != port ||
            ::getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &optLen) != 0 || !listening)
            continue;
        ::listen(fd, backlog);
    }
    ::closedir(fds);
}

}  // namespace quov::test
