// The SDL backend across renderers: what it held on one it gives up when the host
// moves to another, and what a host-destroyed renderer held it never touches.
// Memory checkers (valgrind) see any read of what SDL freed; the sanitizer build
// does not look inside SDL.
#include "platform/toolkit/Application.h"
#include "platform/toolkit/ImageView.h"
#include "platform/sdl/SdlBackend.h"
#include "tests/support/SdlHeadless.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace quov;
using namespace quov::platform;

constexpr int kSize = 120;

ImagePtr solidImage(int w, int h, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    auto img = std::make_shared<Image>();
    img->width = w;
    img->height = h;
    const std::uint8_t pixel[] = {r, g, b, 255};
    img->rgba = PixelBytes(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 4);
    for (std::size_t i = 0; i < img->rgba.size(); ++i) img->rgba[i] = pixel[i % 4];
    return img;
}

/// The ad's kinds of textures: a translucent mask (a fill tile), a scaled image
/// (a prescaled copy) and an image at its own size (a plain upload).
struct Rig {
    HeadlessDisplay display{kSize, kSize};
    MainLoop loop;
    Application app{loop};
    std::unique_ptr<SdlBackend> backend = std::make_unique<SdlBackend>(app);

    Rig() {
        backend->attachWindow(display.window());
        auto mask = View::make({{0, 0}, {kSize, kSize}});
        mask->setBackgroundColor({0, 0, 0, 0.5});
        auto scaled = ImageView::make({{10, 10}, {80, 40}});
        scaled->setImage(solidImage(20, 10, 255, 0, 0));
        auto plain = ImageView::make({{100, 100}, {4, 4}});
        plain->setImage(solidImage(4, 4, 0, 255, 0));
        for (const ViewPtr& v : {mask, ViewPtr(scaled), ViewPtr(plain)}) app.keyWindow()->addSubview(v);
    }
    /// Draws a frame and tells whether the scaled image landed in it.
    bool drawsInto(SDL_Renderer* r) {
        SDL_SetRenderDrawColor(r, 0, 0, 255, 255);
        SDL_RenderClear(r);
        backend->render(r);
        Uint8 px[4]{};
        const SDL_Rect at{50, 30, 1, 1};
        return SDL_RenderReadPixels(r, &at, SDL_PIXELFORMAT_RGBA32, px, 4) == 0 && px[0] == 255 && px[2] == 0;
    }
};

/// A renderer the way a host makes one: on a window of its own, or on a surface.
struct Target {
    SDL_Window* window = nullptr;
    SDL_Surface* surface = nullptr;
    SDL_Renderer* renderer = nullptr;
    explicit Target(bool onWindow) {
        if (onWindow) {
            window = SDL_CreateWindow("second", 0, 0, kSize, kSize, 0);
            renderer = SDL_CreateRenderer(window, -1, SDL_RENDERER_SOFTWARE);
        } else {
            surface = SDL_CreateRGBSurfaceWithFormat(0, kSize, kSize, 32, SDL_PIXELFORMAT_ARGB8888);
            renderer = SDL_CreateSoftwareRenderer(surface);
        }
    }
    ~Target() {
        if (renderer) SDL_DestroyRenderer(renderer);
        if (window) SDL_DestroyWindow(window);
        if (surface) SDL_FreeSurface(surface);
    }
    Target(const Target&) = delete;
    Target& operator=(const Target&) = delete;
};

TEST(SdlRenderers, AWindowRendererTheHostDestroyedIsForgottenNotDestroyedAgain) {
    struct Case {
        const char* name;
        bool destroyWindow;  // after the renderer, the order SDL asks for
        bool releaseAfter;   // the host calls releaseRenderer() too late
    };
    const Case cases[] = {
        {"renderer destroyed", false, false},
        {"renderer destroyed, then released", false, true},
        {"renderer and window destroyed", true, false},
        {"renderer and window destroyed, then released", true, true},
    };
    for (const Case& c : cases) {
        Rig rig;
        auto gone = std::make_unique<Target>(true);
        ASSERT_TRUE(gone->renderer) << SDL_GetError();
        EXPECT_TRUE(rig.drawsInto(gone->renderer)) << c.name;
        SDL_DestroyRenderer(gone->renderer);
        gone->renderer = nullptr;
        if (c.destroyWindow) {
            SDL_DestroyWindow(gone->window);
            gone->window = nullptr;
        }
        // SDL mostly notices a freed texture by its tag (an invalid parameter) before
        // freeing it twice; memory checkers see the rest.
        SDL_ClearError();
        if (c.releaseAfter) rig.backend->releaseRenderer();
        // A new renderer on the same window may take the freed one's address, which
        // nothing can tell apart: only after releasing is that safe.
        SDL_Renderer* into = rig.display.renderer();
        if (c.releaseAfter && gone->window) into = SDL_CreateRenderer(gone->window, -1, SDL_RENDERER_SOFTWARE);
        EXPECT_TRUE(rig.drawsInto(into)) << c.name;
        EXPECT_STREQ(SDL_GetError(), "") << c.name;
        EXPECT_TRUE(rig.drawsInto(into)) << c.name;
        rig.backend.reset();  // gives up the textures of the renderer drawn into last
        if (into != rig.display.renderer()) gone->renderer = into;
    }
}

}  // namespace
