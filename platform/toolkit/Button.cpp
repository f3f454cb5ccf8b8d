#include "platform/toolkit/Button.h"

#include "platform/toolkit/ImageView.h"
#include "platform/toolkit/Painter.h"

#include <algorithm>

namespace quov::platform {

ImagePtr Button::imageForState(ControlState state) const {
    return state == ControlState::Normal ? normalImage_ : nullptr;
}

void Button::setImage(ImagePtr image, ControlState state) {
    if (state == ControlState::Normal) normalImage_ = std::move(image);
}

Rect Button::contentRect() const {
    const Size s = frame().size;
    return {{insets_.left, insets_.top},
            {s.width - insets_.left - insets_.right, s.height - insets_.top - insets_.bottom}};
}

void Button::addTarget(std::weak_ptr<void> target, Action action, ControlEvents events) {
    if (!action || !events) return;
    const std::weak_ptr<void> none;
    const bool hasTarget = target.owner_before(none) || none.owner_before(target);
    auto strong = target.lock();
    if (hasTarget && !strong) return;  // already gone: it could never be called
    std::erase_if(targets_, [](const auto& t) { return t->identity && t->target.expired(); });
    targets_.push_back(std::make_shared<Target>(
        Target{hasTarget ? target : std::weak_ptr<void>{}, strong.get(), std::move(action), events}));
}

void Button::removeTarget(const void* target, ControlEvents events) {
    for (auto& t : targets_)
        if (!target || t->identity == target) t->events &= ~events;
    std::erase_if(targets_, [](const auto& t) { return t->events == 0; });
}

ControlEvents Button::allControlEvents() const {
    ControlEvents all = 0;
    for (const auto& t : targets_)
        if (!t->identity || !t->target.expired()) all |= t->events;
    return all;
}

void Button::sendActionsForControlEvents(ControlEvents events, const TouchEvent& event) {
    auto self = shared_from_this();  // an action may take this button off the screen
    const auto snapshot = targets_;  // and may add or remove targets
    for (const auto& t : snapshot) {
        if (!(t->events & events)) continue;
        std::shared_ptr<void> keep;
        if (t->identity) {
            keep = t->target.lock();
            if (!keep) continue;
        }
        t->action(*this, event);
    }
}

void Button::touchBegan(const Touch& touch, const TouchEvent& event) {
    if (tracked_) return;
    tracked_ = touch.identifier;
    sendActionsForControlEvents(ControlEventTouchDown, event);
}

void Button::touchEnded(const Touch& touch, const TouchEvent& event) {
    if (tracked_ != touch.identifier) return;
    tracked_.reset();
    const bool inside = pointInside(touch.locationInView(this));
    sendActionsForControlEvents(inside ? ControlEventTouchUpInside : ControlEventTouchUpOutside,
                                event);
}

void Button::touchCancelled(const Touch& touch, const TouchEvent& event) {
    if (tracked_ != touch.identifier) return;
    tracked_.reset();
    sendActionsForControlEvents(ControlEventTouchCancel, event);
}

void Button::draw(Painter& painter, const Rect& rect, double alpha) const {
    View::draw(painter, rect, alpha);
    if (!normalImage_ || normalImage_->width <= 0 || normalImage_->height <= 0) return;
    const Rect content = contentRect();
    const Rect box{{rect.origin.x + content.origin.x, rect.origin.y + content.origin.y},
                   content.size};
    const auto p = placeImage({double(normalImage_->width), double(normalImage_->height)}, box,
                              ContentMode::ScaleAspectFit);
    if (p.destination.size.width > 0 && p.destination.size.height > 0)
        painter.drawImage(normalImage_, p.source, p.destination, alpha);
}

}  // namespace quov::platform
