#include "network/Tracking.h"

#include <quov/QVRequestHelper.h>

#include "network/ResponseRule.h"
#include "platform/Context.h"
#include "platform/http/HttpClient.h"
#include "platform/runtime/Log.h"

#include <atomic>
#include <memory>
#include <stdexcept>

namespace quov {
namespace network {
namespace {

// Atomic because a host may start tracking off its main thread, and flush reads it.
std::atomic<std::size_t> pendingCount{0};
std::atomic<std::chrono::milliseconds::rep> attemptTimeoutMs{60000};

bool inQuerySet(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    switch (c) {
        case '-': case '.': case '_': case '~': case '!': case '$': case '&': case '\'':
        case '(': case ')': case '*': case '+': case ',': case ';': case '=': case ':':
        case '@': case '/': case '?':
            return true;
        default:
            return false;
    }
}

struct Chain {
    std::string url;  // as passed in: every attempt encodes afresh
    TrackingSuccess success;
    TrackingFailure failure;
};

// Ends the chain's share of the pending count even if a callback throws.
struct ChainEnd {
    ~ChainEnd() { --pendingCount; }
};

void attempt(std::shared_ptr<Chain> chain, std::uint64_t n) {
    platform::HttpRequest request;
    request.url = percentEncodeQuery(chain->url);
    request.timeout = std::chrono::milliseconds(attemptTimeoutMs.load());
    platform::QVLog("GET URL WITH retry, %lu, %@", std::to_string(n), chain->url);
    platform::Context::shared().http().send(std::move(request), [chain, n](platform::HttpResponse r) {
        JsonOutcome outcome = evaluateJsonResponse(r);
        // A shut-down client fails every later attempt too, and by then the
        // host may be tearing down statics: end the chain here.
        if (!outcome.ok && n > 1 && !r.shutDown) {
            platform::QVLog("Retry request with url: %@, error: %@", chain->url, outcome.error.describe());
            attempt(chain, n - 1);
            return;
        }
        ChainEnd end;
        if (outcome.ok) {
            if (chain->success) chain->success(outcome.body ? &*outcome.body : nullptr);
        } else if (chain->failure) {
            chain->failure(outcome.error);
        }
    });
}

}  // namespace

std::string percentEncodeQuery(std::string_view text) {
    static constexpr char kHex[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(text.size() + text.size() / 4);
    for (char ch : text) {
        const auto c = static_cast<unsigned char>(ch);
        if (inQuerySet(c)) {
            out += ch;
        } else {
            out += '%';
            out += kHex[c >> 4];
            out += kHex[c & 0x0F];
        }
    }
    return out;
}

std::size_t pendingTrackingRequests() { return pendingCount.load(); }

void setTrackingTimeout(std::chrono::milliseconds timeout) { attemptTimeoutMs = timeout.count(); }

void startTracking(const std::string& url, std::uint64_t attempts, TrackingSuccess success,
                   TrackingFailure failure) {
    auto chain = std::make_shared<Chain>(Chain{url, std::move(success), std::move(failure)});
    ++pendingCount;
    try {
        attempt(std::move(chain), attempts);
    } catch (...) {
        --pendingCount;
        throw;
    }
}

}  // namespace network
}  // namespace quov
