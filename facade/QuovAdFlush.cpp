#include <quov/QuovAd.h>

#include <quov/MainLoop.h>

#include "facade/QuovAdFlow.h"
#include "network/Tracking.h"
#include "platform/toolkit/Application.h"

namespace quov {

// Runs the loop rather than waiting on it: completions and retries are main-loop
// tasks, so nothing would end while the main thread merely slept. A click's
// open-URL chain counts too: its landing page should open before the host exits.
bool QuovAd::flush(std::chrono::milliseconds timeout) {
    QuovAdFlow::checkMainThread("QuovAd::flush");
    platform::Application& app = platform::Application::shared();
    return MainLoop::shared().runUntil(
        [&app] { return network::pendingTrackingRequests() == 0 && app.pendingURLOpens() == 0; }, timeout);
}

}  // namespace quov
