#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace quov::tools {

enum class Orientation { Portrait, Landscape };
enum class ImageFormat { Png, Jpeg };

struct Rgb {
    std::uint8_t r = 0, g = 0, b = 0;
};

/// One generated ad image, encoded and ready to serve.
struct Creative {
    std::string name;         // file name under /creative/, e.g. "portrait.png"
    std::string contentType;  // "image/png" or "image/jpeg"
    Orientation orientation = Orientation::Portrait;
    ImageFormat format = ImageFormat::Png;
    int width = 0;   // pixels
    int height = 0;  // pixels
    /// Fills the area between the frame and the central disc; the pixel at
    /// (width / 10, height / 2) always has this colour (up to JPEG loss).
    Rgb background;
    std::string bytes;  // the encoded file
};

/// Draws the four creatives (portrait and landscape, each as PNG and JPEG) with
/// SDL surfaces and encodes them with SDL_image, in memory. Deterministic: the
/// same pixels on every call. Throws std::runtime_error when SDL cannot encode.
/// Any thread; needs no SDL_Init.
std::vector<Creative> makeCreatives();

}  // namespace quov::tools
