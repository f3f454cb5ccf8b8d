#include <quov/QuovSDL.h>

#include "platform/toolkit/Application.h"
#include "platform/media/ImageLoader.h"
#include "platform/sdl/SdlBackend.h"

namespace quov::sdl {
namespace {
platform::SdlBackend& backend() {
    // Never destroyed, like the application it draws: destroying textures at exit
    // could touch a renderer the host has already destroyed.
    static auto* b = new platform::SdlBackend(platform::Application::shared());
    return *b;
}
}  // namespace

void attachWindow(SDL_Window* window) { backend().attachWindow(window); }
bool processEvent(const SDL_Event& event) { return backend().processEvent(event); }
void render(SDL_Renderer* renderer) { backend().render(renderer); }
void releaseRenderer() { backend().releaseRenderer(); }
void setUIScale(double windowUnitsPerPoint) { backend().setUIScale(windowUnitsPerPoint); }
std::optional<quov::Rect> findElement(std::string_view label) {
    auto window = platform::Application::shared().keyWindow();
    if (!window) return std::nullopt;
    window->layoutIfNeeded();
    auto view = window->findViewWithAccessibilityLabel(label);
    if (!view) return std::nullopt;
    return quov::Rect{view->originInRoot(), view->frame().size};
}

bool isLoadingContent() { return platform::ImageLoader::shared().pendingLoads() != 0; }

void orientationDidChange() { platform::Application::shared().deviceOrientationDidChange(); }

}  // namespace quov::sdl
