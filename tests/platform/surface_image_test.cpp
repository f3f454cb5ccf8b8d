#include "platform/media/SurfaceImage.h"

#include <gtest/gtest.h>

#include <SDL.h>

#include <functional>
#include <tuple>
#include <vector>

using quov::platform::imageFromSurface;

namespace {

// Every byte of the pixel memory set, row padding included, so padding that leaks into
// the image shows.
SDL_Surface* filled(SDL_Surface* s, int modulo) {
    auto* p = static_cast<std::uint8_t*>(s->pixels);
    for (int i = 0; i < s->pitch * s->h; ++i) p[i] = static_cast<std::uint8_t>(modulo ? i % modulo : i * 37 + 11);
    return s;
}

SDL_Surface* patterned(int w, int h, Uint32 format) {
    return filled(SDL_CreateRGBSurfaceWithFormat(0, w, h, SDL_BITSPERPIXEL(format), format), 0);
}

SDL_Surface* keyedPalette() {
    SDL_Surface* s = filled(SDL_CreateRGBSurfaceWithFormat(0, 5, 3, 8, SDL_PIXELFORMAT_INDEX8), 4);
    const SDL_Color colours[] = {{255, 0, 0, 255}, {0, 255, 0, 128}, {0, 0, 255, 255}, {10, 20, 30, 40}};
    SDL_SetPaletteColors(s->format->palette, colours, 0, 4);
    SDL_SetColorKey(s, SDL_TRUE, 2);
    return s;
}

// SDL's own conversion to RGBA (whose rows need no padding): the independent answer. Takes the surface.
std::vector<std::uint8_t> sdlRGBA(SDL_Surface* surface) {
    SDL_Surface* rgba = SDL_ConvertSurfaceFormat(surface, SDL_PIXELFORMAT_RGBA32, 0);
    SDL_FreeSurface(surface);
    const auto* bytes = static_cast<const std::uint8_t*>(rgba->pixels);
    std::vector<std::uint8_t> out(bytes, bytes + rgba->pitch * rgba->h);
    SDL_FreeSurface(rgba);
    return out;
}

TEST(SurfaceImage, EveryLayoutComesOutAsSdlsOwnRgbaConversion) {
    std::uint8_t borrowed[4 * 3 * 4];
    for (std::size_t i = 0; i < sizeof borrowed; ++i) borrowed[i] = static_cast<std::uint8_t>(i * 7);
    // Whether the image adopts the surface's own pixel memory.
    const std::tuple<const char*, std::function<SDL_Surface*()>, bool> cases[] = {
        {"rgba", [] { return patterned(5, 3, SDL_PIXELFORMAT_RGBA32); }, true},
        {"rgb24 with padded rows", [] { return patterned(5, 3, SDL_PIXELFORMAT_RGB24); }, false},
        {"palette with a colour key", keyedPalette, false},
        {"rgba borrowed from elsewhere",
         [&] { return SDL_CreateRGBSurfaceWithFormatFrom(borrowed, 4, 3, 32, 16, SDL_PIXELFORMAT_RGBA32); }, false},
    };
    for (const auto& [name, make, adopted] : cases) {
        SCOPED_TRACE(name);
        const auto expected = sdlRGBA(make());
        SDL_Surface* surface = make();
        const void* pixels = surface->pixels;
        const int w = surface->w, h = surface->h;
        const auto image = imageFromSurface(surface);
        ASSERT_TRUE(image);
        EXPECT_TRUE(image->width == w && image->height == h);
        EXPECT_EQ(std::vector<std::uint8_t>(image->rgba.begin(), image->rgba.end()), expected);
        EXPECT_EQ(image->rgba.data() == pixels, adopted);
    }
}

}  // namespace
