#pragma once

#include <quov/QVDeviceInfo.h>
#include <quov/QVRequestHelper.h>

#include "platform/http/HttpClient.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace quov::network {

/// Everything a bid request is made of, gathered on the main thread.
struct BidRequestInputs {
    DeviceInfoRecord record;
    std::string idfa;
    std::optional<std::string> imei;  // absent reads as empty: left out
    std::optional<std::string> oaid;
    bool trackingEnabled = false;
    std::optional<std::uint32_t> reachabilityFlags;  // absent: cannot be read
    std::optional<std::string> carrierName;
    double screenScale = 1.0;
    std::optional<std::string> appId;
    std::optional<std::string> appKey;
    std::chrono::milliseconds timeout{60000};
    std::string requestId;     // top-level "id"
    std::string impressionId;  // "imp"[0]."id"
};

/// Reads the device, the shared facade and two fresh ids. Throws what
/// QVDeviceInfo::deviceInfo throws.
BidRequestInputs gatherBidRequestInputs();

/// The BidRequest document. Throws std::invalid_argument naming a record key
/// that is missing or not text.
nlohmann::json buildBidRequest(const BidRequestInputs& in);

/// The POST for a document: "<base>/network?appid=<AppId unescaped>", the
/// "Content-Type" and "appkey" headers, compact UTF-8 JSON, the load's time-out.
/// Redirects stay on the base's origin: the app key never goes elsewhere.
platform::HttpRequest makeBidHttpRequest(const BidRequestInputs& in, const nlohmann::json& document,
                                         const std::string& base);

/// Turns one answer into the completion's single call (bids, or error 4001 after
/// logging the answer's body).
void completeBidRequest(const platform::HttpResponse& response, const LoadCompletion& completion);

/// The bids of a response document: seatbid[0].bid, in order. Anything of
/// another shape is a response without bids.
std::vector<QVBidModelPtr> bidsFromResponse(const nlohmann::json* document);

}  // namespace quov::network
