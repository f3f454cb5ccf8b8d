#include "tests/support/SdlHeadless.h"

#include <stdexcept>
#include <string>

namespace quov::platform {

HeadlessDisplay::HeadlessDisplay(int width, int height) {
    if (!SDL_WasInit(SDL_INIT_VIDEO))
        SDL_SetHintWithPriority(SDL_HINT_VIDEODRIVER, "offscreen", SDL_HINT_OVERRIDE);
    if (SDL_InitSubSystem(SDL_INIT_VIDEO) != 0)
        throw std::runtime_error(std::string("SDL video: ") + SDL_GetError());
    // Otherwise SDL backs the window with a GPU texture: slow, leaky, not the software path.
    SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
    window_ = SDL_CreateWindow("QuovSDK", SDL_WINDOWPOS_UNDEFINED, SDL_WINDOWPOS_UNDEFINED, width,
                               height, 0);
    if (window_) renderer_ = SDL_CreateRenderer(window_, -1, SDL_RENDERER_SOFTWARE);
    if (!renderer_) throw std::runtime_error(std::string("headless display: ") + SDL_GetError());
}

HeadlessDisplay::~HeadlessDisplay() {
    SDL_DestroyRenderer(renderer_);
    SDL_DestroyWindow(window_);
    SDL_QuitSubSystem(SDL_INIT_VIDEO);
}

void HeadlessDisplay::clear(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    SDL_SetRenderDrawBlendMode(renderer_, SDL_BLENDMODE_NONE);
    SDL_SetRenderDrawColor(renderer_, r, g, b, 255);
    SDL_RenderClear(renderer_);
}

PixelBuffer HeadlessDisplay::readPixels() const {
    PixelBuffer out;
    if (SDL_GetRendererOutputSize(renderer_, &out.width, &out.height) != 0) return {};
    out.rgba.resize(static_cast<std::size_t>(out.width) * static_cast<std::size_t>(out.height) * 4);
    if (SDL_RenderReadPixels(renderer_, nullptr, SDL_PIXELFORMAT_RGBA32, out.rgba.data(),
                             out.width * 4) != 0)
        return {};
    return out;
}

}  // namespace quov::platform
