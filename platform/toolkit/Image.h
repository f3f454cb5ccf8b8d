#pragma once

#include <cstdint>
#include <memory>
#include <vector>

namespace quov::platform {

/// Decoded pixels, 8-bit RGBA, rows top to bottom, no padding. Immutable once made;
/// shared between the image cache and the views that show it.
struct Image {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgba;  // width * height * 4 bytes
};

using ImagePtr = std::shared_ptr<const Image>;

}  // namespace quov::platform
