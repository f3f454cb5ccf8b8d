#pragma once

#include "platform/toolkit/Application.h"
#include "platform/toolkit/Touch.h"
#include "platform/toolkit/KeyInput.h"

#include <cstdint>

namespace quov::platform {

/// The input rules every host path shares (SDL events, a host's own pointer and
/// keys): what the SDK takes while an ad is on screen, and where it goes. Points
/// in the key window's space. Main thread.
class HostInput {
public:
    explicit HostInput(Application& app) : app_(app) {}

    /// Returns whether the SDK took the step: every step while an ad is on screen
    /// (a press outside the ad hits nothing), and the rest of a touch it tracks.
    bool touch(std::uint64_t id, TouchPhase phase, Point p);
    /// See Window::sendKey.
    bool key(HostKey key, bool down);
    /// Leaving the active state ends the touches in flight: their releases may
    /// never come.
    void setApplicationState(ApplicationState state);

private:
    Application& app_;
};

}  // namespace quov::platform
