#include "network/BidRequest.h"
#include "network/BidResponse.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace quov {
namespace {

platform::HttpResponse jsonAnswer(std::string body) {
    platform::HttpResponse r;
    r.transportOk = true;
    r.status = 200;
    r.contentType = "application/json";
    r.body = std::move(body);
    return r;
}

std::string describe(const std::vector<QVBidModelPtr>& bids) {
    std::string out;
    for (const auto& b : bids) {
        out += b->identifier().value_or("-") + "/" + std::to_string(b->adType()) + "/" +
               std::to_string(b->checkViews().value_or(std::vector<std::string>{}).size()) + "/" +
               std::to_string(b->images().size()) + ";";
    }
    return out;
}

// Built while parsing, the bids must be exactly those of the whole document.
TEST(BidResponseStream, StreamedBidsMatchTheWholeDocumentForEveryShape) {
    const char* bodies[] = {
        R"({"seatbid":[{"bid":[{"id":"a","adType":"3"},{"id":"b","images":[{"url":"u","h":1}]}]}]})",
        R"({"seatbid":[{"bid":[{"id":"a"}]},{"bid":[{"id":"second seat"}]}]})",
        R"({"seatbid":[5,{"bid":[{"id":"not the first seat"}]}]})",
        R"({"seatbid":[[{"bid":[{"id":"x"}]}],{"bid":[{"id":"y"}]}]})",
        R"({"seatbid":[{"bid":[{"id":"old"}]}],"seatbid":[{"bid":[{"id":"new"}]}]})",
        R"({"seatbid":[{"bid":[{"id":"old"}]}],"seatbid":7})",
        R"({"seatbid":[{"bid":[{"id":"old"}],"bid":[{"id":"new"}],"x":{"bid":[{"id":"no"}]}}]})",
        R"({"seatbid":[{"bid":[1,"s",[{"id":"no"}],{"id":"yes","check_views":["v",["w"]]},null]}]})",
        R"({"x":{"seatbid":[{"bid":[{"id":"nested"}]}]},"y":[{"bid":[{"id":"no"}]}]})",
        R"({"seatbid":[{"bid":[{"id":"deep","z":[[[[[[[[[[[[[[[[[[[[1]]]]]]]]]]]]]]]]]]]]}]}]})",
        R"([{"seatbid":[{"bid":[{"id":"root array"}]}]}])",
        R"({"seatbid":[]})", R"({})", R"(3)", R"("seatbid")", R"({"seatbid":[{"bid":{}}]})",
    };
    for (const char* body : bodies) {
        const network::BidResponse streamed = network::parseBidResponse(jsonAnswer(body));
        ASSERT_TRUE(streamed.outcome.ok) << body;
        const nlohmann::json whole = nlohmann::json::parse(body);
        EXPECT_EQ(describe(streamed.bids), describe(network::bidsFromResponse(&whole))) << body;
    }
}

TEST(BidResponseStream, ADeepDocumentIsSkippedNotBuiltAndBrokenJsonStillFails) {
    const std::string deep = std::string(1000000, '[') + std::string(1000000, ']');
    const network::BidResponse parsed = network::parseBidResponse(jsonAnswer(deep));
    EXPECT_TRUE(parsed.outcome.ok);
    EXPECT_TRUE(parsed.bids.empty());
    ASSERT_TRUE(parsed.outcome.body);
    EXPECT_EQ(*parsed.outcome.body, nlohmann::json::array());

    const network::BidResponse broken =
        network::parseBidResponse(jsonAnswer(R"({"seatbid":[{"bid":[{"id":"a"},)"));
    EXPECT_FALSE(broken.outcome.ok);
    EXPECT_TRUE(broken.bids.empty());
}

}  // namespace
}  // namespace quov
