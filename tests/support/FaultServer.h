#pragma once

#include <atomic>
#include <cstddef>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace quov::test {

/// A raw loopback listener for what a well-behaved HTTP server never does: each
/// connection reads one request, then the behaviour writes what it likes. With tls, a
/// connection only does a handshake with a self-signed certificate.
class FaultServer {
public:
    class Conn {
    public:
        std::string head, body;  // the request just read; head ends with its blank line
        /// Reads the next request on this connection; false once the peer or the server is gone.
        bool next();
        /// Writes all of data; false once the peer or the server is gone.
        bool send(std::string_view data);
        /// Waits ms (-1: until the end); false when the peer hung up or the server stopped.
        bool pause(int ms);
        void reset();  // the close at the end sends RST instead of FIN

    private:
        friend class FaultServer;
        int fd = -1;
        FaultServer* server = nullptr;
        std::string pending;
    };
    using Behaviour = std::function<void(Conn&)>;

    explicit FaultServer(Behaviour behaviour, bool tls = false);
    ~FaultServer();

    int port() const { return port_; }
    /// "http://127.0.0.1:<port>" ("https://" with tls).
    std::string base() const;
    std::size_t connections() const { return connections_.load(); }

private:
    void serve(int fd);
    Behaviour behaviour_;
    void* sslContext_ = nullptr;
    int listenFd_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::atomic<std::size_t> connections_{0};
    std::thread acceptor_;
    std::mutex mutex_;
    std::vector<std::thread> threads_;
    std::vector<int> fds_;
};

}  // namespace quov::test
