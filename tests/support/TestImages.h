#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace quov::test {

/// RGBA of the pixel at (x, y), as 0xRRGGBBAA.
using PixelFn = std::function<std::uint32_t(int x, int y)>;

/// Encoded images made in memory for decoding tests and benchmarks.
std::string encodePNG(int width, int height, const PixelFn& pixel);
std::string encodeJPEG(int width, int height, const PixelFn& pixel, int quality = 90);

/// The PNG with its header claiming another size (CRC fixed, so decoders believe it).
std::string withPNGSize(std::string png, std::uint32_t width, std::uint32_t height);

}  // namespace quov::test
