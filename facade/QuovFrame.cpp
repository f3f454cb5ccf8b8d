#include <quov/QuovFrame.h>

#include "platform/Context.h"
#include "platform/toolkit/FrameSurface.h"

namespace quov::frame {
namespace {
static_assert(static_cast<int>(Key::GamepadB) == static_cast<int>(platform::HostKey::GamepadB) &&
              static_cast<int>(Key::Enter) == static_cast<int>(platform::HostKey::Enter));

platform::FrameSurface& surface() { return platform::Context::shared().frameSurface(); }
}  // namespace

void attachSurface(int widthPixels, int heightPixels, double scale) {
    surface().attach(widthPixels, heightPixels, scale);
}

bool pointer(std::uint64_t id, PointerPhase phase, double x, double y) {
    using platform::TouchPhase;
    if (static_cast<int>(phase) < 0 || static_cast<int>(phase) > 3) return false;
    const TouchPhase p = phase == PointerPhase::Down   ? TouchPhase::Began
                         : phase == PointerPhase::Move ? TouchPhase::Moved
                         : phase == PointerPhase::Up   ? TouchPhase::Ended
                                                       : TouchPhase::Cancelled;
    return surface().pointer(id, p, x, y);
}

bool key(Key k, bool down) {
    if (static_cast<int>(k) < 0 || static_cast<int>(k) > 5) return false;
    return surface().input().key(static_cast<platform::HostKey>(static_cast<int>(k)), down);
}

void setApplicationState(ApplicationState state) { surface().input().setApplicationState(state); }

bool needsDisplay() { return surface().needsDisplay(); }

bool draw(std::uint8_t* pixels, int width, int height, int stride) {
    return surface().draw({pixels, width, height, stride});
}

}  // namespace quov::frame
