#include "tools/bid_server/BidServer.h"

#include <quov/QVBidModel.h>

#include <SDL.h>
#include <SDL_image.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <future>

namespace quov::tools {
namespace {

using nlohmann::json;

const char* const kIdentityMacros[] = {"__IMEI__", "__OAID__", "__IDFA__", "__MAC__", "__STMS__"};
const char* const kTouchMacros[] = {"__ABS_DOWN_X__",  "__ABS_DOWN_Y__",  "__ABS_UP_X__",        "__ABS_UP_Y__",
                                    "__REL_DOWN_X__",  "__REL_DOWN_Y__",  "__REL_UP_X__",         "__REL_UP_Y__",
                                    "__CLICK_DOWN_TIME__", "__CLICK_UP_TIME__"};

// A bid request shaped like the SDK's: "h" is the longer side.
json sdkRequest(json device = {{"w", 640}, {"h", 960}}) {
    device["device_size"] = "960*640";
    device["make"] = "apple";
    return {{"id", "req0123456789abcde"},
            {"app", {{"bundle", "org.example.host"}, {"sdk_ver", 1}, {"ver", "1.0"}}},
            {"device", device},
            {"imp", json::array({{{"id", "imp0123456789abcde"}, {"tagid", "0"}}})}};
}

class BidServerTest : public ::testing::Test {
protected:
    void start(BidServerOptions options = {}) {
        server_ = std::make_unique<BidServer>(std::move(options));
        server_->start();
        client_ = std::make_unique<httplib::Client>("127.0.0.1", server_->port());
    }

    httplib::Result bid(const json& body = sdkRequest()) {
        return client_->Post("/network?appid=app-1", {{"appkey", "key-1"}}, body.dump(), "application/json");
    }

    // The one bid of a normal answer, as the SDK would parse it.
    std::shared_ptr<QVBidModel> firstBid(const json& body = sdkRequest()) {
        auto res = bid(body);
        if (!res || res->status != 200) return nullptr;
        EXPECT_EQ(res->get_header_value("Content-Type"), "application/json");
        return QVBidModel::initWithDict(json::parse(res->body)["seatbid"][0]["bid"][0]);
    }

    json stats() {
        auto res = client_->Get("/stats");
        EXPECT_TRUE(res);
        return res ? json::parse(res->body) : json();
    }

    std::unique_ptr<BidServer> server_;
    std::unique_ptr<httplib::Client> client_;
};

TEST_F(BidServerTest, BidAnswerReadsBackThroughTheSdkModelWithEveryMacroInPlace) {
    start();
    const std::string base = server_->baseUrl();
    ASSERT_EQ(base, "http://127.0.0.1:" + std::to_string(server_->port()));
    auto res = bid();
    ASSERT_TRUE(res);
    const json doc = json::parse(res->body);
    EXPECT_EQ(doc["id"], "req0123456789abcde");
    ASSERT_EQ(doc["seatbid"][0]["bid"].size(), 1u);
    auto b = QVBidModel::initWithDict(doc["seatbid"][0]["bid"][0]);
    ASSERT_TRUE(b->identifier() && b->iOSURL() && b->clickURL());
    EXPECT_EQ(b->deepLinkURL(), std::optional<std::string>("quovdemo://ad/" + *b->identifier()));
    EXPECT_EQ(b->iOSURL()->rfind(base + "/landing?", 0), 0u);
    EXPECT_EQ(b->clickURL()->rfind(base + "/landing?", 0), 0u);
    EXPECT_NE(*b->iOSURL(), *b->clickURL()) << "the opener must be able to tell which one it got";

    ASSERT_TRUE(b->checkViews() && b->checkViews()->size() == 1u);
    ASSERT_TRUE(b->checkClicks() && b->checkClicks()->size() == 1u);
    const std::string &view = b->checkViews()->front(), &click = b->checkClicks()->front();
    EXPECT_EQ(view.rfind(base + "/track/view?", 0), 0u);
    EXPECT_EQ(click.rfind(base + "/track/click?", 0), 0u);
    for (const char* m : kIdentityMacros) EXPECT_TRUE(view.find(m) != view.npos && click.find(m) != click.npos) << m;
    for (const char* m : kTouchMacros) EXPECT_TRUE(view.find(m) == view.npos && click.find(m) != click.npos) << m;

    ASSERT_EQ(b->images().size(), 1u);
    EXPECT_EQ(b->images()[0].url(), std::optional<std::string>(base + "/creative/portrait.png"));
    EXPECT_EQ(b->images()[0].width(), 600);
    EXPECT_EQ(b->images()[0].height(), 900);
    const json request = {{"appid", "app-1"}, {"appkey", "key-1"}, {"body", sdkRequest()}};
    EXPECT_EQ(stats()["bid_requests"], json::array({request}));
}

TEST_F(BidServerTest, CreativeFollowsTheDeviceShapeUnlessForcedAndAlternatesWithoutOne) {
    using C = CreativeChoice;
    using F = ImageFormat;
    const json tall = {{"w", 640}, {"h", 960}}, wide = {{"w", 1024}, {"h", 768}};
    // device, choice, format, the creative of a first and of a second identical request
    const std::tuple<json, C, F, const char*, const char*> cases[] = {
        {tall, C::Auto, F::Png, "portrait.png", "portrait.png"},
        {wide, C::Auto, F::Jpeg, "landscape.jpg", "landscape.jpg"},
        {wide, C::Portrait, F::Png, "portrait.png", "portrait.png"},
        {tall, C::Landscape, F::Png, "landscape.png", "landscape.png"},
        {{{"w", "640"}, {"h", "960"}}, C::Auto, F::Png, "portrait.png", "landscape.png"},  // no usable shape
        {{{"w", 500}, {"h", 500}}, C::Auto, F::Jpeg, "portrait.jpg", "landscape.jpg"},
    };
    for (const auto& [device, choice, format, first, second] : cases) {
        SCOPED_TRACE(device.dump() + " " + first);
        BidServerOptions o;
        o.creative = choice;
        o.imageFormat = format;
        start(o);
        for (const char* expected : {first, second}) {
            auto b = firstBid(sdkRequest(device));
            ASSERT_TRUE(b && b->images().size() == 1u);
            EXPECT_EQ(b->images()[0].url(), std::optional<std::string>(server_->baseUrl() + "/creative/" + expected));
        }
    }
}

}  // namespace
}  // namespace quov::tools
