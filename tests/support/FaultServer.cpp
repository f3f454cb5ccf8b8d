#include "support/FaultServer.h"

#include "support/TestServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <stdexcept>

namespace quov::test {
namespace {

// A fresh key and a certificate for 127.0.0.1 that signs itself.
SSL_CTX* selfSignedContext() {
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    X509_set_version(cert, 2);
    ASN1_INTEGER_set(X509_get_serialNumber(cert), 1);
    X509_gmtime_adj(X509_getm_notBefore(cert), 0);
    X509_gmtime_adj(X509_getm_notAfter(cert), 3600);
    X509_set_pubkey(cert, key);
    X509_NAME* name = X509_get_subject_name(cert);
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_ASC, reinterpret_cast<const unsigned char*>("127.0.0.1"), -1,
                               -1, 0);
    X509_set_issuer_name(cert, name);
    X509_sign(cert, key, EVP_sha256());
    SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
    SSL_CTX_use_certificate(ctx, cert);
    SSL_CTX_use_PrivateKey(ctx, key);
    X509_free(cert);
    EVP_PKEY_free(key);
    return ctx;
}

// Reads the request head and a Content-Length body; false when the peer left.
bool readRequest(int fd) {
    std::string data;
    char buf[4096];
    std::size_t headEnd = std::string::npos;
    while (headEnd == std::string::npos) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) return false;
        data.append(buf, static_cast<std::size_t>(n));
        headEnd = data.find("\r\n\r\n");
    }
    std::size_t length = 0;
    std::string head = data.substr(0, headEnd);
    std::transform(head.begin(), head.end(), head.begin(), [](unsigned char c) { return std::tolower(c); });
    if (const auto at = head.find("content-length:"); at != std::string::npos)
        length = std::strtoul(head.c_str() + at + 15, nullptr, 10);
    while (data.size() - headEnd - 4 < length) {
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) return false;
        data.append(buf, static_cast<std::size_t>(n));
    }
    return true;
}

}  // namespace

bool FaultServer::Conn::send(std::string_view data) {
    while (!data.empty()) {
        if (stopping()) return false;
        const ssize_t n = ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (n <= 0) return false;
        server->bytesSent_ += static_cast<std::size_t>(n);
        data.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

bool FaultServer::Conn::pause(int ms) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
    while (!stopping()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        if (left.count() <= 0) return true;
        // Wakes early when the peer hangs up or the server shuts the socket down.
        pollfd p{fd, POLLIN | POLLRDHUP, 0};
        if (::poll(&p, 1, static_cast<int>(std::min<long>(left.count(), 50))) > 0 &&
            (p.revents & (POLLRDHUP | POLLHUP | POLLERR)))
            return false;
    }
    return false;
}

bool FaultServer::Conn::stopping() const { return server->stopping_.load(); }

void FaultServer::Conn::reset() {
    // Closing with a zero linger sends RST instead of FIN.
    linger l{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
}

FaultServer::FaultServer(Behaviour behaviour, bool tls) : behaviour_(std::move(behaviour)), tls_(tls) {
    if (tls_) sslContext_ = selfSignedContext();
    listenFd_ = listenOnLoopback(64, port_, "FaultServer");
    acceptor_ = std::thread([this] {
        for (;;) {
            const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0) return;  // the listener was shut down
            std::lock_guard lock(mutex_);
            if (stopping_) {
                ::close(fd);
                return;
            }
            ++connections_;
            fds_.push_back(fd);
            threads_.emplace_back([this, fd] { serve(fd); });
        }
    });
}

FaultServer::~FaultServer() {
    {
        std::lock_guard lock(mutex_);
        stopping_ = true;
        for (int fd : fds_)
            if (fd >= 0) ::shutdown(fd, SHUT_RDWR);
    }
    ::shutdown(listenFd_, SHUT_RDWR);
    acceptor_.join();
    for (std::thread& t : threads_) t.join();
    ::close(listenFd_);
    if (sslContext_) SSL_CTX_free(static_cast<SSL_CTX*>(sslContext_));
}

std::string FaultServer::base() const {
    return std::string(tls_ ? "https" : "http") + "://127.0.0.1:" + std::to_string(port_);
}

void FaultServer::serve(int fd) {
    serveOn(fd);
    std::lock_guard lock(mutex_);
    std::replace(fds_.begin(), fds_.end(), fd, -1);
    ::close(fd);
}

void FaultServer::serveOn(int fd) {
    if (tls_) {
        // Only the handshake matters: a verifying client hangs up during it.
        SSL* ssl = SSL_new(static_cast<SSL_CTX*>(sslContext_));
        SSL_set_fd(ssl, fd);
        SSL_accept(ssl);
        SSL_free(ssl);
        return;
    }
    if (!readRequest(fd)) return;
    Conn conn;
    conn.fd = fd;
    conn.server = this;
    behaviour_(conn);
}

}  // namespace quov::test
