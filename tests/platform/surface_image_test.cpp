#include "platform/media/SurfaceImage.h"

#include <gtest/gtest.h>

#include <SDL.h>

#include <functional>
#include <vector>

using quov::platform::imageFromSurface;

namespace {

// Every byte of the pixel memory set, row padding included, so padding that leaks into
// the image shows.
void fill(SDL_Surface* s, int modulo) {
    auto* p = static_cast<std::uint8_t*>(s->pixels);
    for (int i = 0; i < s->pitch * s->h; ++i) p[i] = static_cast<std::uint8_t>(modulo ? i % modulo : i * 37 + 11);
}

SDL_Surface* patterned(int w, int h, Uint32 format) {
    SDL_Surface* s = SDL_CreateRGBSurfaceWithFormat(0, w, h, SDL_BITSPERPIXEL(format), format);
    if (s) fill(s, 0);
    return s;
}

SDL_Surface* paletted(bool keyed) {
    SDL_Surface* s = SDL_CreateRGBSurfaceWithFormat(0, 5, 3, 8, SDL_PIXELFORMAT_INDEX8);
    if (!s) return nullptr;
    fill(s, 4);
    const SDL_Color colours[] = {{255, 0, 0, 255}, {0, 255, 0, 128}, {0, 0, 255, 255}, {10, 20, 30, 40}};
    SDL_SetPaletteColors(s->format->palette, colours, 0, 4);
    if (keyed) SDL_SetColorKey(s, SDL_TRUE, 2);
    return s;
}

// SDL's own conversion, rows unpadded: the independent answer.
std::vector<std::uint8_t> converted(SDL_Surface* s) {
    SDL_Surface* rgba = SDL_ConvertSurfaceFormat(s, SDL_PIXELFORMAT_RGBA32, 0);
    std::vector<std::uint8_t> out;
    if (!rgba) return out;
    for (int y = 0; y < rgba->h; ++y) {
        const auto* row = static_cast<const std::uint8_t*>(rgba->pixels) + static_cast<std::ptrdiff_t>(y) * rgba->pitch;
        out.insert(out.end(), row, row + rgba->w * 4);
    }
    SDL_FreeSurface(rgba);
    return out;
}

TEST(SurfaceImage, EveryLayoutComesOutAsSdlsOwnRgbaConversion) {
    std::uint8_t borrowed[4 * 3 * 4];
    struct Case {
        const char* name;
        std::function<SDL_Surface*()> make;
        bool adopted;  // the image uses the surface's own pixel memory
    };
    const Case cases[] = {
        {"rgba", [] { return patterned(5, 3, SDL_PIXELFORMAT_RGBA32); }, true},
        {"rgb24 with padded rows", [] { return patterned(5, 3, SDL_PIXELFORMAT_RGB24); }, false},
        {"palette with a colour key", [] { return paletted(true); }, false},
        {"rgba borrowed from elsewhere",
         [&] {
             for (std::size_t i = 0; i < sizeof borrowed; ++i) borrowed[i] = static_cast<std::uint8_t>(i * 7);
             return SDL_CreateRGBSurfaceWithFormatFrom(borrowed, 4, 3, 32, 16, SDL_PIXELFORMAT_RGBA32);
         },
         false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        SDL_Surface* twin = c.make();
        const auto expected = converted(twin);
        SDL_FreeSurface(twin);

        SDL_Surface* surface = c.make();
        ASSERT_TRUE(surface);
        const void* pixels = surface->pixels;
        const int w = surface->w, h = surface->h;
        const auto image = imageFromSurface(surface);
        ASSERT_TRUE(image);
        EXPECT_TRUE(image->width == w && image->height == h);
        EXPECT_EQ(std::vector<std::uint8_t>(image->rgba.begin(), image->rgba.end()), expected);
        EXPECT_EQ(image->rgba.data() == pixels, c.adopted);
    }
    // Pixel 2 holds the keyed index: it must come out transparent, not left unwritten.
    const auto keyed = imageFromSurface(paletted(true));
    ASSERT_TRUE(keyed);
    EXPECT_EQ(keyed->rgba[2 * 4 + 3], 0);
}

}  // namespace
