#pragma once

#include <quov/Geometry.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace quov::platform {

class View;

enum class TouchPhase { Began, Moved, Ended, Cancelled };

/// One finger (or the mouse) as the window tracks it from down to up.
struct Touch {
    std::uint64_t identifier = 0;
    TouchPhase phase = TouchPhase::Began;
    /// The view the touch went down on; it keeps it until it ends.
    std::weak_ptr<View> view;
    /// Points, in the window's space.
    Point locationInWindow;

    /// The location in view's own space (origin at its top-left corner), points.
    /// Null: the window's space.
    Point locationInView(const View* view) const;
};

/// What a view receives with each touch: every touch the window is tracking at
/// that moment, in their current phases. Valid for the duration of the call.
class TouchEvent {
public:
    explicit TouchEvent(std::vector<Touch> touches) : touches_(std::move(touches)) {}

    const std::vector<Touch>& allTouches() const { return touches_; }
    /// The touches that went down on view.
    std::vector<Touch> touchesForView(const View& view) const;
    /// Any one of touchesForView(view); null when there is none.
    const Touch* anyTouchForView(const View& view) const;

private:
    std::vector<Touch> touches_;
};

/// touch->locationInView(&view), or (0, 0) for no touch.
Point locationInView(const Touch* touch, const View& view);

}  // namespace quov::platform
