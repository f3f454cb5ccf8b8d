#include <quov/QVRequestHelper.h>

#include "network/BidRequest.h"
#include "network/BidServerBase.h"
#include "platform/http/HttpClient.h"

namespace quov {

void QVRequestHelper::loadAdWithAdId(const std::optional<std::string>&, LoadCompletion completion) {
    // The slot id is deliberately not sent: the server expects "tagid" "0".
    const network::BidRequestInputs inputs = network::gatherBidRequestInputs();
    const nlohmann::json document = network::buildBidRequest(inputs);
    platform::HttpRequest request = network::makeBidHttpRequest(inputs, document, network::bidServerBase());
    platform::HttpClient::shared().send(
        std::move(request), [completion = std::move(completion)](platform::HttpResponse response) {
            network::completeBidRequest(response, completion);
        });
}

}  // namespace quov
