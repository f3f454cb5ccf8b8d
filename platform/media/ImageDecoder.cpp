#include "platform/media/ImageDecoder.h"

#include "platform/media/SurfaceImage.h"

#include <SDL.h>
#include <SDL_image.h>

#include <memory>
#include <mutex>

namespace quov::platform {
namespace {

using Bytes = std::string_view;

// Past the end reads as 0, so a header cut short can never be read beyond its bytes.
unsigned byteAt(Bytes b, std::size_t i) { return i < b.size() ? static_cast<unsigned char>(b[i]) : 0u; }
std::uint32_t be16(Bytes b, std::size_t i) { return byteAt(b, i) << 8 | byteAt(b, i + 1); }
std::uint32_t le16(Bytes b, std::size_t i) { return byteAt(b, i) | byteAt(b, i + 1) << 8; }
std::uint32_t le24(Bytes b, std::size_t i) { return le16(b, i) | byteAt(b, i + 2) << 16; }
std::uint32_t le32(Bytes b, std::size_t i) { return le24(b, i) | byteAt(b, i + 3) << 24; }
std::uint32_t be32(Bytes b, std::size_t i) { return be16(b, i) << 16 | be16(b, i + 2); }

std::optional<ImageHeader> sized(ImageFormat format, std::uint32_t w, std::uint32_t h) {
    if (w == 0 || h == 0 || w > 0x7fffffffu || h > 0x7fffffffu) return std::nullopt;
    return ImageHeader{format, static_cast<int>(w), static_cast<int>(h)};
}

std::optional<ImageHeader> probePNG(Bytes b) {
    // Signature, then IHDR is required to come first.
    if (b.size() < 24 || b.substr(0, 8) != Bytes("\x89PNG\r\n\x1a\n", 8) ||
        b.substr(12, 4) != "IHDR")
        return std::nullopt;
    // Every chunk must lie within the file up to IEND: a chunk claiming more than
    // is there makes the decoder inflate phantom bytes for minutes (found by fuzzing).
    for (std::size_t i = 8;;) {
        if (i + 12 > b.size()) return std::nullopt;
        const std::size_t length = be32(b, i);
        if (length > b.size() - i - 12) return std::nullopt;
        if (b.substr(i + 4, 4) == "IEND") break;
        i += length + 12;
    }
    return sized(ImageFormat::PNG, be32(b, 16), be32(b, 20));
}

constexpr std::size_t kMaxJPEGScans = 100;

std::optional<ImageHeader> probeJPEG(Bytes b) {
    if (b.size() < 4 || byteAt(b, 0) != 0xFF || byteAt(b, 1) != 0xD8) return std::nullopt;
    std::size_t i = 2;
    while (i < b.size()) {
        if (byteAt(b, i) != 0xFF) return std::nullopt;
        while (i < b.size() && byteAt(b, i) == 0xFF) ++i;  // fill bytes
        if (i >= b.size()) return std::nullopt;
        const unsigned marker = byteAt(b, i++);
        if (marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8)) continue;  // no length
        if (marker == 0xD9 || marker == 0xDA) return std::nullopt;  // no frame before the scan
        if (i + 2 > b.size()) return std::nullopt;
        const std::size_t length = be16(b, i);
        if (length < 2) return std::nullopt;
        const bool startOfFrame =
            marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (startOfFrame) {
            if (length < 7 || i + 7 > b.size()) return std::nullopt;
            // Each progressive scan revisits the whole image: a file of thousands of
            // tiny scans decodes for minutes. Real encoders write about a dozen.
            std::size_t scans = 0;
            for (std::size_t k = i; k + 1 < b.size(); ++k)
                if (byteAt(b, k) == 0xFF && byteAt(b, k + 1) == 0xDA && ++scans > kMaxJPEGScans)
                    return std::nullopt;
            return sized(ImageFormat::JPEG, be16(b, i + 5), be16(b, i + 3));
        }
        i += length;
    }
    return std::nullopt;
}

// Recognised so that a GIF is refused as a GIF (see decodeImage), not misread.
std::optional<ImageHeader> probeGIF(Bytes b) {
    if (b.size() < 13 || (b.substr(0, 6) != "GIF87a" && b.substr(0, 6) != "GIF89a"))
        return std::nullopt;
    return sized(ImageFormat::GIF, le16(b, 6), le16(b, 8));
}

std::optional<ImageHeader> probeWebP(Bytes b) {
    if (b.size() < 30 || b.substr(0, 4) != "RIFF" || b.substr(8, 4) != "WEBP")
        return std::nullopt;
    const Bytes chunk = b.substr(12, 4);
    const std::size_t d = 20;
    if (chunk == "VP8 " && b.substr(d + 3, 3) == "\x9d\x01\x2a")
        return sized(ImageFormat::WebP, le16(b, d + 6) & 0x3fff, le16(b, d + 8) & 0x3fff);
    if (chunk == "VP8L" && byteAt(b, d) == 0x2f) {
        const std::uint32_t bits = le32(b, d + 1);
        return sized(ImageFormat::WebP, (bits & 0x3fff) + 1, ((bits >> 14) & 0x3fff) + 1);
    }
    if (chunk == "VP8X")
        return sized(ImageFormat::WebP, le24(b, d + 4) + 1, le24(b, d + 7) + 1);
    return std::nullopt;
}

bool within(const ImageLimits& limits, int w, int h) {
    return w > 0 && h > 0 && w <= limits.maxSide && h <= limits.maxSide &&
           static_cast<std::uint64_t>(w) * static_cast<std::uint64_t>(h) <= limits.maxPixels;
}

struct SurfaceFree {
    void operator()(SDL_Surface* s) const { SDL_FreeSurface(s); }
};
using Surface = std::unique_ptr<SDL_Surface, SurfaceFree>;

// The loader of the format the header named, never SDL_image's own guess: only the
// formats probed above may reach a decoder.
Surface load(ImageFormat format, Bytes bytes) {
    static std::once_flag once;
    std::call_once(once, [] { IMG_Init(IMG_INIT_PNG | IMG_INIT_JPG | IMG_INIT_WEBP); });

    SDL_RWops* rw = SDL_RWFromConstMem(bytes.data(), static_cast<int>(bytes.size()));
    if (!rw) return nullptr;
    SDL_Surface* surface = nullptr;
    switch (format) {
        case ImageFormat::PNG: surface = IMG_LoadPNG_RW(rw); break;
        case ImageFormat::JPEG: surface = IMG_LoadJPG_RW(rw); break;
        case ImageFormat::GIF: break;  // refused in decodeImage
        case ImageFormat::WebP: surface = IMG_LoadWEBP_RW(rw); break;
    }
    SDL_RWclose(rw);
    return Surface(surface);
}

}  // namespace

std::optional<ImageHeader> probeImage(std::string_view bytes) {
    for (auto probe : {probePNG, probeJPEG, probeGIF, probeWebP})
        if (auto header = probe(bytes)) return header;
    return std::nullopt;
}

ImagePtr decodeImage(std::string_view bytes, const ImageLimits& limits) {
    if (bytes.size() > limits.maxBytes || bytes.size() > 0x7fffffffu) return nullptr;
    const auto header = probeImage(bytes);
    if (!header || !within(limits, header->width, header->height)) return nullptr;

    // GIFs are recognised and refused: fuzzing the system's GIF decoder (SDL_image
    // 2.6) with hostile files found a double free and multi-gigabyte allocations that
    // no header check can rule out, and an ad image must never be able to do that.
    if (header->format == ImageFormat::GIF) return nullptr;
    Surface decoded = load(header->format, bytes);
    if (!decoded || !within(limits, decoded->w, decoded->h)) return nullptr;
    return imageFromSurface(decoded.release());
}

void releaseDecoderThreadState() { SDL_TLSCleanup(); }

}  // namespace quov::platform
