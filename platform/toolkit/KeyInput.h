#pragma once

namespace quov::platform {

/// The keys an on-screen ad answers to, whatever device they come from.
enum class HostKey { Escape, Back, Enter, Space, GamepadA, GamepadB };

/// Dismiss closes the ad as its close button does; Activate clicks it.
enum class KeyAction { Dismiss, Activate };

constexpr KeyAction keyAction(HostKey key) {
    return key == HostKey::Escape || key == HostKey::Back || key == HostKey::GamepadB ? KeyAction::Dismiss
                                                                                      : KeyAction::Activate;
}

/// A window subview that takes keys while it is the frontmost one. A press and
/// its release reach the same responder, even if another view came in between.
class KeyResponder {
public:
    virtual ~KeyResponder() = default;
    virtual void keyDown(KeyAction action) = 0;
    virtual void keyUp(KeyAction action) = 0;
};

}  // namespace quov::platform
