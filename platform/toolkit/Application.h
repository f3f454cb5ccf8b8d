#pragma once

#include <quov/MainLoop.h>
#include <quov/QuovHost.h>

#include "platform/toolkit/NotificationCenter.h"
#include "platform/toolkit/Screen.h"
#include "platform/opener/UrlOpener.h"
#include "platform/toolkit/Window.h"

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quov::platform {

/// Posted by the application (as sender) after every change of the main screen's
/// size in points, a flip between portrait and landscape or not.
inline constexpr std::string_view QuovMainScreenDidChangeNotification = "QuovMainScreenDidChangeNotification";

class LinuxDevicePlatform;

/// Active, inactive or background: the device layer's values.
using ApplicationState = quov::ApplicationState;

/// The host application as the SDK sees it: the main screen, the key window, the
/// state, orientation notifications and opening URLs. Everything here belongs on
/// the main thread. The SDK uses its context's; tests make their own.
class Application {
public:
    explicit Application(MainLoop& loop);
    ~Application();
    Application(const Application&) = delete;
    Application& operator=(const Application&) = delete;

    MainLoop& mainLoop() const { return loop_; }

    // --- the main screen (default 1280 x 720 points at scale 1) ---
    const Screen& mainScreen() const { return screen_; }
    /// Resizes the key window to the new bounds, posts
    /// QuovMainScreenDidChangeNotification when the size changed and the orientation
    /// notification when portrait and landscape flipped. Sizes that are not
    /// positive and finite, and scales that are not, are ignored.
    void setMainScreen(Size points, double scale);

    // --- orientation ---
    NotificationCenter& defaultCenter() { return center_; }
    /// Orientation notifications are posted only while generation is on; each
    /// begin counts, the end call undoes one.
    void beginGeneratingDeviceOrientationNotifications() { ++orientationGenerators_; }
    void endGeneratingDeviceOrientationNotifications();
    bool isGeneratingDeviceOrientationNotifications() const { return orientationGenerators_ > 0; }
    /// The host reports that the device orientation changed.
    void deviceOrientationDidChange();

    // --- the key window ---
    std::shared_ptr<Window> keyWindow() const { return keyWindow_; }
    /// Makes window the key window and sizes it to the main screen; null: none.
    void setKeyWindow(std::shared_ptr<Window> window);

    // --- state (default active) ---
    ApplicationState applicationState() const { return state_; }
    void setApplicationState(ApplicationState state);

    // --- opening URLs ---
    /// Until an opener is installed every URL counts as not opened.
    void setURLOpener(URLOpener opener) { opener_ = std::move(opener); }
    bool hasURLOpener() const { return static_cast<bool>(opener_); }
    /// Asks the opener to open url. completion runs exactly once, on the main loop
    /// and never before this call returns, with whether the URL was opened; an
    /// opener that throws or answers twice counts as its first answer (or no).
    void openURL(const std::optional<std::string>& url, URLOpenCompletion completion);
    /// openURL calls whose completion has not run yet (a click's chain counts until
    /// it ends).
    std::size_t pendingURLOpens() const { return *pendingOpens_; }

    /// Called after the main screen or the state changed (the device layer
    /// listens here). One observer; empty removes it.
    using ChangeObserver = std::function<void(const Application&)>;
    void setChangeObserver(ChangeObserver observer) { changeObserver_ = std::move(observer); }

private:
    void changed();

    MainLoop& loop_;
    Screen screen_;
    NotificationCenter center_;
    int orientationGenerators_ = 0;
    std::shared_ptr<Window> keyWindow_;
    ApplicationState state_ = ApplicationState::Active;
    URLOpener opener_;
    std::shared_ptr<std::atomic<std::size_t>> pendingOpens_ = std::make_shared<std::atomic<std::size_t>>(0);
    ChangeObserver changeObserver_;
};

/// Makes app the device layer's source of the main screen and the application
/// state from app's first change on (a window attached, a focus change); until
/// then the values the host gave through QuovHost hold. Takes app's change
/// observer. app must outlive every query of device. Main thread.
void connectDevicePlatform(Application& app, const std::shared_ptr<LinuxDevicePlatform>& device);

}  // namespace quov::platform
