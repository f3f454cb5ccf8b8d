#include "platform/media/ImageDecoder.h"

#include "support/TestImages.h"

#include <gtest/gtest.h>

#include <SDL.h>

#include <atomic>

using quov::platform::decodeImage;
using quov::platform::ImageLimits;
namespace t = quov::test;
using namespace std::string_literals;

namespace {

std::uint32_t quadrants(int x, int y) {
    static const std::uint32_t colours[] = {0xff0000ff, 0x00ff00ff, 0x0000ffff, 0xffffff80};
    return colours[(y > 0 ? 2 : 0) + (x > 0 ? 1 : 0)];
}

const std::string kOnePixelWebP =
    "RIFF\x1a\x00\x00\x00WEBPVP8L\x0d\x00\x00\x00\x2f\x00\x00\x00\x10\x07\x10\x11\x11\x88\x88\xfe\x07\x00"s;
const std::string kTwoPixelGIF =
    "GIF89a\x02\x00\x01\x00\x80\x00\x00"      // 2x1, a global table of two colours: red, green
    "\xff\x00\x00\x00\xff\x00\x21\xf9\x04\x01\x00\x00\x01\x00"  // index 1 is transparent
    "\x2c\x00\x00\x00\x00\x02\x00\x01\x00\x00\x02\x02\x44\x0a\x00\x3b"s;  // the 2x1 frame: clear, 0, 1, end

// The largest block SDL is asked for while a probe lives, through SDL's own allocator hooks;
// the originals still do the work, so blocks may cross the swap.
std::atomic<std::size_t> largest{0};
SDL_malloc_func sdlMalloc;
SDL_calloc_func sdlCalloc;
SDL_realloc_func sdlRealloc;
SDL_free_func sdlFree;
void note(std::size_t n) {
    for (std::size_t seen = largest; n > seen && !largest.compare_exchange_weak(seen, n);) {}
}
struct AllocationProbe {
    AllocationProbe() {
        SDL_GetMemoryFunctions(&sdlMalloc, &sdlCalloc, &sdlRealloc, &sdlFree);
        largest = 0;
        SDL_SetMemoryFunctions(
            [](size_t n) { return note(n), sdlMalloc(n); },
            [](size_t k, size_t n) { return note(k * n), sdlCalloc(k, n); },
            [](void* p, size_t n) { return note(n), sdlRealloc(p, n); }, [](void* p) { sdlFree(p); });
    }
    ~AllocationProbe() { SDL_SetMemoryFunctions(sdlMalloc, sdlCalloc, sdlRealloc, sdlFree); }
};

TEST(ImageDecoder, DecodesEachFormatAndRefusesBrokenAndOversizedImagesBeforeAllocatingForThem) {
    const std::string png20 = t::encodePNG(20, 20, quadrants), jpeg8 = t::encodeJPEG(8, 8, quadrants);

    const std::tuple<const char*, std::string, ImageLimits> cases[] = {
        {"png claiming 100000x100000", t::withPNGSize(png20, 100000, 100000), {}},
        {"jpeg of 1000x1000 past a small cap", t::encodeJPEG(1000, 1000, quadrants), {.maxPixels = 100 * 100}},
        {"gif: refused, the system's GIF decoder is not safe on hostile files", kTwoPixelGIF, {}},
        {"over the pixel cap", png20, {.maxPixels = 399}},
        {"over the side cap", png20, {.maxSide = 19}},
        {"over the byte cap", png20, {.maxBytes = png20.size() - 1}},
        {"png of zero width", t::withPNGSize(png20, 0, 20), {}},
        {"jpeg cut before its scan", jpeg8.substr(0, 200), {}},
    };
    for (const auto& [name, bytes, limits] : cases) {
        const AllocationProbe probe;
        EXPECT_FALSE(decodeImage(bytes, limits)) << name;
        // A decoder trusting a 1000x1000 header would have made a surface of 3 MB or more.
        EXPECT_LT(largest, 1000000u) << name;
    }

    // Right at every cap is still fine.
    EXPECT_TRUE(decodeImage(png20, {.maxBytes = png20.size(), .maxSide = 20, .maxPixels = 400}));
    // Pixels come out as the surface conversion makes them, tested on its own.
    const auto jpeg = decodeImage(jpeg8), webp = decodeImage(kOnePixelWebP);
    EXPECT_TRUE(jpeg && jpeg->width == 8 && jpeg->height == 8 && webp && webp->width == 1 && webp->height == 1);
}

}  // namespace
