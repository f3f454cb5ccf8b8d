// The SDL backend on the offscreen driver: what it draws, and what it does when the host changes renderers.
#include <quov/QuovSDL.h>  // first: the public header stands on its own

#include "platform/toolkit/Application.h"
#include "platform/toolkit/ImageView.h"
#include "platform/sdl/SdlBackend.h"
#include "tests/support/SdlHeadless.h"
#include "tests/platform/pixels.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

using namespace quov;
using namespace quov::platform;

struct Rig {
    HeadlessDisplay display;
    MainLoop loop;
    Application app{loop};
    std::unique_ptr<SdlBackend> backend = std::make_unique<SdlBackend>(app);  // after the display: goes first

    Rig(int w, int h) : display(w, h) { backend->attachWindow(display.window()); }
    void add(const ViewPtr& v) { app.keyWindow()->addSubview(v); }
    void frame() {
        display.clear(0, 0, 0);
        backend->render(display.renderer());
    }
};

TEST(SdlRender, PointsScaleToPixelsAndTheHostsRendererStateIsRestored) {
    Rig rig(200, 100);
    rig.backend->setUIScale(2);  // 100 x 50 points
    auto box = View::make({{10, 10}, {20, 20}});
    box->setBackgroundColor({0, 1, 0, 1});
    rig.add(box);

    SDL_Renderer* r = rig.display.renderer();
    rig.display.clear(0, 0, 0);
    const SDL_Rect viewport{5, 5, 150, 80}, clip{10, 10, 40, 30};
    SDL_RenderSetScale(r, 1.5f, 1.25f);
    SDL_RenderSetViewport(r, &viewport);
    SDL_RenderSetClipRect(r, &clip);
    SDL_SetRenderDrawColor(r, 1, 2, 3, 4);
    SDL_SetRenderDrawBlendMode(r, SDL_BLENDMODE_ADD);
    rig.backend->render(r);

    float sx = 0, sy = 0;
    SDL_Rect v{}, c{};
    Uint8 col[4];
    SDL_BlendMode mode;
    SDL_RenderGetScale(r, &sx, &sy);
    SDL_RenderGetViewport(r, &v);
    SDL_RenderGetClipRect(r, &c);
    SDL_GetRenderDrawColor(r, &col[0], &col[1], &col[2], &col[3]);
    SDL_GetRenderDrawBlendMode(r, &mode);
    EXPECT_TRUE(sx == 1.5f && sy == 1.25f && SDL_RectEquals(&v, &viewport) && SDL_RectEquals(&c, &clip));
    EXPECT_TRUE(col[0] == 1 && col[1] == 2 && col[2] == 3 && col[3] == 4 && mode == SDL_BLENDMODE_ADD);

    // Drawn unclipped at twice the point size, whatever the host had set.
    SDL_RenderSetScale(r, 1, 1);
    SDL_RenderSetViewport(r, nullptr);
    SDL_RenderSetClipRect(r, nullptr);
    const auto px = rig.display.readPixels();
    const int greenAt[][3] = {{21, 21, 255}, {58, 58, 255}, {62, 30, 0}};
    for (const auto& [x, y, green] : greenAt) EXPECT_EQ(px.rgba[(y * px.width + x) * 4 + 1], green) << x << "," << y;
}

TEST(SdlRender, ATextureGoesWithItsImageAndABrokenImageIsSkipped) {
    Rig rig(50, 50);
    auto view = ImageView::make({{0, 0}, {4, 4}});  // at its own size: a plain upload
    view->setImage(test::solidImage(4, 4, 9, 9, 9));
    rig.add(view);
    rig.frame();
    view->setImage(test::solidImage(4, 4, 1, 1, 1));  // the first image is gone now
    rig.frame();
    EXPECT_TRUE(rig.backend->textures().uploads() == 2u && rig.backend->textures().size() == 1u);
    auto broken = std::make_shared<Image>();  // its pixel buffer does not match its size: skipped, not read
    broken->width = broken->height = 1000;
    view->setImage(broken);
    rig.frame();
    EXPECT_EQ(rig.backend->textures().uploads(), 2u);
}

constexpr int kSize = 120;

/// Draws a frame and tells whether the scaled image landed in it.
bool drawsInto(SdlBackend& backend, SDL_Renderer* r) {
    SDL_SetRenderDrawColor(r, 0, 0, 255, 255);
    SDL_RenderClear(r);
    backend.render(r);
    Uint8 px[4]{};
    const SDL_Rect at{50, 30, 1, 1};
    return SDL_RenderReadPixels(r, &at, SDL_PIXELFORMAT_RGBA32, px, 4) == 0 && px[0] == 255 && px[2] == 0;
}

// The host destroys the renderer (and maybe its window after it), maybe releasing too late: what the
// backend held there it never touches. The ad's kinds of textures: a mask (a fill tile), a scaled image
// (a prescaled copy) and an image at its own size (a plain upload).
TEST(SdlRenderers, AWindowRendererTheHostDestroyedIsForgottenNotDestroyedAgain) {
    for (const bool destroyWindow : {false, true})
        for (const bool releaseAfter : {false, true}) {
            Rig rig(kSize, kSize);
            auto mask = View::make({{0, 0}, {kSize, kSize}});
            mask->setBackgroundColor({0, 0, 0, 0.5});
            auto scaled = ImageView::make({{10, 10}, {80, 40}});
            scaled->setImage(test::solidImage(20, 10, 255, 0, 0));
            auto plain = ImageView::make({{100, 100}, {4, 4}});
            plain->setImage(test::solidImage(4, 4, 0, 255, 0));
            for (const ViewPtr& v : {mask, ViewPtr(scaled), ViewPtr(plain)}) rig.add(v);
            SDL_Window* window = SDL_CreateWindow("second", 0, 0, kSize, kSize, 0);
            SDL_Renderer* gone = SDL_CreateRenderer(window, -1, SDL_RENDERER_SOFTWARE);
            ASSERT_TRUE(gone) << SDL_GetError();
            EXPECT_TRUE(drawsInto(*rig.backend, gone));
            SDL_DestroyRenderer(gone);
            if (destroyWindow) SDL_DestroyWindow(window), window = nullptr;
            SDL_ClearError();
            if (releaseAfter) rig.backend->releaseRenderer();
            // A new renderer on the same window may take the freed one's address, which
            // nothing can tell apart: only after releasing is that safe.
            SDL_Renderer* into = rig.display.renderer();
            if (releaseAfter && window) into = SDL_CreateRenderer(window, -1, SDL_RENDERER_SOFTWARE);
            EXPECT_TRUE(drawsInto(*rig.backend, into)) << destroyWindow << releaseAfter;
            EXPECT_STREQ(SDL_GetError(), "") << destroyWindow << releaseAfter;
            EXPECT_TRUE(drawsInto(*rig.backend, into));
            rig.backend.reset();  // gives up the textures of the renderer drawn into last
            if (into != rig.display.renderer()) SDL_DestroyRenderer(into);
            if (window) SDL_DestroyWindow(window);
        }
}

}  // namespace
