// One ad from loadAdWithAdId to a click, in process: the sample bid server on
// loopback, the facade, the HTTP worker, the ad view in the SDK's window, pixels
// read back from the offscreen renderer, and a click through SDL's input path.
#include <quov/MainLoop.h>
#include <quov/QuovAd.h>
#include <quov/QuovSDL.h>

#include "network/BidServerBase.h"
#include "platform/Context.h"
#include "platform/toolkit/Application.h"
#include "tests/support/SdlHeadless.h"
#include "support/RecordingDelegate.h"
#include "tools/bid_server/BidServer.h"
#include "view/QVAdView.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <cmath>

namespace quov {
namespace {

using platform::PixelBuffer;

void mouse(Uint32 type, int x, int y, SDL_Window* window) {
    SDL_Event e{};
    e.type = type;
    e.button.windowID = SDL_GetWindowID(window);
    e.button.button = SDL_BUTTON_LEFT;
    e.button.state = type == SDL_MOUSEBUTTONDOWN ? SDL_PRESSED : SDL_RELEASED;
    e.button.x = x;
    e.button.y = y;
    quov::sdl::processEvent(e);
}

int brightness(PixelBuffer::Pixel p) { return (p.r + p.g + p.b) / 3; }

bool near(PixelBuffer::Pixel p, int r, int g, int b, int tolerance) {
    return std::abs(p.r - r) <= tolerance && std::abs(p.g - g) <= tolerance && std::abs(p.b - b) <= tolerance;
}

TEST(AdFlowEndToEnd, LoadShowRenderClickAndReport) {
    tools::BidServerOptions options;
    options.creative = tools::CreativeChoice::Landscape;  // a box lower than it is wide
    tools::BidServer server(options);
    server.start();
    platform::Context::ScopedServiceBase base(platform::Context::shared(), server.baseUrl());

    constexpr int kScale = 2;
    platform::HeadlessDisplay display(375 * kScale, 812 * kScale);
    quov::sdl::setUIScale(kScale);
    quov::sdl::attachWindow(display.window());
    auto& app = platform::Context::shared().application();
    ASSERT_EQ(app.mainScreen().bounds().size, (Size{375, 812}));
    std::vector<std::optional<std::string>> opened;
    app.setURLOpener([&](const std::optional<std::string>& url, platform::URLOpenCompletion done) {
        opened.push_back(url);
        done(true);
    });

    auto delegate = std::make_shared<test::RecordingDelegate>();
    QuovAd& ad = QuovAd::shared();
    ad.setupWithAppId(std::string("e2e-app"), std::string("e2e-key"));
    ad.setIMEI(std::string("imei-7"));
    ad.setDelegate(delegate);
    ad.loadAdWithAdId(std::string("slot"));

    MainLoop& loop = MainLoop::shared();
    ASSERT_TRUE(loop.runUntil(
        [&] { return !delegate->calls.empty() && !quov::sdl::isLoadingContent() && ad.flush({}); },
        std::chrono::seconds(20)));
    ASSERT_EQ(delegate->calls, (std::vector<std::string>{"loaded", "displayed"}));
    ASSERT_EQ(app.keyWindow()->subviews().size(), 1u);
    auto view = std::dynamic_pointer_cast<QVAdView>(app.keyWindow()->subviews()[0]);
    ASSERT_NE(view, nullptr);

    // The impression arrived with its identity macros filled.
    auto stats = server.stats();
    ASSERT_EQ(stats["counts"]["/track/view"], 1);
    EXPECT_EQ(stats["tracking"][0]["params"]["imei"], "imei-7");

    // What the user sees: the 900x600 landscape creative in a 318.75 x 212.5 box.
    display.clear(40, 200, 40);
    quov::sdl::render(display.renderer());
    const PixelBuffer pixels = display.readPixels();
    const auto at = [&](double x, double y) { return pixels.at(int(x * kScale), int(y * kScale)); };
    EXPECT_TRUE(near(at(5, 5), 8, 40, 8, 3)) << "outside the box: green under 80 % black";
    EXPECT_TRUE(near(at(60, 406), 194, 65, 12, 6)) << "the creative's orange background";
    const Rect close = *quov::sdl::findElement("close");
    EXPECT_EQ(close, (Rect{{309.875, 299.75 - 50}, {40, 40}}));
    EXPECT_GT(brightness(at(close.origin.x + 20, close.origin.y + 20)), 200) << "the icon's cross at the centre";
    EXPECT_LT(brightness(at(close.origin.x + 1, close.origin.y + 1)), 60) << "outside the insets only the mask";

    // A click through SDL, down near (10, 20) and up near (300, 25) in the image's
    // space (window pixels round up to the next whole pixel).
    const Rect box = *quov::sdl::findElement("ad");
    EXPECT_EQ(box, (Rect{{28.125, 299.75}, {318.75, 212.5}}));
    auto px = [&](double points) { return static_cast<int>(std::ceil(points * kScale)); };
    mouse(SDL_MOUSEBUTTONDOWN, px(box.origin.x + 10), px(box.origin.y + 20), display.window());
    mouse(SDL_MOUSEBUTTONUP, px(box.origin.x + 300), px(box.origin.y + 25), display.window());
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"loaded", "displayed", "clicked"}));
    EXPECT_TRUE(app.keyWindow()->subviews().empty()) << "the view is gone";
    ASSERT_TRUE(ad.flush(std::chrono::seconds(20)));
    ASSERT_EQ(opened.size(), 1u);
    EXPECT_EQ(opened[0].value_or("").rfind("quovdemo://", 0), 0u);

    stats = server.stats();
    ASSERT_EQ(stats["counts"]["/track/click"], 1);
    const auto& click = stats["tracking"][1]["params"];
    EXPECT_EQ(click["imei"], "imei-7");
    EXPECT_NE(click["click_down_time"], "__CLICK_DOWN_TIME__");
    // UP_X repeats the down point; the report's size is the image box, so REL_UP_Y,
    // the lift x over the box's height, is 300.375 / 212.5 -> "1" (over the screen's 812 it would be "0").
    const std::pair<const char*, const char*> macros[] = {{"abs_down_x", "10"}, {"abs_down_y", "20"},
                                                          {"abs_up_x", "10"},   {"rel_up_y", "1"},
                                                          {"rel_up_x", "0"},    {"rel_down_x", "0"}};
    for (const auto& [key, value] : macros) EXPECT_EQ(click[key], value) << key;

    quov::sdl::releaseRenderer();
    quov::sdl::attachWindow(nullptr);
    ad.setDelegate(std::weak_ptr<QuovAdDelegate>());
}

}  // namespace
}  // namespace quov
