#include "support/FaultServer.h"

#include "support/TestServer.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/evp.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
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

}  // namespace

bool FaultServer::Conn::next() {
    char buf[4096];
    for (;;) {
        if (const auto headEnd = pending.find("\r\n\r\n"); headEnd != std::string::npos) {
            std::string lower = pending.substr(0, headEnd);
            std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
            const auto at = lower.find("\r\ncontent-length:");
            const std::size_t end = headEnd + 4 + (at == std::string::npos ? 0 : std::strtoul(&lower[at + 17], nullptr, 10));
            if (pending.size() >= end) {
                head = pending.substr(0, headEnd + 4);
                body = pending.substr(headEnd + 4, end - headEnd - 4);
                pending.erase(0, end);
                return true;
            }
        }
        const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
        if (n <= 0) return false;
        pending.append(buf, static_cast<std::size_t>(n));
    }
}

bool FaultServer::Conn::send(std::string_view data) {
    while (!data.empty()) {
        const ssize_t n = server->stopping_ ? -1 : ::send(fd, data.data(), data.size(), MSG_NOSIGNAL);
        if (n <= 0) return false;
        data.remove_prefix(static_cast<std::size_t>(n));
    }
    return true;
}

bool FaultServer::Conn::pause(int ms) {
    pollfd p{fd, POLLRDHUP, 0};  // the destructor's shutdown() ends the wait as a hang-up does
    return ::poll(&p, 1, ms) == 0 && !server->stopping_;
}

void FaultServer::Conn::reset() {
    linger l{1, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_LINGER, &l, sizeof l);
}

FaultServer::FaultServer(Behaviour behaviour, bool tls)
    : behaviour_(std::move(behaviour)), sslContext_(tls ? selfSignedContext() : nullptr) {
    sockaddr_in addr{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
    socklen_t len = sizeof addr;
    listenFd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listenFd_ < 0 || ::bind(listenFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(listenFd_, 256) != 0 || ::getsockname(listenFd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0)
        throw std::runtime_error("FaultServer: cannot listen on 127.0.0.1");
    port_ = ntohs(addr.sin_port);
    acceptor_ = std::thread([this] {
        for (int fd, on = 1; (fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;) {
            std::lock_guard lock(mutex_);
            if (stopping_) {
                ::close(fd);
                return;
            }
            ++connections_;
            ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);  // a head and body sent apart never wait
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
    return std::string(sslContext_ ? "https" : "http") + "://127.0.0.1:" + std::to_string(port_);
}

void FaultServer::serve(int fd) {
    Conn conn;
    conn.fd = fd;
    conn.server = this;
    if (sslContext_) {
        // Only the handshake matters: a verifying client hangs up during it.
        SSL* ssl = SSL_new(static_cast<SSL_CTX*>(sslContext_));
        SSL_set_fd(ssl, fd);
        SSL_accept(ssl);
        SSL_free(ssl);
    } else if (conn.next()) {
        behaviour_(conn);
    }
    std::lock_guard lock(mutex_);
    std::replace(fds_.begin(), fds_.end(), fd, -1);
    ::close(fd);
}

UnansweringServer::UnansweringServer(After after, std::size_t answered)
    : server_(std::make_unique<FaultServer>([this, after, answered](FaultServer::Conn& c) {
          do {
              bool reply;
              {
                  std::lock_guard lock(mutex_);
                  reply = ++count_ <= answered;
                  unanswered_ += !reply;
              }
              arrived_.notify_all();
              if (!reply) {
                  if (after == After::Stall) c.pause(-1);
                  return;
              }
          } while (c.send("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 2\r\n\r\n{}") &&
                   c.next());
      })) {}

UnansweringServer::~UnansweringServer() = default;

std::string UnansweringServer::url(const std::string& pathAndQuery) const { return server_->base() + pathAndQuery; }

bool UnansweringServer::waitForUnanswered(std::size_t n, std::chrono::milliseconds timeout) const {
    std::unique_lock lock(mutex_);
    return arrived_.wait_for(lock, timeout, [&] { return unanswered_ >= n; });
}

std::size_t UnansweringServer::connections() const { return server_->connections(); }

}  // namespace quov::test
