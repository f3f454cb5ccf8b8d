// The SDL backend on the offscreen driver: what it draws, read back as pixels,
// and how it turns SDL events into touches and orientation changes.
#include <quov/QuovSDL.h>  // first: the public header stands on its own

#include "platform/Application.h"
#include "platform/Button.h"
#include "platform/ImageView.h"
#include "platform/ResourceBundle.h"
#include "platform/SdlBackend.h"
#include "platform/SdlHeadless.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>

namespace {

using namespace quov;
using namespace quov::platform;

ImagePtr solidImage(int w, int h, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    auto img = std::make_shared<Image>();
    img->width = w;
    img->height = h;
    img->rgba.resize(static_cast<std::size_t>(w * h) * 4);
    for (std::size_t i = 0; i < img->rgba.size(); i += 4) {
        img->rgba[i] = r;
        img->rgba[i + 1] = g;
        img->rgba[i + 2] = b;
        img->rgba[i + 3] = 255;
    }
    return img;
}

::testing::AssertionResult near(PixelBuffer::Pixel p, int r, int g, int b, int tolerance = 2) {
    if (std::abs(p.r - r) <= tolerance && std::abs(p.g - g) <= tolerance &&
        std::abs(p.b - b) <= tolerance)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "pixel (" << p.r << ", " << p.g << ", " << p.b
                                         << "), expected (" << r << ", " << g << ", " << b << ")";
}

/// A headless display of the given pixel size with an application attached.
struct Rig {
    HeadlessDisplay display;
    MainLoop loop;
    Application app{loop};
    SdlBackend backend{app};  // after the display: its textures go first

    Rig(int w, int h) : display(w, h) { backend.attachWindow(display.window()); }
    std::shared_ptr<Window> window() { return app.keyWindow(); }

