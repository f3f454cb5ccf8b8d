#pragma once

#include <SDL.h>

#include <cstdint>
#include <string>
#include <vector>

namespace quov::platform {

/// RGBA pixels read back from a renderer, rows top to bottom.
struct PixelBuffer {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgba;
    struct Pixel {
        int r, g, b, a;
    };
    Pixel at(int x, int y) const;
};

/// A window and a software renderer on SDL's offscreen video driver: the SDL
/// backend's code path with no display, for tests, benchmarks and kiosks.
///
/// Asks for the "offscreen" driver explicitly (overriding SDL_VIDEODRIVER). When
/// SDL video is already running on another driver the request cannot take, so
/// the driver in use is checked and logged either way. Main thread.
class HeadlessDisplay {
public:
    /// Throws std::runtime_error when SDL cannot give a window or a software renderer.
    HeadlessDisplay(int width, int height);
    ~HeadlessDisplay();
    HeadlessDisplay(const HeadlessDisplay&) = delete;
    HeadlessDisplay& operator=(const HeadlessDisplay&) = delete;

    SDL_Window* window() const { return window_; }
    SDL_Renderer* renderer() const { return renderer_; }
    /// SDL's name of the active video driver.
    const std::string& videoDriver() const { return driver_; }
    bool isOffscreen() const { return driver_ == "offscreen"; }

    /// Clears to an opaque colour, as a host's frame would.
    void clear(std::uint8_t r, std::uint8_t g, std::uint8_t b);
    PixelBuffer readPixels() const;
    /// Resizes the window; SDL queues the window events a host would see.
    void resize(int width, int height);

private:
    SDL_Window* window_ = nullptr;
    SDL_Renderer* renderer_ = nullptr;
    std::string driver_;
};

}  // namespace quov::platform
