#include "tools/bid_server/BidServer.h"

#include <quov/QVBidModel.h>

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace quov::tools {
namespace {

using nlohmann::json;

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
        SCOPED_TRACE(device.dump());
        BidServer server({.creative = choice, .imageFormat = format});
        server.start();
        httplib::Client client("127.0.0.1", server.port());
        const json request = {{"device", device}};  // all of the SDK's request the server reads
        for (const char* expected : {first, second}) {
            auto res = client.Post("/network?appid=app-1", {{"appkey", "key-1"}}, request.dump(), "application/json");
            ASSERT_TRUE(res && res->status == 200);
            const json answer = json::parse(res->body);
            const auto bid = QVBidModel::initWithDict(answer["seatbid"][0]["bid"][0]);
            ASSERT_EQ(bid->images().size(), 1u);
            EXPECT_EQ(bid->images()[0].url(), std::optional<std::string>(server.baseUrl() + "/creative/" + expected));
        }
    }
}

}  // namespace
}  // namespace quov::tools
