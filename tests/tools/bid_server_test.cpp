#include "tools/bid_server/BidServer.h"

#include <quov/QVBidModel.h>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace quov::tools {
namespace {

using nlohmann::json;

// A bid request shaped like the SDK's: "h" is the longer side.
json sdkRequest(json device = {{"w", 640}, {"h", 960}}) {
    device["device_size"] = "960*640";
    return {{"id", "req0123456789abcde"},
            {"app", {{"bundle", "org.example.host"}, {"sdk_ver", 1}, {"ver", "1.0"}}},
            {"device", device},
            {"imp", json::array({{{"id", "imp0123456789abcde"}, {"tagid", "0"}}})}};
}

struct Running {
    explicit Running(BidServerOptions options = {}) : server(std::move(options)) {}
    // The one bid of the answer, as the SDK would parse it.
    std::shared_ptr<QVBidModel> bid(const json& body = sdkRequest()) {
        auto res = client.Post("/network?appid=app-1", {{"appkey", "key-1"}}, body.dump(), "application/json");
        if (!res || res->status != 200) return nullptr;
        EXPECT_EQ(res->get_header_value("Content-Type"), "application/json");
        const json doc = json::parse(res->body);
        EXPECT_EQ(doc["id"], body["id"]);
        EXPECT_EQ(doc["seatbid"][0]["bid"].size(), 1u);
        return QVBidModel::initWithDict(doc["seatbid"][0]["bid"][0]);
    }
    BidServer server;
    httplib::Client client{"127.0.0.1", (server.start(), server.port())};
};

TEST(BidServer, CreativeFollowsTheDeviceShapeUnlessForcedAndAlternatesWithoutOne) {
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
        BidServerOptions o;
        o.creative = choice;
        o.imageFormat = format;
        Running s(o);
        for (const char* expected : {first, second}) {
            auto b = s.bid(sdkRequest(device));
            ASSERT_TRUE(b && b->images().size() == 1u);
            EXPECT_EQ(b->images()[0].url(), std::optional<std::string>(s.server.baseUrl() + "/creative/" + expected))
                << device.dump();
        }
    }
}

}  // namespace
}  // namespace quov::tools
