// The SDL backend on the offscreen driver: what it draws, read back as pixels,
// and how it turns SDL events into touches and orientation changes.
#include <quov/QuovSDL.h>  // first: the public header stands on its own

#include "platform/toolkit/Application.h"
#include "platform/toolkit/Button.h"
#include "platform/toolkit/ImageView.h"
#include "platform/media/ResourceBundle.h"
#include "platform/sdl/SdlBackend.h"
#include "tests/support/SdlHeadless.h"

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
    const std::uint8_t pixel[] = {r, g, b, 255};
    img->rgba = PixelBytes(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 4);
    for (std::size_t i = 0; i < img->rgba.size(); ++i) img->rgba[i] = pixel[i % 4];
    return img;
}

::testing::AssertionResult near(PixelBuffer::Pixel p, int r, int g, int b) {
    if (std::abs(p.r - r) <= 2 && std::abs(p.g - g) <= 2 && std::abs(p.b - b) <= 2)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "pixel (" << p.r << ", " << p.g << ", " << p.b << "), expected (" << r
                                         << ", " << g << ", " << b << ")";
}

ViewPtr addBox(const ViewPtr& parent, Rect frame, Color colour, double alpha = 1) {
    auto box = View::make(frame);
    box->setBackgroundColor(colour);
    box->setAlpha(alpha);
    parent->addSubview(box);
    return box;
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
        while (SDL_PeepEvents(&e, 1, SDL_GETEVENT, SDL_WINDOWEVENT, SDL_WINDOWEVENT) == 1) backend.processEvent(e);
    }
    bool mouse(Uint32 type, int x, int y, Uint32 which = 0) {
        SDL_Event e{};
        e.type = type;
        e.button.windowID = SDL_GetWindowID(display.window());
        e.button.which = which;
        e.button.button = SDL_BUTTON_LEFT;
        e.button.x = x;
        e.button.y = y;
        return backend.processEvent(e);
    }
    bool finger(Uint32 type, float x, float y) {  // fractions of the window
        SDL_Event e{};
        e.type = type;
        e.tfinger.windowID = SDL_GetWindowID(display.window());
        e.tfinger.touchId = 3;
        e.tfinger.fingerId = 1;
        e.tfinger.x = x;
        e.tfinger.y = y;
        return backend.processEvent(e);
    }
    /// A button whose touch-ups inside are counted, with the last one's location.
    std::shared_ptr<Button> tapCounter(Rect frame, int& taps, Point& at) {
        auto button = Button::make(frame);
        button->addTarget(std::weak_ptr<void>{}, [&taps, &at](Button& sender, const TouchEvent& e) {
            ++taps;
            at = locationInView(e.anyTouchForView(sender), sender);
        }, ControlEventTouchUpInside);
        return button;
    }
};

TEST(SdlRender, PointsScaleToPixelsAndTheHostsRendererStateIsRestored) {
    Rig rig(200, 100);
    rig.backend.setUIScale(2);  // 100 x 50 points
    addBox(rig.window(), {{10, 10}, {20, 20}}, {0, 1, 0, 1});

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
    SDL_Rect v{}, c{};
    Uint8 col[4];
    SDL_BlendMode mode;
    SDL_RenderGetScale(r, &sx, &sy);
    SDL_RenderGetViewport(r, &v);
    SDL_RenderGetClipRect(r, &c);
    SDL_GetRenderDrawColor(r, &col[0], &col[1], &col[2], &col[3]);
    SDL_GetRenderDrawBlendMode(r, &mode);
    EXPECT_TRUE(sx == 1.5f && sy == 1.25f);
    EXPECT_TRUE(SDL_RectEquals(&v, &viewport));
    EXPECT_TRUE(SDL_RectEquals(&c, &clip));
    EXPECT_TRUE(col[0] == 1 && col[1] == 2 && col[2] == 3 && col[3] == 4);
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

TEST(SdlRender, TexturesAreUploadedOncePerImageDroppedWithItAndBrokenImagesSkipped) {
    Rig rig(50, 50);
    // Shown at their own size: the software renderer keeps scaled copies elsewhere.
    auto view = ImageView::make({{0, 0}, {4, 4}}), twin = ImageView::make({{10, 10}, {4, 4}});
    view->setImage(solidImage(4, 4, 9, 9, 9));
    twin->setImage(view->image());
    rig.window()->addSubview(view);
    rig.window()->addSubview(twin);
    rig.frame(0, 0, 0);
    rig.frame(0, 0, 0);
    EXPECT_EQ(rig.backend.textures().uploads(), 1u);

    view->setImage(nullptr);
    twin->setImage(solidImage(4, 4, 1, 1, 1));  // the first image is gone now
    rig.frame(0, 0, 0);
    EXPECT_EQ(rig.backend.textures().uploads(), 2u);
    EXPECT_EQ(rig.backend.textures().size(), 1u);

    auto broken = std::make_shared<Image>();  // its pixel buffer does not match its size: skipped, not read
    broken->width = broken->height = 1000;
    twin->setImage(broken);
    rig.frame(0, 0, 0);
    EXPECT_EQ(rig.backend.textures().uploads(), 2u);
}

}  // namespace
