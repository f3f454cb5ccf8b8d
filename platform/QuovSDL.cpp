#include <quov/QuovSDL.h>

#include "platform/Application.h"
#include "platform/SdlBackend.h"

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
void orientationDidChange() { platform::Application::shared().deviceOrientationDidChange(); }

}  // namespace quov::sdl
