#include "network/Tracking.h"

#include <quov/QVRequestHelper.h>

#include "network/ResponseRule.h"
#include "platform/Context.h"
#include "platform/http/HttpClient.h"
#include "platform/runtime/Log.h"
#include "platform/runtime/TaskWorker.h"

#include <atomic>
#include <memory>
#include <optional>
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
    std::function<std::string()> makeUrl;  // run once on the task worker, then cleared
    bool offMain = false;                  // encoding on the task worker, every attempt
};

// Ends the chain's share of the pending count even if a callback throws.
struct ChainEnd {
    ~ChainEnd() { --pendingCount; }
};

void end(const Chain& chain, const JsonOutcome& outcome) {
    ChainEnd done;
    if (outcome.ok) {
        if (chain.success) chain.success(outcome.body ? &*outcome.body : nullptr);
    } else if (chain.failure) {
        chain.failure(outcome.error);
    }
}

void endFailed(const Chain& chain, std::string why) {
    JsonOutcome failed;
    failed.error = Error{kHttpErrorDomain, kHttpTransport, "Request failed: " + why};
    end(chain, failed);
}

// Returning an address of megabytes to the system costs milliseconds: the copies
// the main thread is left holding are freed on the task worker instead.
constexpr std::size_t kFreeOnWorkerBytes = 64 * 1024;

template <class T>
void freeOnWorker(T value) {
    platform::Context::shared().tasks().submit([v = std::move(value)] {});
}

std::string attemptLine(const Chain& chain, std::uint64_t n) {
    return platform::formatLine("GET URL WITH retry, %lu, %@", {std::to_string(n), chain.url});
}

void attempt(std::shared_ptr<Chain> chain, std::uint64_t n);
void attemptOffMain(std::shared_ptr<Chain> chain, std::uint64_t n, std::optional<std::string> retryError);

// One attempt of an already encoded url, its log line made. Main thread.
void send(std::shared_ptr<Chain> chain, std::uint64_t n, std::string encoded, const std::string& line) {
    platform::HttpRequest request;
    request.url = std::move(encoded);
    request.timeout = std::chrono::milliseconds(attemptTimeoutMs.load());
    platform::logLine(line);
    platform::Context::shared().http().send(std::move(request), [chain, n](platform::HttpResponse r) mutable {
        JsonOutcome outcome = evaluateJsonResponse(r);
        // A shut-down client fails every later attempt too, and by then the
        // host may be tearing down statics: end the chain here.
        if (!outcome.ok && n > 1 && !r.shutDown) {
            if (chain->offMain) {
                attemptOffMain(chain, n - 1, outcome.error.describe());
                return;
            }
            platform::QVLog("Retry request with url: %@, error: %@", chain->url, outcome.error.describe());
            attempt(chain, n - 1);
            return;
        }
        end(*chain, outcome);
        if (chain->offMain && chain->url.size() >= kFreeOnWorkerBytes) freeOnWorker(std::move(chain));
    });
}

// The worker's job for one attempt of an off-main chain. A job the worker drops
// unrun (it is shutting down) still ends its chain, through the main loop.
struct OffMainJob {
    OffMainJob(std::shared_ptr<Chain> c, std::uint64_t attempts, std::optional<std::string> error)
        : chain(std::move(c)), n(attempts), retryError(std::move(error)) {}
    OffMainJob(const OffMainJob&) = delete;
    OffMainJob& operator=(const OffMainJob&) = delete;

    std::shared_ptr<Chain> chain;
    std::uint64_t n;
    std::optional<std::string> retryError;  // set on a retry: its line comes first
    bool handedOver = false;

    ~OffMainJob() {
        if (handedOver) return;
        try {
            platform::Context::shared().mainLoop().post([chain = chain] { endFailed(*chain, "shut down"); });
        } catch (...) {
            --pendingCount;
        }
    }
};

// Filling, encoding and the log lines, each a copy of the whole address, are
// made on the task worker; the main thread only logs the lines and sends.
void attemptOffMain(std::shared_ptr<Chain> chain, std::uint64_t n, std::optional<std::string> retryError) {
    auto job = std::make_shared<OffMainJob>(std::move(chain), n, std::move(retryError));
    platform::Context::shared().tasks().submit([job] {
        Chain& c = *job->chain;
        std::string retryLine, line, why;
        std::optional<std::string> encoded;
        try {
            if (c.makeUrl) {
                c.url = c.makeUrl();
                c.makeUrl = nullptr;
            }
            if (job->retryError)
                retryLine = platform::formatLine("Retry request with url: %@, error: %@", {c.url, *job->retryError});
            line = attemptLine(c, job->n);
            encoded = percentEncodeQuery(c.url);
        } catch (const std::exception& e) {
            why = e.what();  // out of memory on an address of megabytes: a failed attempt
        }
        platform::Context::shared().mainLoop().post([chain = job->chain, n = job->n, retryLine = std::move(retryLine),
                                                     line = std::move(line), encoded = std::move(encoded),
                                                     why = std::move(why)]() mutable {
            if (!retryLine.empty()) platform::logLine(retryLine);
            if (encoded) {
                send(chain, n, std::move(*encoded), line);
            } else {
                endFailed(*chain, why);
            }
            if (line.size() >= kFreeOnWorkerBytes) freeOnWorker(std::move(line));
            if (retryLine.size() >= kFreeOnWorkerBytes) freeOnWorker(std::move(retryLine));
        });
        job->handedOver = true;
    });
}

void attempt(std::shared_ptr<Chain> chain, std::uint64_t n) {
    std::string encoded = percentEncodeQuery(chain->url);
    send(chain, n, std::move(encoded), attemptLine(*chain, n));
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
    auto chain = std::make_shared<Chain>(Chain{url, std::move(success), std::move(failure), {}, false});
    ++pendingCount;
    try {
        attempt(std::move(chain), attempts);
    } catch (...) {
        --pendingCount;
        throw;
    }
}

void startTrackingFilled(std::function<std::string()> makeUrl, std::uint64_t attempts, TrackingSuccess success,
                         TrackingFailure failure) {
    auto chain = std::make_shared<Chain>(Chain{{}, std::move(success), std::move(failure), std::move(makeUrl), true});
    ++pendingCount;
    attemptOffMain(std::move(chain), attempts, std::nullopt);  // from here the job ends the chain, run or not
}

}  // namespace network
}  // namespace quov
