#include <quov/QVBidModel.h>

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace quov {
namespace {

using nlohmann::json;
using Strings = std::vector<std::string>;

// Misspelt keys are not read, nor is isRendering.
TEST(BidModel, ReadsEveryKeyOfAWellFormedBidAndNoMisspeltOne) {
    auto bid = QVBidModel::initWithDict(json::parse(R"({
        "isRendering": 1, "is_rendering": 1, "deepLinkURL": "a", "deepLinkUrl": "b", "clickURL": "x",
        "ID": "d", "adtype": 5, "Images": [{"url": "x"}], "checkViews": ["v"], "checkClicks": ["c"],
        "iosURL": "i", "checkPlayerURL": "p",
        "id": "bid-1", "adType": 3, "click_url": "https://c", "deeplink_url": "app://d",
        "ios_url": "https://i", "check_views": ["v1", "v2"], "check_clicks": ["c1"],
        "check_player_url": "https://p",
        "images": [{"url": "https://img/1.png", "w": 600, "h": 500}, {"url": "u2", "w": "1", "h": "2"}]
    })"));
    const std::optional<std::string> texts[] = {bid->identifier(), bid->clickURL(), bid->deepLinkURL(),
                                                bid->iOSURL(), bid->checkPlayerURL()};
    EXPECT_EQ(std::vector(std::begin(texts), std::end(texts)),
              (std::vector<std::optional<std::string>>{"bid-1", "https://c", "app://d", "https://i", "https://p"}));
    EXPECT_EQ(bid->adType(), 3);
    EXPECT_EQ(bid->checkViews(), std::optional<Strings>(Strings{"v1", "v2"}));
    EXPECT_EQ(bid->checkClicks(), std::optional<Strings>(Strings{"c1"}));
    ASSERT_EQ(bid->images().size(), 2u);
    EXPECT_EQ(bid->images()[0].url(), std::optional<std::string>("https://img/1.png"));
    EXPECT_TRUE(bid->images()[0].width() == 600 && bid->images()[0].height() == 500);
    EXPECT_EQ(bid->isRendering(), 0);
    for (const char* doc : {"{}", "null", R"([{"id":"x"}])", R"({"ID": "d", "clickURL": "c", "images": 3})"}) {
        auto empty = QVBidModel::initWithDict(json::parse(doc));
        EXPECT_TRUE(empty && !empty->identifier() && !empty->clickURL() && empty->images().empty()) << doc;
    }
}

TEST(BidModel, IntegerConversions) {
    const std::pair<const char*, std::int64_t> cases[] = {
        {R"("3")", 3},     {R"(-3.9)", -3}, {R"("  42abc")", 42}, {R"("abc")", 0},
        {R"(true)", 0},    {R"([1])", 0},   {R"(-1e300)", INT64_MIN}, {R"("99999999999999999999")", INT64_MAX},
    };
    for (const auto& [text, expected] : cases)
        EXPECT_EQ(QVBidModel::initWithDict(json{{"adType", json::parse(text)}})->adType(), expected) << text;
}

// Fields live in one block made on the first set: a copy must own its own block,
// and setting a field back to absent must read as absent again.
TEST(BidModel, SettersAndCopiesKeepFieldsApart) {
    auto original = QVBidModel::initWithDict(json{{"click_url", "c"}, {"check_views", {"v"}}});
    QVBidModel copy = *original;
    copy.setClickURL(std::string("changed"));
    copy.setCheckViews(std::nullopt);
    copy.setIsRendering(1);
    EXPECT_EQ(original->clickURL(), std::optional<std::string>("c"));
    EXPECT_EQ(original->isRendering(), 0);
    EXPECT_FALSE(copy.checkViews());
    EXPECT_EQ(copy.isRendering(), 1);

    QVBidModel assigned;
    assigned = copy;
    copy.setClickURL(std::nullopt);
    EXPECT_EQ(assigned.clickURL(), std::optional<std::string>("changed"));
    assigned = QVBidModel();
    EXPECT_FALSE(assigned.clickURL());
}

}  // namespace
}  // namespace quov
