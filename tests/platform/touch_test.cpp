#include "platform/toolkit/Button.h"
#include "platform/toolkit/Window.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace quov;
using namespace quov::platform;

TEST(HitTest, FrontToBackOverVisibleInteractiveViewsWithinTheirSuperview) {
    auto window = Window::make({{0, 0}, {200, 200}});
    auto back = View::make({{0, 0}, {200, 200}}), front = View::make({{50, 50}, {100, 100}});
    auto child = View::make({{10, 10}, {20, 20}}), overhang = View::make({{90, 90}, {50, 50}});
    window->addSubview(back), window->addSubview(front), front->addSubview(child), front->addSubview(overhang);
    const std::tuple<Point, ViewPtr, std::function<void()>> cases[] = {
        {{55, 55}, front, [] {}},
        {{65, 65}, child, [] {}},
        {{10, 10}, back, [] {}},
        {{160, 160}, back, [] {}},  // the overhang outside its superview
        {{145, 145}, overhang, [] {}},
        {{250, 10}, nullptr, [] {}},
        {{65, 65}, back, [&] { front->setHidden(true); }},
        {{65, 65}, back, [&] { front->setAlpha(0.001); }},
        {{65, 65}, back, [&] { front->setUserInteractionEnabled(false); }},
    };
    for (const auto& [p, expected, change] : cases) {
        change();
        EXPECT_EQ(window->hitView(p), expected) << p.x << "," << p.y;
        front->setHidden(false), front->setAlpha(1), front->setUserInteractionEnabled(true);
    }
}

TEST(ButtonEvents, DownAndUpSemantics) {
    const auto B = TouchPhase::Began, M = TouchPhase::Moved, E = TouchPhase::Ended, C = TouchPhase::Cancelled;
    struct Step {
        TouchPhase phase;
        Point at;
        std::uint64_t touch = 7;
        bool removeButtonFirst = false;
    };
    const std::pair<std::vector<Step>, std::vector<std::string>> cases[] = {
        {{{B, {110, 110}}, {M, {5, 5}}, {E, {149, 139}}}, {"down", "up-inside"}},  // wanders out and back
        {{{B, {110, 110}}, {E, {150, 120}}}, {"down", "up-outside"}},              // just past the edge
        {{{B, {10, 10}}, {E, {110, 110}}}, {}},
        {{{B, {110, 110}}, {C, {110, 110}}}, {"down", "cancel"}},
        {{{B, {110, 110}, 1}, {B, {120, 120}, 2}, {E, {120, 120}, 2}, {E, {111, 111}, 1}}, {"down", "up-inside"}},
        {{{B, {110, 110}}, {E, {110, 110}, 7, true}}, {"down", "cancel"}},  // the button left the window
        {{{E, {110, 110}, 99}}, {}},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        auto window = Window::make({{0, 0}, {300, 300}});
        auto button = Button::make({{100, 100}, {50, 40}});
        window->addSubview(button);
        const auto target = std::make_shared<int>(0);
        std::vector<std::string> events;
        for (auto [mask, name] : {std::pair{ControlEventTouchDown, "down"}, {ControlEventTouchUpInside, "up-inside"},
                                  {ControlEventTouchUpOutside, "up-outside"}, {ControlEventTouchCancel, "cancel"}})
            button->addTarget(
                target, [&events, name = name](Button&, const TouchEvent&) { events.push_back(name); }, mask);
        for (const auto& s : cases[i].first) {
            if (s.removeButtonFirst) button->removeFromSuperview();
            window->sendTouch(s.touch, s.phase, s.at);
        }
        EXPECT_EQ(events, cases[i].second) << "case " << i;
        EXPECT_FALSE(button->isTracking()) << "case " << i;
    }
}

/// Takes itself off the screen from its button's action, the way an ad view closes.
struct SelfRemovingPanel : View {
    std::shared_ptr<Button> button = Button::make({{0, 0}, {40, 40}});
    void onUp(Button&, const TouchEvent&) { removeFromSuperview(); }
};

TEST(ButtonEvents, AViewThatRemovesItselfInItsActionSurvivesTheCall) {
    auto window = Window::make({{0, 0}, {100, 100}});
    auto panel = std::make_shared<SelfRemovingPanel>();
    panel->setFrame({{10, 10}, {50, 50}}), panel->addSubview(panel->button);
    panel->button->addTarget(panel, &SelfRemovingPanel::onUp, ControlEventTouchUpInside);
    window->addSubview(panel);
    std::weak_ptr<SelfRemovingPanel> weak = panel;
    panel.reset();  // the window is the only owner now
    window->sendTouch(1, TouchPhase::Began, {20, 20});
    window->sendTouch(1, TouchPhase::Ended, {20, 20});
    EXPECT_TRUE(weak.expired()) << "gone once the action returned";
}

}  // namespace
