#include "network/BidResponse.h"

#include <quov/QVError.h>

#include "platform/runtime/Log.h"

namespace quov::network {

using json = nlohmann::json;
using Event = json::parse_event_t;

namespace {

// Where the parser is on the way to seatbid[0].bid[i], depth by depth:
// root object (0), "seatbid" array (1), first seat (2), "bid" array (3), bid (4).
class BidCollector {
public:
    std::vector<QVBidModelPtr> bids;

    bool operator()(int depth, Event event, json& parsed) {
        const bool start = event == Event::object_start || event == Event::array_start;
        if (start && depth >= kMaxJsonDepth) return false;
        if (depth == 0) {
            if (event == Event::object_start) rootIsObject_ = true;
            return true;
        }
        if (inBidArray_ && depth >= 5) return true;  // a bid's own content
        switch (event) {
            case Event::key:
                if (depth == 1 && rootIsObject_) {
                    // A repeated key replaces the earlier value, and its bids with it.
                    atSeatbid_ = parsed == "seatbid";
                    if (atSeatbid_) bids.clear();
                    return atSeatbid_;
                }
                if (depth == 3 && inFirstSeat_) {
                    atBid_ = parsed == "bid";
                    if (atBid_) bids.clear();
                    return atBid_;
                }
                return false;
            case Event::array_start:
                if (depth == 1 && atSeatbid_) return inSeatArray_ = true, seatElements_ = 0, true;
                if (depth == 3 && inFirstSeat_ && atBid_) return inBidArray_ = true;
                if (depth == 2 && inSeatArray_) ++seatElements_;
                return false;
            case Event::object_start:
                if (depth == 2 && inSeatArray_) return inFirstSeat_ = seatElements_++ == 0;
                return depth == 4 && inBidArray_;
            case Event::value:
                if (depth == 2 && inSeatArray_) ++seatElements_;
                return false;
            case Event::array_end:
                if (depth == 1) inSeatArray_ = false, atSeatbid_ = false;
                if (depth == 3) inBidArray_ = false, atBid_ = false;
                return true;
            case Event::object_end:
                if (depth == 2) inFirstSeat_ = false;
                if (depth == 4 && inBidArray_) {
                    bids.push_back(QVBidModel::initWithDict(parsed));
                    return false;  // the bid holds what it needs; its JSON can go
                }
                return true;
        }
        return false;
    }

private:
    bool rootIsObject_ = false;
    bool atSeatbid_ = false;
    bool inSeatArray_ = false;
    std::size_t seatElements_ = 0;
    bool inFirstSeat_ = false;
    bool atBid_ = false;
    bool inBidArray_ = false;
};

}  // namespace

BidResponse parseBidResponse(const platform::HttpResponse& response) {
    BidResponse out;
    BidCollector collector;
    out.outcome = evaluateJsonResponse(
        response, [&collector](int depth, Event event, json& parsed) { return collector(depth, event, parsed); });
    if (out.outcome.ok) out.bids = std::move(collector.bids);
    return out;
}

void finishBidRequest(BidResponse parsed, const platform::HttpResponse& response, const std::string& url,
                      std::chrono::milliseconds elapsed, const LoadCompletion& completion) {
    if (!parsed.outcome.ok) {
        platform::QVLog("Reqeust failed, response: %@", platform::orNull(parsed.outcome.responseText));
        platform::QVDebug("Bid request failed with 4001: %@, HTTP status %@, transport: %@, %@ ms, %@", url,
                          response.transportOk ? std::to_string(response.status) : std::string("none"),
                          response.errorText.empty() ? std::string("ok") : response.errorText,
                          std::to_string(elapsed.count()),
                          parsed.outcome.error.description.value_or(""));
        completion({}, QVError::errorWithCode(4001));
        return;
    }
    completion(std::move(parsed.bids), std::nullopt);
}

}  // namespace quov::network
