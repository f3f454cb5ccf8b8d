#pragma once

#include "platform/toolkit/Image.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace quov::platform {

/// What a downloaded image may cost. Checked against the file's own header before any
/// decoder runs, so a few hostile bytes cannot make us allocate gigabytes.
struct ImageLimits {
    std::size_t maxBytes = 8u << 20;             // encoded size
    int maxSide = 16384;                         // pixels, either dimension
    std::uint64_t maxPixels = 4096ull * 4096ull; // 64 MiB once RGBA
};

enum class ImageFormat { PNG, JPEG, GIF, WebP };

/// The format and the largest pixel size decoding it may allocate, read from the header
/// alone (for a GIF, its screen).
struct ImageHeader {
    ImageFormat format;
    int width;
    int height;
};

/// Reads the header only; nothing for other formats, truncated headers or zero sizes.
/// Pure and thread-safe.
std::optional<ImageHeader> probeImage(std::string_view bytes);

/// Decodes a PNG, JPEG or WebP into RGBA (a GIF is refused: see the .cpp), or returns null when the
/// data is not one of those, is corrupt, or exceeds `limits`. Any thread but CPU-bound:
/// call it off the main thread.
ImagePtr decodeImage(std::string_view bytes, const ImageLimits& limits = {});

/// Frees what decoding left attached to the calling thread (SDL keeps its error text
/// per thread and never frees it for threads it did not start). Call on a decode
/// worker just before it ends.
void releaseDecoderThreadState();

}  // namespace quov::platform
