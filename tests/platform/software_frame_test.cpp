// The software renderer's fast path (prescaled images, fills blended into the window's surface or
// skipped under opaque images) against plain SDL calls on the same tree: the same frame, exactly.
#include "platform/sdl/SdlBackend.h"
#include "platform/sdl/SoftwareFrame.h"
#include "platform/toolkit/Application.h"
#include "platform/toolkit/Button.h"
#include "platform/toolkit/ImageView.h"
#include "tests/support/SdlHeadless.h"
#include "tests/platform/pixels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <tuple>

namespace {

using namespace quov;
using namespace quov::platform;

std::uint8_t channel(double v) { return static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0, 1.0) * 255.0)); }

/// The unoptimised path: every fill and every image handed to SDL as it comes.
class PlainPainter : public Painter {
public:
    PlainPainter(SDL_Renderer* r, TextureCache& t) : r_(r), t_(t) {}
    void fillRect(const Rect& rect, const Color& c) override {
        const SDL_FRect f = px(rect);
        if (f.w <= 0 || f.h <= 0) return;
        SDL_SetRenderDrawColor(r_, channel(c.red), channel(c.green), channel(c.blue), channel(c.alpha));
        SDL_RenderFillRectF(r_, &f);
    }
    void drawImage(const ImagePtr& image, const Rect& s, const Rect& d, double alpha) override {
        SDL_Texture* t = t_.textureFor(image);
        const SDL_FRect f = px(d);
        if (!t || f.w <= 0 || f.h <= 0) return;
        const SDL_Rect src{static_cast<int>(std::lround(s.origin.x)), static_cast<int>(std::lround(s.origin.y)),
                           std::max(1, static_cast<int>(std::lround(s.size.width))),
                           std::max(1, static_cast<int>(std::lround(s.size.height)))};
        SDL_SetTextureAlphaMod(t, channel(alpha));
        SDL_RenderCopyF(r_, t, &src, &f);
    }

private:
    static SDL_FRect px(const Rect& r) {
        return {float(r.origin.x), float(r.origin.y), float(r.size.width), float(r.size.height)};
    }
    SDL_Renderer* r_;
    TextureCache& t_;
};

// The ad's shape: a full-screen translucent mask, an image over it, a button beside it.
TEST(SoftwareFrame, MatchesPlainSdlCallsPixelForPixel) {
    const struct {
        const char* name;
        int width, height;
        ContentMode mode;
        bool transparentCreative;
        double imageAlpha;
    } scenes[] = {{"landscape fill", 480, 270, ContentMode::ScaleAspectFill, false, 1},
                  {"transparent creative", 300, 400, ContentMode::ScaleAspectFit, true, 1},
                  {"translucent view", 270, 480, ContentMode::ScaleToFill, false, 0.6}};
    for (const auto& scene : scenes) {
        SCOPED_TRACE(scene.name);
        HeadlessDisplay display(scene.width, scene.height);
        MainLoop loop;
        Application app(loop);
        SdlBackend backend(app);
        backend.attachWindow(display.window());
        auto window = app.keyWindow();
        const double w = scene.width, h = scene.height;
        auto mask = View::make(window->bounds());
        mask->setBackgroundColor(Color::black());
        mask->setAlpha(0.8);
        const Rect imageFrame{{w * 0.131 + 0.4, h * 0.077 + 0.3}, {w * 0.61 + 0.7, h * 0.71 + 0.2}};
        auto image = ImageView::make(imageFrame);
        image->setContentMode(scene.mode);
        image->setImage(test::patternImage(301, 257, scene.transparentCreative));
        image->setAlpha(scene.imageAlpha);
        auto button = Button::make({{w * 0.741 + 11.6, h * 0.077 - 2.7}, {40, 40}});  // right of the image
        button->setContentEdgeInsets({5, 5, 5, 5});
        button->setImage(test::patternImage(120, 120, true), ControlState::Normal);
        for (const ViewPtr& v : {mask, ViewPtr(image), ViewPtr(button)}) window->addSubview(v);

        const auto background = [&] {  // varied, so every blend rounding shows
            for (int y = 0; y < scene.height; y += 16)
                for (int x = 0; x < scene.width; x += 16) {
                    SDL_SetRenderDrawColor(display.renderer(), Uint8(x * 3), Uint8(y * 5), Uint8(x + y), 255);
                    const SDL_Rect r{x, y, 16, 16};
                    SDL_RenderFillRect(display.renderer(), &r);
                }
        };
        // The fast fill needs a window surface in a format it knows; the offscreen driver's is one.
        const SDL_Surface* surface = SDL_GetWindowSurface(display.window());
        ASSERT_TRUE(surface && (surface->format->format == SDL_PIXELFORMAT_RGB888 ||
                                surface->format->format == SDL_PIXELFORMAT_ARGB8888));

        background();
        backend.render(display.renderer());
        const PixelBuffer fast = display.readPixels();

        background();
        TextureCache textures;
        textures.bind(display.renderer());
        SDL_SetRenderDrawBlendMode(display.renderer(), SDL_BLENDMODE_BLEND);
        PlainPainter plain(display.renderer(), textures);
        window->layoutIfNeeded();
        drawViewTree(*window, plain);
        SDL_RenderFlush(display.renderer());
        EXPECT_TRUE(fast.rgba == display.readPixels().rgba);

        backend.releaseRenderer();
    }
}

