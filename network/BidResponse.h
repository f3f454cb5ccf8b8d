#pragma once

#include <quov/QVBidModel.h>
#include <quov/QVRequestHelper.h>

#include "network/ResponseRule.h"
#include "platform/http/HttpClient.h"

#include <chrono>
#include <string>
#include <vector>

namespace quov::network {

/// Containers nested deeper than this are skipped: nothing the SDK reads sits
/// below depth 8, and a million-deep array must not become a million values.
inline constexpr int kMaxJsonDepth = 64;

/// A bid answer, judged and turned into bids.
struct BidResponse {
    JsonOutcome outcome;  // outcome.body holds only the path to the bids, never the rest
    std::vector<QVBidModelPtr> bids;
};

/// The answer's bids, the same as bidsFromResponse on the whole document, but
/// built while parsing: each bid's JSON is dropped once the bid exists and every
/// value off the seatbid[0].bid path is skipped, so memory stays near the body
/// plus the bids themselves. Pure; meant for a background thread.
BidResponse parseBidResponse(const platform::HttpResponse& response);

/// The completion's single call for a parsed answer, with the same log line as
/// completeBidRequest, plus a Debug line with the failure's cause. Main thread.
void finishBidRequest(BidResponse parsed, const platform::HttpResponse& response, const std::string& url,
                      std::chrono::milliseconds elapsed, const LoadCompletion& completion);

}  // namespace quov::network
