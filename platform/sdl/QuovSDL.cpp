#include <quov/QuovSDL.h>

#include "platform/Context.h"
#include "platform/media/ImageLoader.h"
#include "platform/sdl/SdlBackend.h"

namespace quov::sdl {
namespace {

// Registered with the context on first use, so the core never depends on SDL. The
// process's context is never destroyed, so neither is this: destroying textures at
// exit could touch a renderer the host has already destroyed.
struct BackendPart final : platform::Context::Part {
    explicit BackendPart(platform::Context& context) : backend(context.application()) {}
    platform::SdlBackend backend;
};

platform::SdlBackend& backend() { return platform::Context::shared().part<BackendPart>().backend; }

}  // namespace

void attachWindow(SDL_Window* window) { backend().attachWindow(window); }
bool processEvent(const SDL_Event& event) { return backend().processEvent(event); }
void render(SDL_Renderer* renderer) { backend().render(renderer); }
void releaseRenderer() { backend().releaseRenderer(); }
void setUIScale(double windowUnitsPerPoint) { backend().setUIScale(windowUnitsPerPoint); }
std::optional<quov::Rect> findElement(std::string_view label) {
    auto window = platform::Context::shared().application().keyWindow();
    if (!window) return std::nullopt;
    window->layoutIfNeeded();
    auto view = window->findViewWithAccessibilityLabel(label);
    if (!view) return std::nullopt;
    return quov::Rect{view->originInRoot(), view->frame().size};
}

bool isLoadingContent() { return platform::Context::shared().images().pendingLoads() != 0; }

void orientationDidChange() { platform::Context::shared().application().deviceOrientationDidChange(); }

}  // namespace quov::sdl
