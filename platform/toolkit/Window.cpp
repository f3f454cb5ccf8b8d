#include "platform/toolkit/Window.h"

#include <vector>

namespace quov::platform {

TouchEvent Window::makeEvent() const {
    std::vector<Touch> all;
    all.reserve(touches_.size());
    for (const auto& [id, t] : touches_) all.push_back(t);
    return TouchEvent(std::move(all));
}

bool Window::sendTouch(std::uint64_t identifier, TouchPhase phase, Point location) {
    auto self = shared_from_this();  // a view's action may drop the last outside reference
    if (phase == TouchPhase::Began) {
        if (touches_.count(identifier)) return false;
        layoutIfNeeded();
        ViewPtr hit = hitView(location);
        Touch touch{identifier, TouchPhase::Began, hit, location};
        touches_.emplace(identifier, touch);
        if (hit) hit->touchBegan(touch, makeEvent());
        return hit && hit.get() != this;
    }

    auto it = touches_.find(identifier);
    if (it == touches_.end()) return false;
    Touch& touch = it->second;
    touch.locationInWindow = location;
    ViewPtr view = touch.view.lock();
    if (view && phase != TouchPhase::Moved && !view->isDescendantOfView(*this))
        phase = TouchPhase::Cancelled;
    touch.phase = phase;
    const Touch current = touch;
    const TouchEvent event = makeEvent();
    if (phase != TouchPhase::Moved) touches_.erase(identifier);
    if (view) {
        switch (phase) {
            case TouchPhase::Moved: view->touchMoved(current, event); break;
            case TouchPhase::Ended: view->touchEnded(current, event); break;
            case TouchPhase::Cancelled: view->touchCancelled(current, event); break;
            case TouchPhase::Began: break;
        }
    }
    return view && view.get() != this;
}

void Window::cancelAllTouches() {
    std::vector<std::uint64_t> ids;
    for (const auto& [id, t] : touches_) ids.push_back(id);
    for (auto id : ids) {
        auto it = touches_.find(id);
        if (it != touches_.end()) sendTouch(id, TouchPhase::Cancelled, it->second.locationInWindow);
    }
}

bool Window::sendKey(HostKey key, bool down) {
    auto self = shared_from_this();
    const KeyAction action = keyAction(key);
    if (!down) {
        auto held = heldKeys_.find(key);
        if (held == heldKeys_.end()) return false;
        ViewPtr view = held->second.lock();
        heldKeys_.erase(held);
        if (view && view->isDescendantOfView(*this))
            if (auto* responder = dynamic_cast<KeyResponder*>(view.get())) responder->keyUp(action);
        return true;
    }
    if (heldKeys_.count(key)) return true;  // auto-repeat
    const auto& views = subviews();
    for (auto it = views.rbegin(); it != views.rend(); ++it) {
        const ViewPtr view = *it;
        if (view->isHidden() || view->alpha() <= 0) continue;
        auto* responder = dynamic_cast<KeyResponder*>(view.get());
        if (!responder) continue;
        layoutIfNeeded();
        heldKeys_[key] = view;
        responder->keyDown(action);
        return true;
    }
    return false;
}

bool Window::hasVisibleContent() const {
    for (const auto& v : subviews())
        if (!v->isHidden() && v->alpha() > 0) return true;
    return false;
}

}  // namespace quov::platform
