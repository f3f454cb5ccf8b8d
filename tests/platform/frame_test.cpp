// The RGBA path: an ad view drawn into a host-owned buffer, its input and change tracking.
#include <quov/QuovFrame.h>  // first: the public header stands on its own, free of SDL

#include "platform/toolkit/Window.h"
#include "platform/toolkit/FrameSurface.h"
#include "platform/toolkit/RgbaPainter.h"
#include "view/QVAdView.h"
#include "tests/platform/pixels.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <tuple>
#include <vector>

namespace quov {
namespace {

using platform::TouchPhase;

// 375 x 812 points at scale 2 in a host buffer whose rows are padded (0xAB: the host's bytes).
struct Rig {
    static constexpr int kW = 750, kH = 1624, kStride = kW * 4 + 12;
    MainLoop loop;
    platform::Application app{loop};
    platform::FrameSurface surface{app};
    std::vector<std::string> calls;
    std::vector<std::uint8_t> bytes = std::vector<std::uint8_t>(kStride * kH, 0xAB);

    Rig() { surface.attach(kW, kH, 2); }
    // A click's open chain holds the view: let it end while the application lives.
    ~Rig() { loop.runUntil([this] { return app.pendingURLOpens() == 0; }, std::chrono::seconds(5)); }

    bool draw() { return surface.draw({bytes.data(), kW, kH, kStride}); }
    std::array<int, 4> at(double xPoints, double yPoints) const {
        const auto* p = &bytes[static_cast<int>(yPoints * 2) * kStride + static_cast<int>(xPoints * 2) * 4];
        return {p[0], p[1], p[2], p[3]};
    }
    bool allTransparent() const {
        for (int i = 0; i < kStride * kH; ++i)
            if (i % kStride < kW * 4 && bytes[i] != 0) return false;
        return true;
    }
    std::shared_ptr<QVAdView> showAd() {
        QVAdViewEnvironment env;
        env.application = &app;
        env.loadImage = [](std::weak_ptr<platform::ImageView> v, const std::optional<std::string>&) {
            v.lock()->setImage(test::solidImage(60, 50, 250, 20, 10));
        };
        auto view = QVAdView::initWithFrame({{0, 0}, app.mainScreen().bounds().size}, env);
        QVAdViewPinToWindow(view, *app.keyWindow());
        view->showBid(
            QVBidModel::initWithDict(nlohmann::json{{"images", {{{"w", 600}, {"h", 500}}}}}), [](auto&) {},
            [this](auto&) { calls.push_back("clicked"); }, [this](auto&) { calls.push_back("closed"); });
        return view;
    }
};

TEST(FrameSurface, DrawsTheAdWhereItIsLaidOutAndTakesPointerAndKeys) {
    Rig rig;
    EXPECT_FALSE(rig.surface.needsDisplay()) << "nothing on screen";
    ASSERT_TRUE(rig.draw());
    EXPECT_TRUE(rig.allTransparent());
    EXPECT_FALSE(rig.surface.pointer(1, TouchPhase::Began, 10, 10)) << "no ad: the host's pointer";

    auto view = rig.showAd();
    EXPECT_TRUE(rig.surface.needsDisplay());
    ASSERT_TRUE(rig.draw());
    EXPECT_FALSE(rig.surface.needsDisplay()) << "drawn and unchanged";
    EXPECT_EQ(rig.bytes[Rig::kW * 4], 0xAB) << "padding beyond a row is the host's";
    // Image box 318.75 x 265.625 centred on 375 x 812: the corner, the image's top-left, just
    // left of it, its bottom-right; the close button's corner, outside the icon insets.
    const std::array<int, 4> mask{0, 0, 0, 204}, image{250, 20, 10, 255};  // 80 % black, premultiplied
    const std::tuple<double, double, std::array<int, 4>> probes[] = {
        {2, 2, mask}, {28.6, 273.7, image}, {27.6, 406, mask}, {346.3, 538.3, image}, {310.4, 223.7, mask}};
    for (const auto& [x, y, want] : probes) EXPECT_EQ(rig.at(x, y), want) << x << "," << y;

    EXPECT_TRUE(rig.surface.pointer(1, TouchPhase::Began, 10, 10)) << "outside the ad, still taken";
    EXPECT_TRUE(rig.surface.pointer(1, TouchPhase::Ended, 10, 10));
    // (50, 60) points into the image, given in pixels.
    EXPECT_TRUE(rig.surface.pointer(7, TouchPhase::Began, (28.125 + 50) * 2, (273.1875 + 60) * 2));
    EXPECT_TRUE(view->touchDownPoint().x == 50 && view->touchDownPoint().y == 60);
    EXPECT_TRUE(rig.surface.pointer(7, TouchPhase::Ended, (28.125 + 50) * 2, (273.1875 + 60) * 2));
    EXPECT_EQ(rig.calls, std::vector<std::string>{"clicked"});

    // A resize is a change; closing by key is one too, and leaves the layer clear.
    rig.showAd();
    rig.surface.attach(Rig::kH, Rig::kW, 2);
    EXPECT_TRUE(rig.surface.needsDisplay());
    ASSERT_TRUE(rig.draw());
    EXPECT_TRUE(rig.surface.input().key(platform::HostKey::Escape, true));
    EXPECT_EQ(rig.calls, (std::vector<std::string>{"clicked", "closed"}));
    EXPECT_TRUE(rig.surface.needsDisplay());
    ASSERT_TRUE(rig.draw());
    EXPECT_TRUE(rig.allTransparent());

    std::vector<std::uint8_t> px(16);
    const platform::RgbaTarget bad[] = {
        {nullptr, 2, 2, 8}, {px.data(), 0, 2, 8}, {px.data(), 2, -1, 8}, {px.data(), 2, 2, 7}};
    for (const auto& t : bad) EXPECT_FALSE(rig.surface.draw(t));
}

// Frames drawn through the image cache against the same frames sampled afresh, over
// a background that changes every frame; the cache samples only what changed.
TEST(RgbaPainter, CachedImagesDrawTheSamePixelsAndAreSampledOnlyWhenTheirPlacementChanges) {
    const auto holes = test::patternImage(64, 48, true), opaque = test::patternImage(64, 48, false);
    const std::tuple<const char*, platform::ImagePtr, Rect, double, bool> frames[] = {
        {"first", holes, {{10.3, 7.6}, {150.2, 90.7}}, 1, true},
        {"unchanged", holes, {{10.3, 7.6}, {150.2, 90.7}}, 1, false},
        {"moved by a fraction", holes, {{10.55, 7.6}, {150.2, 90.7}}, 1, true},
        {"fading", holes, {{10.55, 7.6}, {150.2, 90.7}}, 0.5, true},
        {"hanging off two edges", holes, {{-20.5, 100.2}, {260, 80}}, 1, true},
        {"opaque", opaque, {{3.5, 2.25}, {101, 77}}, 1, true},
    };
    constexpr int kW = 200, kH = 160;
    platform::RgbaImageCache cache;
    for (const auto& f : frames) {
        const auto& [what, image, destination, alpha, samples] = f;
        const auto seed = &f - frames;
        std::vector<std::uint8_t> cached(kW * kH * 4);
        for (std::size_t i = 0; i < cached.size(); ++i) cached[i] = static_cast<std::uint8_t>(i * 31 + i / 977 + seed * 101);
        auto fresh = cached;
        const auto before = cache.samplings();
        for (auto* bytes : {&cached, &fresh}) {
            platform::RgbaPainter painter({bytes->data(), kW, kH, kW * 4}, 1, 1, bytes == &cached ? &cache : nullptr);
            painter.fillRect({{0, 0}, {kW, kH}}, {0, 0, 0, 0.3});
            painter.drawImage(image, {{0, 0}, {64, 48}}, destination, alpha);
        }
        EXPECT_TRUE(cached == fresh) << what;
        EXPECT_EQ(cache.samplings() - before, samples ? 1u : 0u) << what;
    }
}

}  // namespace
}  // namespace quov
