#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

struct SDL_Surface;

namespace quov::test {

/// RGBA of the pixel at (x, y), as 0xRRGGBBAA.
using PixelFn = std::function<std::uint32_t(int x, int y)>;

/// Encoded images made in memory for decoding tests and benchmarks.
std::string encodePNG(int width, int height, const PixelFn& pixel);
std::string encodeJPEG(int width, int height, const PixelFn& pixel, int quality = 90);

/// SDL's own conversion of the surface to RGBA, rows unpadded: the independent answer.
/// Takes the surface; empty if SDL cannot convert it.
std::vector<std::uint8_t> sdlRGBA(SDL_Surface* surface);

/// The PNG with its header claiming another size (CRC fixed, so decoders believe it).
std::string withPNGSize(std::string png, std::uint32_t width, std::uint32_t height);

}  // namespace quov::test
