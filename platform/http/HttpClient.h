#pragma once

#include <quov/MainLoop.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace quov::platform {

/// One HTTP exchange. Each request gets its own libcurl easy handle, its own
/// configuration and its own new connection; only the DNS and TLS session
/// caches are shared.
struct HttpRequest {
    std::string method = "GET";  // "GET" or "POST"
    std::string url;             // sent as given: callers encode
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::chrono::milliseconds timeout{60000};  // the whole exchange; below 1 ms counts as 1 ms
    std::chrono::milliseconds connectTimeout{10000};
    std::size_t maxBodyBytes = 4u << 20;  // larger answers fail instead of growing
    /// A label of the kind of traffic; every request waits in the same queue.
    std::string lane;
    /// False: a redirect to another origin (scheme, host, port), a scheme
    /// downgrade included, fails the request before anything is sent there, so
    /// custom headers and the body never leave the origin that was asked.
    bool crossOriginRedirects = true;
};

/// What came back. transportOk is false when no complete HTTP answer arrived
/// (refused, timed out, too large, unsupported scheme); errorText then says why.
struct HttpResponse {
    bool transportOk = false;
    /// The client was shut down before the answer came: final, trying again cannot help.
    bool shutDown = false;
    std::string errorText;
    long status = 0;
    std::string contentType;  // the Content-Type header as sent, empty if none
    std::string body;
};

/// The HTTP transport: one background worker thread owning a libcurl multi handle,
/// started lazily. Completions are posted to the main loop given at construction.
/// Only http and https (redirects too, at most 10), TLS verified, SIGPIPE blocked
/// in the worker only. Bodies above maxBodyBytes fail, chunked ones included.
///
/// Exactly one request per send: every request opens its own new connection and
/// closes it when done, and a request that fails is never sent again by the
/// transport, whatever the method; retrying is the caller's decision. The path is
/// sent as given, never normalised ("/a/../b" stays so).
///
/// Limits: at most kMaxOpenConnections (128) requests of a client are on the
/// wire at once, whatever their hosts, one connection each; the rest wait in one
/// queue, first come first served. So a hung host holds at most its own requests,
/// never the next ones to other hosts, and the client's descriptors stay bounded.
/// The SDK has one client (its context's), so the cap is the process's.
class HttpClient {
public:
    using Completion = std::function<void(HttpResponse)>;
    static constexpr std::size_t kMaxOpenConnections = 128;

    explicit HttpClient(MainLoop& loop);
    ~HttpClient();  // shutDown(), then frees the client

    /// Stops and joins the worker; requests in flight or queued, and every later
    /// send, complete once with a transport error marked shutDown. Idempotent;
    /// not on the worker's own thread.
    void shutDown();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// Any thread; never blocks on I/O. The completion runs once, on the main loop.
    void send(HttpRequest request, Completion completion);

    enum class Delivery {
        MainLoop,  // the completion is posted to the main loop
        /// The completion runs on the client's worker the moment the answer is complete
        /// (on the calling thread when the client is shut down). It must be quick and
        /// must not block: it is for handing the answer on without a detour through the
        /// main loop. What it throws is dropped.
        Worker,
    };
    void send(HttpRequest request, Completion completion, Delivery delivery);

    /// Requests handed over whose completion has not yet run.
    std::size_t inFlight() const;

private:
    struct Impl;
    Impl* impl_;
};

}  // namespace quov::platform