    PixelBuffer frame(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
        display.clear(r, g, b);
        backend.render(display.renderer());
        return display.readPixels();
    }
    /// Feeds SDL's queued window events to the backend, as a host loop would.
    void pumpWindowEvents() {
        SDL_PumpEvents();
        SDL_Event e;
        while (SDL_PeepEvents(&e, 1, SDL_GETEVENT, SDL_WINDOWEVENT, SDL_WINDOWEVENT) == 1)
            backend.processEvent(e);
    }
};

TEST(SdlRender, RunsOnTheOffscreenDriver) {
    Rig rig(64, 48);
    EXPECT_TRUE(rig.display.isOffscreen()) << rig.display.videoDriver();
    EXPECT_EQ(rig.app.mainScreen().bounds().size, (Size{64, 48}));
    ASSERT_TRUE(rig.window());
    EXPECT_EQ(rig.window()->frame().size, (Size{64, 48}));
}

TEST(SdlRender, TranslucentBlackOverAColourBlends) {
    Rig rig(100, 80);
    auto mask = View::make({{0, 0}, {100, 80}});
    mask->setBackgroundColor(Color::black());
    mask->setAlpha(0.8);
    rig.window()->addSubview(mask);
    auto half = View::make({{50, 0}, {50, 80}});  // nested: alphas multiply
    half->setBackgroundColor({1, 1, 1, 1});
    half->setAlpha(0.5);
    mask->addSubview(half);

    const auto px = rig.frame(200, 100, 50);
    // 20 % of the background shows through the mask.
    EXPECT_TRUE(near(px.at(10, 10), 40, 20, 10));
    // White at 0.8 * 0.5 over the masked background (each view blends on its own).
    EXPECT_TRUE(near(px.at(75, 40), 102 + 0.6 * 40, 102 + 0.6 * 20, 102 + 0.6 * 10));
}

TEST(SdlRender, ImagesAreDrawnAspectFitAndButtonsInsideTheirInsets) {
    Rig rig(200, 200);
    auto imageView = ImageView::make({{0, 0}, {100, 100}});
    imageView->setContentMode(ContentMode::ScaleAspectFit);
    imageView->setImage(solidImage(40, 20, 255, 0, 0));  // 2:1 -> 100 x 50, centred
    rig.window()->addSubview(imageView);

    auto button = Button::make({{120, 120}, {40, 40}});
    button->setContentEdgeInsets({5, 5, 5, 5});
    button->setImage(solidImage(8, 8, 0, 255, 0), ControlState::Normal);
    rig.window()->addSubview(button);

    const auto px = rig.frame(0, 0, 255);
    struct Probe {
        const char* what;
        int x, y, r, g, b;
    };
    const Probe probes[] = {
        {"above the fitted image", 50, 20, 0, 0, 255},
        {"image top edge", 50, 26, 255, 0, 0},
        {"image centre", 50, 50, 255, 0, 0},
        {"image bottom edge", 2, 73, 255, 0, 0},
        {"below the fitted image", 50, 80, 0, 0, 255},
        {"button corner, in the inset", 122, 122, 0, 0, 255},
        {"icon top-left", 126, 126, 0, 255, 0},
        {"icon bottom-right", 153, 153, 0, 255, 0},
        {"right inset", 157, 140, 0, 0, 255},
    };
    for (const auto& p : probes) EXPECT_TRUE(near(px.at(p.x, p.y), p.r, p.g, p.b)) << p.what;
}

TEST(SdlRender, PointsScaleToPixelsAndTheHostsRendererStateIsRestored) {
    Rig rig(200, 100);
    rig.backend.setUIScale(2);  // 100 x 50 points
    EXPECT_EQ(rig.app.mainScreen().bounds().size, (Size{100, 50}));
    auto box = View::make({{10, 10}, {20, 20}});
    box->setBackgroundColor({0, 1, 0, 1});
    rig.window()->addSubview(box);

    SDL_Renderer* r = rig.display.renderer();
    rig.display.clear(0, 0, 0);
    const SDL_Rect viewport{5, 5, 150, 80}, clip{10, 10, 40, 30};
    SDL_RenderSetScale(r, 1.5f, 1.25f);
    SDL_RenderSetViewport(r, &viewport);
    SDL_RenderSetClipRect(r, &clip);
    SDL_SetRenderDrawColor(r, 1, 2, 3, 4);
    SDL_SetRenderDrawBlendMode(r, SDL_BLENDMODE_ADD);
    rig.backend.render(r);

    float sx = 0, sy = 0;
    SDL_RenderGetScale(r, &sx, &sy);
    EXPECT_EQ(sx, 1.5f);
    EXPECT_EQ(sy, 1.25f);
    SDL_Rect v{}, c{};
    SDL_RenderGetViewport(r, &v);
    SDL_RenderGetClipRect(r, &c);
    EXPECT_TRUE(v.x == viewport.x && v.y == viewport.y && v.w == viewport.w && v.h == viewport.h);
    EXPECT_TRUE(c.x == clip.x && c.y == clip.y && c.w == clip.w && c.h == clip.h);
    Uint8 col[4];
    SDL_GetRenderDrawColor(r, &col[0], &col[1], &col[2], &col[3]);
    EXPECT_TRUE(col[0] == 1 && col[1] == 2 && col[2] == 3 && col[3] == 4);
    SDL_BlendMode mode;
    SDL_GetRenderDrawBlendMode(r, &mode);
    EXPECT_EQ(mode, SDL_BLENDMODE_ADD);

    // Drawn unclipped at twice the point size, whatever the host had set.
    SDL_RenderSetScale(r, 1, 1);
    SDL_RenderSetViewport(r, nullptr);
    SDL_RenderSetClipRect(r, nullptr);
    const auto px = rig.display.readPixels();
    EXPECT_TRUE(near(px.at(21, 21), 0, 255, 0));
    EXPECT_TRUE(near(px.at(58, 58), 0, 255, 0));
    EXPECT_TRUE(near(px.at(62, 30), 0, 0, 0));
}

TEST(SdlRender, TexturesAreUploadedOncePerImageAndDroppedWithIt) {
    Rig rig(50, 50);
    auto view = ImageView::make({{0, 0}, {50, 50}});
    view->setImage(solidImage(4, 4, 9, 9, 9));
    auto twin = ImageView::make({{0, 0}, {10, 10}});
    twin->setImage(view->image());
    rig.window()->addSubview(view);
    rig.window()->addSubview(twin);
    rig.frame(0, 0, 0);
    rig.frame(0, 0, 0);
    EXPECT_EQ(rig.backend.textures().uploads(), 1u);
    EXPECT_EQ(rig.backend.textures().size(), 1u);

    view->setImage(nullptr);
    twin->setImage(solidImage(2, 2, 1, 1, 1));  // the first image is gone now
    rig.frame(0, 0, 0);
    EXPECT_EQ(rig.backend.textures().uploads(), 2u);
    EXPECT_EQ(rig.backend.textures().size(), 1u);

    // An image whose pixel buffer does not match its size is skipped, not read.
    auto broken = std::make_shared<Image>();
    broken->width = 1000;
    broken->height = 1000;
    twin->setImage(broken);
    rig.frame(0, 0, 0);
    EXPECT_EQ(rig.backend.textures().uploads(), 2u);
}

TEST(SdlInput, MouseInputIsConsumedOnlyWhileAViewIsShown) {
    Rig rig(200, 200);
    rig.backend.setUIScale(2);  // mouse pixels to points
    auto button = Button::make({{10, 10}, {20, 20}});
    int taps = 0;
    Point at;
    button->addTarget(std::weak_ptr<void>{}, [&](Button& sender, const TouchEvent& e) {
        ++taps;
        at = locationInView(e.anyTouchForView(sender), sender);
    }, ControlEventTouchUpInside);

    const Uint32 id = SDL_GetWindowID(rig.display.window());
    const auto mouse = [&](Uint32 type, int x, int y) {
        SDL_Event e{};
        e.type = type;
        e.button.windowID = id;
        e.button.button = SDL_BUTTON_LEFT;
        e.button.x = x;
        e.button.y = y;
        return rig.backend.processEvent(e);
    };
    EXPECT_FALSE(mouse(SDL_MOUSEBUTTONDOWN, 30, 30)) << "nothing of ours on screen";
    EXPECT_FALSE(mouse(SDL_MOUSEBUTTONUP, 30, 30));

    rig.window()->addSubview(button);
    EXPECT_TRUE(mouse(SDL_MOUSEBUTTONDOWN, 30, 30));
    EXPECT_TRUE(mouse(SDL_MOUSEBUTTONUP, 32, 34));
    EXPECT_EQ(taps, 1);
    EXPECT_EQ(at, (Point{6, 7}));
    EXPECT_TRUE(mouse(SDL_MOUSEBUTTONDOWN, 300, 300)) << "a shown ad takes the whole window";

    SDL_Event key{};
    key.type = SDL_KEYDOWN;
    EXPECT_FALSE(rig.backend.processEvent(key));

    // Mouse events of another window are not ours.
    SDL_Event other{};
    other.type = SDL_MOUSEBUTTONDOWN;
    other.button.windowID = id + 100;
    EXPECT_FALSE(rig.backend.processEvent(other));
}

TEST(SdlInput, FingersTapOnceEvenWithTheMouseEventsSDLMakesFromThem) {
    Rig rig(200, 100);
    auto button = Button::make({{100, 50}, {50, 50}});
    int taps = 0;
    Point at;
    button->addTarget(std::weak_ptr<void>{}, [&](Button& sender, const TouchEvent& e) {
        ++taps;
        at = locationInView(e.anyTouchForView(sender), sender);
    }, ControlEventTouchUpInside);
    rig.window()->addSubview(button);

    const Uint32 id = SDL_GetWindowID(rig.display.window());
    const auto finger = [&](Uint32 type, float x, float y) {
        SDL_Event e{};
        e.type = type;
        e.tfinger.windowID = id;
        e.tfinger.touchId = 3;
        e.tfinger.fingerId = 1;
        e.tfinger.x = x;  // fractions of the window
        e.tfinger.y = y;
        return rig.backend.processEvent(e);
    };
    const auto syntheticMouse = [&](Uint32 type) {
        SDL_Event e{};
        e.type = type;
        e.button.windowID = id;
        e.button.which = SDL_TOUCH_MOUSEID;
        e.button.button = SDL_BUTTON_LEFT;
        e.button.x = 120;
        e.button.y = 60;
        return rig.backend.processEvent(e);
    };
    EXPECT_TRUE(finger(SDL_FINGERDOWN, 0.6f, 0.6f));
    EXPECT_TRUE(syntheticMouse(SDL_MOUSEBUTTONDOWN));
    EXPECT_TRUE(finger(SDL_FINGERMOTION, 0.61f, 0.62f));
    EXPECT_TRUE(finger(SDL_FINGERUP, 0.62f, 0.64f));
    EXPECT_TRUE(syntheticMouse(SDL_MOUSEBUTTONUP));
    EXPECT_EQ(taps, 1);
    EXPECT_NEAR(at.x, 24, 1e-3);
    EXPECT_NEAR(at.y, 14, 1e-3);
}

TEST(SdlInput, AResizeThatFlipsTheWindowPostsTheOrientationNotification) {
    Rig rig(375, 812);
    rig.app.beginGeneratingDeviceOrientationNotifications();
    int posts = 0;
    rig.app.defaultCenter().addObserver(&posts, [&](const Notification&) { ++posts; },
                                        std::string(UIDeviceOrientationDidChangeNotification));
    rig.pumpWindowEvents();
    rig.display.resize(400, 900);
    rig.pumpWindowEvents();
    EXPECT_EQ(posts, 0);
    rig.display.resize(812, 375);
    rig.pumpWindowEvents();
    EXPECT_EQ(posts, 1);
    EXPECT_EQ(rig.app.mainScreen().bounds().size, (Size{812, 375}));
    EXPECT_EQ(rig.window()->frame().size, (Size{812, 375}));
    rig.app.defaultCenter().removeObserver(&posts);
}

TEST(SdlRender, NothingIsDrawnWhileTheWindowIsHidden) {
    Rig rig(40, 40);
    auto box = View::make({{0, 0}, {40, 40}});
    box->setBackgroundColor({1, 0, 0, 1});
    rig.window()->addSubview(box);
    SDL_HideWindow(rig.display.window());
    rig.pumpWindowEvents();
    EXPECT_EQ(rig.app.applicationState(), ApplicationState::Background);
    EXPECT_TRUE(near(rig.frame(0, 0, 255).at(20, 20), 0, 0, 255));
    SDL_ShowWindow(rig.display.window());
    rig.pumpWindowEvents();
    EXPECT_NE(rig.app.applicationState(), ApplicationState::Background);
    EXPECT_TRUE(near(rig.frame(0, 0, 255).at(20, 20), 255, 0, 0));
}

TEST(ResourceBundleTest, TheCloseIconIsFoundAndDecoded) {
    // First place looked: beside the code, here the test program itself.
    std::error_code ec;
    EXPECT_EQ(Bundle::bundleForLibrary().directories().front(),
              std::filesystem::canonical("/proc/self/exe", ec).parent_path());

    const auto bundle = resourceBundle();
    ASSERT_TRUE(bundle) << "quovsdk_images.bundle beside the library or in the build tree";
    const auto icon = imageNamed("SF_x_circle_fill", bundle);
    ASSERT_TRUE(icon);
    EXPECT_EQ(icon->width, 120);
    EXPECT_EQ(icon->height, 120);
    const auto px = [&](int x, int y) { return icon->rgba.data() + (y * icon->width + x) * 4; };
    EXPECT_EQ(px(0, 0)[3], 0) << "transparent outside the disc";
    EXPECT_GT(px(60, 60)[0], 240) << "the x crosses the centre in white";
    EXPECT_EQ(px(60, 60)[3], 255);
    EXPECT_LT(px(60, 20)[0], 80) << "dark disc between the arms";
    EXPECT_GT(px(60, 20)[3], 200);

    EXPECT_FALSE(imageNamed("no_such_image", bundle));
    EXPECT_FALSE(imageNamed("../quovsdk_images.bundle/SF_x_circle_fill", bundle));
    EXPECT_FALSE(imageNamed("SF_x_circle_fill", std::nullopt));
    EXPECT_FALSE(Bundle::bundleWithURL(std::filesystem::path("/nonexistent/quov")));
}

}  // namespace
