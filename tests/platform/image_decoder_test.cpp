#include "platform/ImageDecoder.h"

#include "support/TestImages.h"

#include <gtest/gtest.h>

#include <SDL.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <vector>

using quov::platform::decodeImage;
using quov::platform::ImageFormat;
using quov::platform::ImageLimits;
using quov::platform::probeImage;
namespace t = quov::test;

namespace {

std::uint32_t quadrants(int x, int y) {
    static const std::uint32_t colours[] = {0xff0000ff, 0x00ff00ff, 0x0000ffff, 0xffffff80};
    return colours[(y > 0 ? 2 : 0) + (x > 0 ? 1 : 0)];
}

std::vector<int> pixelAt(const quov::platform::Image& image, int x, int y) {
    const auto* p = &image.rgba[(static_cast<std::size_t>(y) * image.width + x) * 4];
    return {p[0], p[1], p[2], p[3]};
}

TEST(ImageDecoder, PngDecodesToExactRgbaInRowOrder) {
    const auto image = decodeImage(t::encodePNG(2, 2, quadrants));
    ASSERT_TRUE(image);
    ASSERT_EQ(image->width, 2);
    ASSERT_EQ(image->height, 2);
    EXPECT_EQ(image->rgba, (std::vector<std::uint8_t>{255, 0, 0, 255, 0, 255, 0, 255,  //
                                                      0, 0, 255, 255, 255, 255, 255, 128}));
}

TEST(ImageDecoder, OtherFormatsDecode) {
    struct Case {
        const char* name;
        std::string bytes;
        int width, height;
        std::vector<std::vector<int>> pixels;  // expected per pixel, row by row; -1: any
    };
    const std::vector<Case> cases = {
        {"jpeg", t::encodeJPEG(16, 8, [](int, int) { return 0xff8000ffu; }), 16, 8, {}},
        {"gif, transparent index", t::twoPixelGIF(), 2, 1, {{255, 0, 0, 255}, {-1, -1, -1, 0}}},
        {"webp lossless", t::onePixelWebPLossless(), 1, 1, {}},
        {"webp lossy", t::onePixelWebPLossy(), 1, 1, {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto image = decodeImage(c.bytes);
        ASSERT_TRUE(image);
        EXPECT_EQ(image->width, c.width);
        EXPECT_EQ(image->height, c.height);
        ASSERT_EQ(image->rgba.size(), static_cast<std::size_t>(c.width * c.height * 4));
        for (std::size_t i = 0; i < c.pixels.size(); ++i) {
            const auto got = pixelAt(*image, static_cast<int>(i) % c.width,
                                     static_cast<int>(i) / c.width);
            for (int k = 0; k < 4; ++k)
                if (c.pixels[i][k] >= 0) {
                    EXPECT_EQ(got[k], c.pixels[i][k]) << "pixel " << i;
                }
        }
    }
    // Lossy, so only roughly orange and opaque.
    const auto jpeg = decodeImage(cases[0].bytes);
    const auto p = pixelAt(*jpeg, 7, 3);
    EXPECT_GT(p[0], 230);
    EXPECT_NEAR(p[1], 128, 20);
    EXPECT_LT(p[2], 30);
    EXPECT_EQ(p[3], 255);
}

TEST(ImageDecoder, ProbeReadsSizesFromHeadersAlone) {
    std::string bigFrameGIF = t::twoPixelGIF();
    bigFrameGIF[32] = '\x60', bigFrameGIF[33] = '\xea';  // first frame 60000 wide on a 2x1 screen
    std::string zeroWidthPNG = t::withPNGSize(t::encodePNG(3, 3, quadrants), 0, 3);
    const std::string png = t::encodePNG(300, 200, quadrants);
    struct Case {
        const char* name;
        std::string bytes;
        std::optional<ImageFormat> format;
        int width = 0, height = 0;
    };
    const std::vector<Case> cases = {
        {"png", png, ImageFormat::PNG, 300, 200},
        {"png claiming 100000x50000", t::withPNGSize(png, 100000, 50000), ImageFormat::PNG,
         100000, 50000},
        {"jpeg", t::encodeJPEG(40, 30, quadrants), ImageFormat::JPEG, 40, 30},
        {"jpeg claiming 65000x64000", t::withJPEGSize(t::encodeJPEG(8, 8, quadrants), 65000, 64000),
         ImageFormat::JPEG, 65000, 64000},
        {"gif", t::twoPixelGIF(), ImageFormat::GIF, 2, 1},
        {"gif frame larger than its screen", bigFrameGIF, ImageFormat::GIF, 60000, 1},
        {"webp lossless", t::onePixelWebPLossless(), ImageFormat::WebP, 1, 1},
        {"webp lossy", t::onePixelWebPLossy(), ImageFormat::WebP, 1, 1},
        {"empty", "", std::nullopt},
        {"text", "<html>not an image</html>", std::nullopt},
        {"bmp", "BM" + std::string(60, '\0'), std::nullopt},
        {"png cut inside IHDR", png.substr(0, 20), std::nullopt},
        {"png of zero width", zeroWidthPNG, std::nullopt},
        {"jpeg without a frame header", std::string("\xff\xd8\xff\xda\x00\x02", 6), std::nullopt},
        {"jpeg cut in a segment", t::encodeJPEG(8, 8, quadrants).substr(0, 30), std::nullopt},
        {"gif without a frame", std::string("GIF89a\x02\x00\x01\x00\x00\x00\x00\x3b", 14),
         std::nullopt},
        {"riff that is not webp", "RIFF\x10\x00\x00\x00WAVEfmt " + std::string(30, '\0'),
         std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        const auto header = probeImage(c.bytes);
        ASSERT_EQ(header.has_value(), c.format.has_value());
        if (!header) continue;
        EXPECT_EQ(header->format, *c.format);
        EXPECT_EQ(header->width, c.width);
        EXPECT_EQ(header->height, c.height);
    }
}

TEST(ImageDecoder, RefusesBrokenAndOversizedImages) {
    const std::string png20 = t::encodePNG(20, 20, quadrants);
    std::string brokenData = png20;
    for (std::size_t i = 60; i < brokenData.size() - 20; ++i) brokenData[i] ^= 0x5a;
    std::string bigFrameGIF = t::twoPixelGIF();
    bigFrameGIF[32] = bigFrameGIF[33] = bigFrameGIF[34] = bigFrameGIF[35] = '\xff';

    ImageLimits pixels399, side19, bytesLess;
    pixels399.maxPixels = 399;
    side19.maxSide = 19;
    bytesLess.maxBytes = png20.size() - 1;
    struct Case {
        const char* name;
        std::string bytes;
        ImageLimits limits;
    };
    // The oversized ones are otherwise valid headers: decoding them would allocate
    // gigabytes before noticing the data is short.
    const std::vector<Case> cases = {
        {"png claiming 100000x100000", t::withPNGSize(png20, 100000, 100000), {}},
        {"png claiming 20000x1", t::withPNGSize(png20, 20000, 1), {}},
        {"jpeg claiming 65000x65000", t::withJPEGSize(t::encodeJPEG(8, 8, quadrants), 65000, 65000),
         {}},
        {"gif frame of 65535x65535", bigFrameGIF, {}},
        {"over the pixel cap", png20, pixels399},
        {"over the side cap", png20, side19},
        {"over the byte cap", png20, bytesLess},
        {"png cut in half", png20.substr(0, png20.size() / 2), {}},
        {"png with scrambled data", brokenData, {}},
        {"jpeg cut before its scan", t::encodeJPEG(8, 8, quadrants).substr(0, 200), {}},
        {"not an image", std::string(500, 'x'), {}},
    };
    for (const auto& c : cases) EXPECT_FALSE(decodeImage(c.bytes, c.limits)) << c.name;

    // Right at the caps is still fine.
    ImageLimits exact;
    exact.maxPixels = 400, exact.maxSide = 20, exact.maxBytes = png20.size();
    EXPECT_TRUE(decodeImage(png20, exact));
}

// Records the largest block SDL is asked for, through SDL's own allocator hooks; the
// originals still do the work, so blocks cross the swap safely.
class LargestSDLAllocation {
public:
    LargestSDLAllocation() {
        SDL_GetMemoryFunctions(&malloc_, &calloc_, &realloc_, &free_);
        largest_ = 0;
        SDL_SetMemoryFunctions(
            [](size_t n) { return note(n), malloc_(n); },
            [](size_t k, size_t n) { return note(k * n), calloc_(k, n); },
            [](void* p, size_t n) { return note(n), realloc_(p, n); }, [](void* p) { free_(p); });
    }
    ~LargestSDLAllocation() { SDL_SetMemoryFunctions(malloc_, calloc_, realloc_, free_); }
    std::size_t bytes() const { return largest_; }

private:
    static void note(std::size_t n) {
        std::size_t seen = largest_;
        while (n > seen && !largest_.compare_exchange_weak(seen, n)) {}
    }
    static inline SDL_malloc_func malloc_;
    static inline SDL_calloc_func calloc_;
    static inline SDL_realloc_func realloc_;
    static inline SDL_free_func free_;
    static inline std::atomic<std::size_t> largest_{0};
};

TEST(ImageDecoder, OversizedHeaderIsRefusedBeforeTheDecoderAllocates) {
    ImageLimits small;
    small.maxPixels = 100 * 100;
    const struct {
        const char* name;
        std::string bytes;
    } cases[] = {
        {"png", t::withPNGSize(t::encodePNG(8, 8, quadrants), 1000, 1000)},
        {"jpeg", t::withJPEGSize(t::encodeJPEG(8, 8, quadrants), 1000, 1000)},
    };
    for (const auto& c : cases) {
        LargestSDLAllocation probe;
        EXPECT_FALSE(decodeImage(c.bytes, small)) << c.name;
        // A decoder that trusted the header would have made a 1000x1000 surface (3 MB+).
        EXPECT_LT(probe.bytes(), 1000000u) << c.name;
    }
}

}  // namespace
