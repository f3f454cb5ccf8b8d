#include <quov/QuovAd.h>

#include <quov/MainLoop.h>

#include "network/Tracking.h"

namespace quov {

// Runs the loop rather than waiting on it: completions and retries are main-loop
// tasks, so nothing would end while the main thread merely slept.
bool QuovAd::flush(std::chrono::milliseconds timeout) {
    return MainLoop::shared().runUntil([] { return network::pendingTrackingRequests() == 0; }, timeout);
}

}  // namespace quov
