// Decoded images for the renderer tests: one colour, or a pattern whose every
// pixel differs from its neighbours (holes: transparent and translucent patches).
#pragma once

#include "platform/toolkit/Image.h"

#include <memory>

namespace quov::test {

inline std::shared_ptr<platform::Image> blankImage(int w, int h) {
    auto img = std::make_shared<platform::Image>();
    img->width = w;
    img->height = h;
    img->rgba = platform::PixelBytes(static_cast<std::size_t>(w) * static_cast<std::size_t>(h) * 4);
    return img;
}

inline platform::ImagePtr solidImage(int w, int h, std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    auto img = blankImage(w, h);
    const std::uint8_t pixel[] = {r, g, b, 255};
    for (std::size_t i = 0; i < img->rgba.size(); ++i) img->rgba[i] = pixel[i % 4];
    return img;
}

inline platform::ImagePtr patternImage(int w, int h, bool holes) {
    auto img = blankImage(w, h);
    for (int y = 0, i = 0; y < h; ++y)
        for (int x = 0; x < w; ++x, i += 4) {
            img->rgba[i] = static_cast<std::uint8_t>(x * 7);
            img->rgba[i + 1] = static_cast<std::uint8_t>(y * 5);
            img->rgba[i + 2] = static_cast<std::uint8_t>((x ^ y) * 3);
            img->rgba[i + 3] = static_cast<std::uint8_t>(!holes ? 255 : (x / 9 + y / 7) % 3 == 0 ? 0 : 60 + (x * y) % 196);
        }
    return img;
}

}  // namespace quov::test
