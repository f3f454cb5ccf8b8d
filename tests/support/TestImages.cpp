#include "support/TestImages.h"

#include <SDL.h>
#include <SDL_image.h>

#include <stdexcept>

namespace quov::test {
namespace {

// A JPEG at the given quality, a PNG without one.
std::string encode(int width, int height, const PixelFn& pixel, int jpegQuality) {
    SDL_Surface* surface =
        SDL_CreateRGBSurfaceWithFormat(0, width, height, 32, SDL_PIXELFORMAT_RGBA32);
    if (!surface) throw std::runtime_error(SDL_GetError());
    auto* rows = static_cast<std::uint8_t*>(surface->pixels);
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const std::uint32_t c = pixel(x, y);
            std::uint8_t* p = rows + y * surface->pitch + x * 4;
            p[0] = c >> 24, p[1] = c >> 16 & 0xff, p[2] = c >> 8 & 0xff, p[3] = c & 0xff;
        }
    // Room for an incompressible image plus headers.
    std::vector<char> buffer(static_cast<std::size_t>(width) * height * 5 + 65536);
    SDL_RWops* rw = SDL_RWFromMem(buffer.data(), static_cast<int>(buffer.size()));
    const int failed = jpegQuality ? IMG_SaveJPG_RW(surface, rw, 0, jpegQuality) : IMG_SavePNG_RW(surface, rw, 0);
    const auto size = SDL_RWtell(rw);
    SDL_RWclose(rw);
    SDL_FreeSurface(surface);
    if (failed != 0 || size <= 0) throw std::runtime_error("encoding a test image failed");
    return std::string(buffer.data(), static_cast<std::size_t>(size));
}

void putBE32(std::string& s, std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (24 - 8 * i));
}

}  // namespace

std::string encodePNG(int width, int height, const PixelFn& pixel) { return encode(width, height, pixel, 0); }

std::string encodeJPEG(int width, int height, const PixelFn& pixel, int quality) {
    return encode(width, height, pixel, quality);
}

std::string withPNGSize(std::string png, std::uint32_t width, std::uint32_t height) {
    putBE32(png, 16, width);
    putBE32(png, 20, height);
    std::uint32_t crc = 0xffffffffu;  // over "IHDR" and its 13 bytes
    for (std::size_t i = 12; i < 29; ++i) {
        crc ^= static_cast<unsigned char>(png[i]);
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    putBE32(png, 29, ~crc);
    return png;
}

}  // namespace quov::test
