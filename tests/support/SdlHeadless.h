#pragma once

#include <SDL.h>

#include <cstdint>
#include <vector>

namespace quov::platform {

/// RGBA pixels read back from a renderer, rows top to bottom.
struct PixelBuffer {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgba;
};

/// A window and a software renderer on SDL's offscreen video driver (unless SDL video already runs).
class HeadlessDisplay {
public:
    /// Throws std::runtime_error when SDL cannot give a window or a software renderer.
    HeadlessDisplay(int width, int height);
    ~HeadlessDisplay();
    HeadlessDisplay(const HeadlessDisplay&) = delete;
    HeadlessDisplay& operator=(const HeadlessDisplay&) = delete;

    SDL_Window* window() const { return window_; }
    SDL_Renderer* renderer() const { return renderer_; }
    void clear(std::uint8_t r, std::uint8_t g, std::uint8_t b);
    PixelBuffer readPixels() const;

private:
    SDL_Window* window_ = nullptr;
    SDL_Renderer* renderer_ = nullptr;
};

}  // namespace quov::platform
