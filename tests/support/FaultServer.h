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

/// A loopback listener whose every connection misbehaves in one scripted way: it
/// reads the request (head and Content-Length body), then hands the socket to the
/// behaviour, which writes what it likes for as long as it likes; the connection
/// closes when it returns. Behaviours must
/// stop when Conn::send fails or stopping() turns true; the destructor shuts every
/// socket down, so a behaviour blocked in a write returns at once.
/// With tls, each connection first does a TLS handshake with a certificate made at
/// start-up, signed by nobody (a client that verifies refuses it).
class FaultServer {
public:
    class Conn {
    public:
        /// Writes all of data; false once the peer or the server is gone.
        bool send(std::string_view data);
        /// Sleeps up to ms, less when the server stops; false when it stopped.
        bool pause(int ms);
        bool stopping() const;
        void reset();  // the close at the end sends RST instead of FIN

    private:
        friend class FaultServer;
        int fd = -1;
        FaultServer* server = nullptr;
    };
    using Behaviour = std::function<void(Conn&)>;

    explicit FaultServer(Behaviour behaviour, bool tls = false);
    ~FaultServer();
    FaultServer(const FaultServer&) = delete;
    FaultServer& operator=(const FaultServer&) = delete;

    int port() const { return port_; }
    /// "http://127.0.0.1:<port>" ("https://" with tls).
    std::string base() const;
    /// Connections accepted so far.
    std::size_t connections() const { return connections_.load(); }
    /// Bytes the behaviours managed to write, all connections together.
    std::size_t bytesSent() const { return bytesSent_.load(); }

private:
    void serve(int fd);
    void serveOn(int fd);
    Behaviour behaviour_;
    bool tls_;
    void* sslContext_ = nullptr;
    int listenFd_ = -1;
    int port_ = 0;
    std::atomic<bool> stopping_{false};
    std::atomic<std::size_t> connections_{0};
    std::atomic<std::size_t> bytesSent_{0};
    std::thread acceptor_;
    std::mutex mutex_;
    std::vector<std::thread> threads_;
    std::vector<int> fds_;
};

}  // namespace quov::test
