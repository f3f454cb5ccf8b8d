#include <quov/QVRequestHelper.h>

#include <quov/QVDeviceInfo.h>
#include <quov/QuovAd.h>

#include "device/PrimaryAddress.h"
#include "network/BidRequest.h"
#include "network/BidResponse.h"
#include "network/BidServerBase.h"
#include "network/Tracking.h"
#include "network/UrlMacros.h"
#include "platform/Context.h"
#include "platform/device/DevicePlatform.h"
#include "platform/http/HttpClient.h"
#include "platform/runtime/Crypto.h"
#include "platform/runtime/Log.h"
#include "platform/runtime/TaskWorker.h"

#include <chrono>
#include <cstdint>
#include <memory>

namespace quov {
namespace {

// Parsing this much JSON takes well under a millisecond.
constexpr std::size_t kParseOnHttpWorkerBytes = 64u << 10;

}  // namespace

void QVRequestHelper::loadAdWithAdId(const std::optional<std::string>&, LoadCompletion completion) {
    // The slot id is deliberately not sent: the server expects "tagid" "0".
    const network::BidRequestInputs inputs = network::gatherBidRequestInputs();
    const nlohmann::json document = network::buildBidRequest(inputs);
    platform::HttpRequest request = network::makeBidHttpRequest(inputs, document, network::bidServerBase());
    const auto started = std::chrono::steady_clock::now();
    platform::Context& context = platform::Context::shared();
    struct Pending {
        LoadCompletion completion;
        std::string url;
        // Set on the task worker before parsing, so a parse that throws still logs the answer.
        platform::HttpResponse answer;
        std::chrono::milliseconds elapsed{0};
    };
    auto pending = std::make_shared<Pending>(Pending{std::move(completion), request.url, {}, {}});
    auto finish = [pending, &context](network::BidResponse parsed) {
        context.mainLoop().post([parsed = std::move(parsed), pending]() mutable {
            network::finishBidRequest(std::move(parsed), pending->answer, pending->url, pending->elapsed,
                                      pending->completion);
        });
    };
    auto fail = [pending, finish](const std::string& what) {
        // Out of memory on a hostile answer, or the SDK shutting down: a failed request.
        if (!pending->answer.transportOk && pending->answer.errorText.empty()) pending->answer.errorText = what;
        network::BidResponse failed;
        failed.outcome.error = Error{network::kHttpErrorDomain, network::kHttpJson, "Request failed: " + what};
        finish(std::move(failed));
    };
    auto parse = [pending, finish] { finish(network::parseBidResponse(pending->answer)); };
    // The answer is taken on the HTTP worker, not through the main loop: that detour
    // cost every load two thread wake-ups. A usual answer of a few kilobytes is parsed
    // right there; one of megabytes is CPU work that goes to the task worker, so it
    // neither holds the host's frame nor the other requests.
    context.http().send(
        std::move(request),
        [started, pending, parse, fail, &context](platform::HttpResponse response) {
            pending->elapsed =
                std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
            pending->answer = std::move(response);
            if (pending->answer.body.size() > kParseOnHttpWorkerBytes) {
                context.tasks().submit(parse, fail);
                return;
            }
            try {
                parse();
            } catch (const std::exception& e) {
                fail(e.what());
            } catch (...) {
                fail("unknown exception");
            }
        },
        platform::HttpClient::Delivery::Worker);
}

void QVRequestHelper::getURLWithRetry(const std::string& url, std::uint64_t retryTimes,
                                      TrackingSuccess success, TrackingFailure failure) {
    network::startTracking(url, retryTimes, std::move(success), std::move(failure));
}

std::string QVRequestHelper::randomStringWithLength(std::uint64_t length) {
    static constexpr char kAlphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    static_assert(sizeof kAlphabet - 1 == 62);
    // 248 = 4 * 62: bytes at or above it are redrawn, so every index is equally likely.
    constexpr unsigned kLimit = 248;
    std::string out;
    out.reserve(length);
    std::uint8_t pool[64];
    std::size_t used = sizeof pool;
    while (out.size() < length) {
        if (used == sizeof pool) {
            platform::randomBytes(pool, sizeof pool);
            used = 0;
        }
        const unsigned b = pool[used++];
        if (b < kLimit) out += kAlphabet[b % 62];
    }
    return out;
}

std::string QVRequestHelper::formatURL(const std::string& url) {
    return network::IdentityMacros::capture().fill(url);
}

std::string QVRequestHelper::formatURL(const std::string& url, Size adSize, Point down, double downDate,
                                       Point up, double upDate) {
    return network::TouchMacros{adSize, down, downDate, up, upDate}.fill(url);
}

std::string QVRequestHelper::getIPAddress() {
    return device::primaryIPv4(*platform::Context::shared().devicePlatform()).value_or(std::string());
}

}  // namespace quov
