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

std::uint32_t crc32(const std::string& bytes, std::size_t from, std::size_t count) {
    std::uint32_t crc = 0xffffffffu;
    for (std::size_t i = from; i < from + count; ++i) {
        crc ^= static_cast<unsigned char>(bytes[i]);
        for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
    }
    return ~crc;
}

void putBE32(std::string& s, std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (24 - 8 * i));
}

}  // namespace

std::string encodePNG(int width, int height, const PixelFn& pixel) { return encode(width, height, pixel, 0); }

std::string encodeJPEG(int width, int height, const PixelFn& pixel, int quality) {
    return encode(width, height, pixel, quality);
}

std::vector<std::uint8_t> sdlRGBA(SDL_Surface* surface) {
    SDL_Surface* rgba = surface ? SDL_ConvertSurfaceFormat(surface, SDL_PIXELFORMAT_RGBA32, 0) : nullptr;
    SDL_FreeSurface(surface);
    std::vector<std::uint8_t> out;
    for (int y = 0; rgba && y < rgba->h; ++y) {
        const auto* row = static_cast<const std::uint8_t*>(rgba->pixels) + static_cast<std::ptrdiff_t>(y) * rgba->pitch;
        out.insert(out.end(), row, row + rgba->w * 4);
    }
    SDL_FreeSurface(rgba);
    return out;
}

std::string twoPixelGIF() {
    static const char bytes[] =
        "GIF89a\x02\x00\x01\x00\x80\x00\x00"      // 2x1, a global table of two colours
        "\xff\x00\x00\x00\xff\x00"                // red, green
        "\x21\xf9\x04\x01\x00\x00\x01\x00"        // index 1 is transparent
        "\x2c\x00\x00\x00\x00\x02\x00\x01\x00\x00"  // the frame, 2x1
        "\x02\x02\x44\x0a\x00"                    // LZW: clear, 0, 1, end
        "\x3b";
    return std::string(bytes, sizeof bytes - 1);
}

std::string onePixelWebP() {
    static const char bytes[] =
        "RIFF\x1a\x00\x00\x00WEBPVP8L\x0d\x00\x00\x00\x2f\x00\x00\x00\x10\x07\x10\x11\x11\x88"
        "\x88\xfe\x07\x00";
    return std::string(bytes, sizeof bytes - 1);
}

std::string withPNGSize(std::string png, std::uint32_t width, std::uint32_t height) {
    putBE32(png, 16, width);
    putBE32(png, 20, height);
    putBE32(png, 29, crc32(png, 12, 17));  // over "IHDR" and its 13 bytes
    return png;
}

std::string withJPEGSize(std::string jpeg, std::uint16_t width, std::uint16_t height) {
    std::size_t i = 2;
    while (i + 9 < jpeg.size()) {
        const auto marker = static_cast<unsigned char>(jpeg[i + 1]);
        const std::size_t length = static_cast<unsigned char>(jpeg[i + 2]) << 8 |
                                   static_cast<unsigned char>(jpeg[i + 3]);
        if (marker >= 0xc0 && marker <= 0xc2) {
            jpeg[i + 5] = static_cast<char>(height >> 8), jpeg[i + 6] = static_cast<char>(height);
            jpeg[i + 7] = static_cast<char>(width >> 8), jpeg[i + 8] = static_cast<char>(width);
            return jpeg;
        }
        i += 2 + length;
    }
    throw std::runtime_error("no frame header in the test JPEG");
}

}  // namespace quov::test
