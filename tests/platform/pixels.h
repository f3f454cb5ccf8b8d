// Decoded images for the renderer tests: one colour, or a pattern whose every
// pixel differs from its neighbours (holes: transparent and translucent patches).
#pragma once

#include "platform/toolkit/Image.h"

#include <array>
#include <memory>

namespace quov::test {

// An image whose pixel (x, y) is rgba(x, y).
template <class Rgba>
platform::ImagePtr makeImage(int w, int h, Rgba rgba) {
    auto img = std::make_shared<platform::Image>();
    img->width = w;
    img->height = h;
    img->rgba = platform::PixelBytes(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 4);
    for (int i = 0; i < w * h * 4; ++i) img->rgba[i] = static_cast<std::uint8_t>(rgba(i / 4 % w, i / 4 / w)[i % 4]);
    return img;
}

inline platform::ImagePtr solidImage(int w, int h, int r, int g, int b) {
    return makeImage(w, h, [=](int, int) { return std::array{r, g, b, 255}; });
}

inline platform::ImagePtr patternImage(int w, int h, bool holes) {
    return makeImage(w, h, [=](int x, int y) {
        return std::array{x * 7, y * 5, (x ^ y) * 3, !holes ? 255 : (x / 9 + y / 7) % 3 == 0 ? 0 : 60 + (x * y) % 196};
    });
}

}  // namespace quov::test
