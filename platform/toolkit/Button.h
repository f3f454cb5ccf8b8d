#pragma once

#include "platform/toolkit/Image.h"
#include "platform/toolkit/Touch.h"
#include "platform/toolkit/View.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace quov::platform {

/// Control events, a bit mask with the platform's values.
using ControlEvents = unsigned;
inline constexpr ControlEvents ControlEventTouchDown = 1u << 0;         // 1
inline constexpr ControlEvents ControlEventTouchUpInside = 1u << 6;     // 64
inline constexpr ControlEvents ControlEventTouchUpOutside = 1u << 7;    // 128
inline constexpr ControlEvents ControlEventTouchCancel = 1u << 8;       // 256

enum class ControlState : unsigned { Normal = 0 };

struct EdgeInsets {
    double top = 0, left = 0, bottom = 0, right = 0;
};

/// A tappable view with an optional image drawn aspect-fit inside its bounds
/// shrunk by the content insets. The image is drawn as it is (never tinted).
///
/// Event semantics: touch-down when a touch goes down on the button; when that
/// touch is lifted, touch-up-inside if it is inside the button's bounds, else
/// touch-up-outside; touch-cancel when it is cancelled or the button left the
/// window meanwhile. Only the first touch on the button is tracked. Main thread.
class Button : public View {
public:
    /// sender is the button; event carries the touches (touchesForView(sender)).
    using Action = std::function<void(Button& sender, const TouchEvent& event)>;

    using View::View;
    static std::shared_ptr<Button> make(Rect frame = {}) { return std::make_shared<Button>(frame); }

    ImagePtr imageForState(ControlState state) const;
    void setImage(ImagePtr image, ControlState state);
    EdgeInsets contentEdgeInsets() const { return insets_; }
    void setContentEdgeInsets(EdgeInsets insets) { insets_ = insets; }
    /// The bounds shrunk by the content insets, in the button's space.
    Rect contentRect() const;

    /// Calls action for each of events while target lives; the target is held
    /// weakly (and strongly during the call), so a target may own its button.
    void addTarget(std::weak_ptr<void> target, Action action, ControlEvents events);
    /// A target for member functions: (target.*method)(sender, event).
    template <class T>
    void addTarget(const std::shared_ptr<T>& target, void (T::*method)(Button&, const TouchEvent&),
                   ControlEvents events) {
        std::weak_ptr<T> weak = target;
        addTarget(weak,
                  [weak, method](Button& sender, const TouchEvent& event) {
                      if (auto t = weak.lock()) ((*t).*method)(sender, event);
                  },
                  events);
    }
    /// Removes target's actions for events (all targets when target is null).
    void removeTarget(const void* target, ControlEvents events);
    /// The events some live target listens to.
    ControlEvents allControlEvents() const;

    /// Runs the actions registered for any of events, in registration order.
    void sendActionsForControlEvents(ControlEvents events, const TouchEvent& event);

    bool isTracking() const { return tracked_.has_value(); }

    void touchBegan(const Touch& touch, const TouchEvent& event) override;
    void touchEnded(const Touch& touch, const TouchEvent& event) override;
    void touchCancelled(const Touch& touch, const TouchEvent& event) override;
    void draw(Painter& painter, const Rect& rect, double alpha) const override;

private:
    struct Target {
        std::weak_ptr<void> target;
        const void* identity;
        Action action;
        ControlEvents events;
    };
    std::vector<std::shared_ptr<Target>> targets_;
    ImagePtr normalImage_;
    EdgeInsets insets_;
    std::optional<std::uint64_t> tracked_;
};

}  // namespace quov::platform
