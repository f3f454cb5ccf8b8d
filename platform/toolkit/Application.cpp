#include "platform/toolkit/Application.h"

#include "platform/device/linux_device.h"

#include <atomic>
#include <cmath>

namespace quov::platform {

void connectDevicePlatform(Application& app, const std::shared_ptr<LinuxDevicePlatform>& device) {
    std::weak_ptr<LinuxDevicePlatform> weak = device;
    app.setChangeObserver([weak, connected = false](const Application& changed) mutable {
        auto d = weak.lock();
        if (connected || !d) return;
        connected = true;
        const Application* a = &changed;
        d->setScreenProvider([a] {
            const Screen& s = a->mainScreen();
            return MainScreen{s.bounds().size, s.scale(), s.currentMode()};
        });
        d->setApplicationStateProvider([a] { return a->applicationState(); });
    });
}

Application::Application(MainLoop& loop) : loop_(loop) {}

Application::~Application() = default;

void Application::setMainScreen(Size points, double scale) {
    const auto ok = [](double v) { return std::isfinite(v) && v > 0; };
    if (!ok(points.width) || !ok(points.height) || !ok(scale)) return;
    const Screen next(points, scale);
    if (next == screen_) return;
    const bool flipped = next.isPortrait() != screen_.isPortrait();
    const bool resized = next.bounds().size != screen_.bounds().size;
    screen_ = next;
    if (keyWindow_) keyWindow_->setFrame(screen_.bounds());
    changed();
    if (resized) center_.postNotificationName(QuovMainScreenDidChangeNotification, this);
    if (flipped) deviceOrientationDidChange();
}

void Application::endGeneratingDeviceOrientationNotifications() {
    if (orientationGenerators_ > 0) --orientationGenerators_;
}

void Application::deviceOrientationDidChange() {
    if (isGeneratingDeviceOrientationNotifications())
        center_.postNotificationName(UIDeviceOrientationDidChangeNotification, this);
}

void Application::setKeyWindow(std::shared_ptr<Window> window) {
    keyWindow_ = std::move(window);
    if (keyWindow_) keyWindow_->setFrame(screen_.bounds());
}

void Application::setApplicationState(ApplicationState state) {
    if (state == state_) return;
    state_ = state;
    changed();
}

void Application::changed() {
    if (changeObserver_) changeObserver_(*this);
}

void Application::openURL(const std::optional<std::string>& url, URLOpenCompletion completion) {
    // Openers may answer on any thread, synchronously, or (wrongly) twice: funnel
    // the first answer through the main loop so the caller sees it exactly once,
    // after it has returned.
    auto answered = std::make_shared<std::atomic<bool>>(false);
    MainLoop* loop = &loop_;
    ++*pendingOpens_;
    auto finish = [loop, answered, pending = pendingOpens_, completion = std::move(completion)](bool opened) {
        if (answered->exchange(true)) return;
        loop->post([completion, opened, pending] {
            // A completion that opens the next URL counts it before this one leaves.
            if (completion) completion(opened);
            --*pending;
        });
    };
    if (!opener_) {
        finish(false);
        return;
    }
    try {
        opener_(url, finish);
    } catch (...) {
        finish(false);
    }
}

}  // namespace quov::platform
