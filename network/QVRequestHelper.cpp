#include <quov/QVRequestHelper.h>

#include "network/BidRequest.h"
#include "network/BidResponse.h"
#include "network/BidServerBase.h"
#include "platform/Context.h"
#include "platform/http/HttpClient.h"
#include "platform/runtime/Log.h"
#include "platform/runtime/TaskWorker.h"

#include <chrono>
#include <memory>

namespace quov {
namespace {

}  // namespace

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

}  // namespace quov
