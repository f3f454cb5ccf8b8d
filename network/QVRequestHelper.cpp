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

void QVRequestHelper::loadAdWithAdId(const std::optional<std::string>&, LoadCompletion completion) {
    // The slot id is deliberately not sent: the server expects "tagid" "0".
    const network::BidRequestInputs inputs = network::gatherBidRequestInputs();
    const nlohmann::json document = network::buildBidRequest(inputs);
    platform::HttpRequest request = network::makeBidHttpRequest(inputs, document, network::bidServerBase());
    const auto started = std::chrono::steady_clock::now();
    std::string url = request.url;
    platform::Context& context = platform::Context::shared();
    context.http().send(
        std::move(request), [completion = std::move(completion), url = std::move(url),
                             started, &context](platform::HttpResponse response) mutable {
            const auto elapsed =
                std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started);
            auto shared = std::make_shared<platform::HttpResponse>(std::move(response));
            auto done = std::make_shared<LoadCompletion>(std::move(completion));
            auto finish = [shared, done, url, elapsed, &context](network::BidResponse parsed) {
                context.mainLoop().post([parsed = std::move(parsed), shared, done, url, elapsed]() mutable {
                    network::finishBidRequest(std::move(parsed), *shared, url, elapsed, *done);
                });
            };
            // Parsing a bid answer of megabytes is CPU work the host's frame must not wait for.
            context.tasks().submit([shared, finish] { finish(network::parseBidResponse(*shared)); },
                                    [finish](const std::string& what) {
                                        // Out of memory on a hostile answer: a failed request.
                                        network::BidResponse failed;
                                        failed.outcome.error = Error{network::kHttpErrorDomain, network::kHttpJson,
                                                                     "Request failed: " + what};
                                        finish(std::move(failed));
                                    });
        });
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
