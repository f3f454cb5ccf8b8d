#pragma once

#include <quov/MainLoop.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace quov::platform {

/// One HTTP exchange. Each request gets its own libcurl easy handle and its own
/// configuration; only the connection cache is shared.
struct HttpRequest {
    std::string method = "GET";  // "GET" or "POST"
    std::string url;             // sent as given: callers encode
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    std::chrono::milliseconds timeout{60000};
    std::chrono::milliseconds connectTimeout{10000};
    std::size_t maxBodyBytes = 4u << 20;  // larger answers fail instead of growing
    /// Requests queue for a host's few connections only behind others of their lane,
    /// so a bid or an image never waits behind a burst of slow trackers.
    std::string lane;
};

/// What came back. transportOk is false when no complete HTTP answer arrived
/// (refused, timed out, too large, unsupported scheme); errorText then says why.
struct HttpResponse {
    bool transportOk = false;
    std::string errorText;
    long status = 0;
    std::string contentType;  // the Content-Type header as sent, empty if none
    std::string body;
};

/// The HTTP transport: one background worker thread owning a libcurl multi handle,
/// started lazily. Completions are posted to the main loop given at construction.
/// Only http and https (redirects too, at most 10), TLS verified, SIGPIPE blocked
/// in the worker only. At most 6 transfers per scheme/host/port run at once; the
/// rest wait in order. Bodies above maxBodyBytes fail, chunked ones included.
class HttpClient {
public:
    using Completion = std::function<void(HttpResponse)>;

    /// The SDK's client, posting to MainLoop::shared().
    static HttpClient& shared();

    explicit HttpClient(MainLoop& loop);
    ~HttpClient();  // stops the worker; requests still in flight complete with a transport error
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    /// Any thread; never blocks on I/O. The completion runs once, on the main loop.
    void send(HttpRequest request, Completion completion);

    /// Requests handed over whose completion has not yet run.
    std::size_t inFlight() const;

private:
    struct Impl;
    Impl* impl_;
};

}  // namespace quov::platform
