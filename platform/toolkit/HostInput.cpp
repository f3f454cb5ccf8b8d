#include "platform/toolkit/HostInput.h"

namespace quov::platform {

bool HostInput::touch(std::uint64_t id, TouchPhase phase, Point p) {
    auto key = app_.keyWindow();
    if (!key) return false;
    if (key->isTracking(id)) {
        key->sendTouch(id, phase, p);
        return true;
    }
    if (!key->hasVisibleContent()) return false;
    if (phase == TouchPhase::Began) key->sendTouch(id, phase, p);
    return true;
}

bool HostInput::key(HostKey k, bool down) {
    auto window = app_.keyWindow();
    return window && window->sendKey(k, down);
}

void HostInput::setApplicationState(ApplicationState state) {
    if (state != ApplicationState::Active)
        if (auto key = app_.keyWindow()) key->cancelAllTouches();
    app_.setApplicationState(state);
}

}  // namespace quov::platform
