#pragma once

#include "platform/toolkit/Touch.h"
#include "platform/toolkit/KeyInput.h"
#include "platform/toolkit/View.h"

#include <cstdint>
#include <map>

namespace quov::platform {

/// The root of the SDK's view tree, sized as the main screen. It turns raw touch
/// input (window points) into touches delivered to the views they went down on.
/// Main thread.
class Window : public View {
public:
    using View::View;
    static std::shared_ptr<Window> make(Rect frame = {}) { return std::make_shared<Window>(frame); }

    /// Feeds one touch (or mouse) step at a location in the window's space.
    /// Began lays the tree out if needed and hit-tests it front to back; the other
    /// phases go to the view the touch went down on, an end turning into a cancel
    /// when that view has left this window meanwhile. Unknown identifiers for
    /// moves and ends, and a second began for a live identifier, are ignored.
    /// Returns whether a view other than the window itself holds the touch.
    bool sendTouch(std::uint64_t identifier, TouchPhase phase, Point locationInWindow);

    /// Cancels every touch in flight (for example when input focus is lost).
    void cancelAllTouches();

    bool isTracking(std::uint64_t identifier) const { return touches_.count(identifier) != 0; }
    /// Any subview that is visible: while there is, the window takes all input.
    bool hasVisibleContent() const;

    /// Feeds one press or release of a key. A press goes to the frontmost visible
    /// subview that takes keys (a repeat of a held key to nobody); a release to the
    /// view that took its press, if that view is still in this window. Returns
    /// whether the key was taken: a press while such a view is on screen, and the
    /// release of a taken press even after its view has gone.
    bool sendKey(HostKey key, bool down);

private:
    TouchEvent makeEvent() const;
    std::map<std::uint64_t, Touch> touches_;
    std::map<HostKey, std::weak_ptr<View>> heldKeys_;
};

}  // namespace quov::platform