// The in-place fill against SDL's own blended fill on the same bytes: every alpha,
// every destination byte value, both formats, rectangles SDL has to clip.
TEST(SoftwareBlendFill, LeavesTheSameBytesAsSdlsBlendedFill) {
    const auto make = [](Uint32 format) {
        return std::unique_ptr<SDL_Surface, decltype(&SDL_FreeSurface)>(
            SDL_CreateRGBSurfaceWithFormat(0, 256, 16, 32, format), &SDL_FreeSurface);
    };
    const std::tuple<Uint32, SDL_Rect, Uint8, Uint8, Uint8> cases[] = {  // format, rectangle, colour
        {SDL_PIXELFORMAT_RGB888, {-7, 3, 100, 40}, 200, 17, 255},
        {SDL_PIXELFORMAT_ARGB8888, {0, 0, 256, 16}, 0, 0, 0},
        {SDL_PIXELFORMAT_ARGB8888, {61, -2, 300, 9}, 255, 128, 1},
    };
    for (const auto& [format, rect, r, g, b] : cases) {
        auto start = make(format), ours = make(format), theirs = make(format);  // every byte value, each channel
        auto* bytes = static_cast<Uint8*>(start->pixels);
        for (int i = 0; i < start->pitch * start->h; ++i) bytes[i] = static_cast<Uint8>(i / 4 + (i % 4) * 67 + i / 1024);
        SDL_Renderer* sdl = SDL_CreateSoftwareRenderer(theirs.get());
        ASSERT_TRUE(sdl) << SDL_GetError();
        SDL_SetRenderDrawBlendMode(sdl, SDL_BLENDMODE_BLEND);
        const std::size_t size = static_cast<std::size_t>(start->pitch) * static_cast<std::size_t>(start->h);
        for (int a = 0; a < 256; ++a) {
            std::memcpy(ours->pixels, start->pixels, size);
            std::memcpy(theirs->pixels, start->pixels, size);
            ASSERT_TRUE(blendFill(ours.get(), rect, r, g, b, static_cast<Uint8>(a)));
            SDL_SetRenderDrawColor(sdl, r, g, b, static_cast<Uint8>(a));
            SDL_RenderFillRect(sdl, &rect);
            SDL_RenderFlush(sdl);
            ASSERT_EQ(std::memcmp(ours->pixels, theirs->pixels, size), 0) << SDL_GetPixelFormatName(format) << a;
        }
        SDL_DestroyRenderer(sdl);
    }
    EXPECT_FALSE(blendFill(make(SDL_PIXELFORMAT_ABGR8888).get(), {0, 0, 8, 8}, 1, 2, 3, 100)) << "an unknown layout";
}

}  // namespace
