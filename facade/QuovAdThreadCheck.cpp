#include "facade/QuovAdFlow.h"

#include <quov/MainLoop.h>

#include "platform/runtime/Log.h"

#include <atomic>

namespace quov {
namespace {

std::atomic<bool> reported{false};

}  // namespace

void QuovAdFlow::checkMainThread(const char* call) {
    // The main thread is whichever drains the SDK's loop; before its first drain
    // nothing can be told apart.
    if (MainLoop::shared().onDrainingThread()) return;
    if (reported.exchange(true)) return;
    platform::QVLog("QuovSDK misuse: %@ was called on a thread that does not drain MainLoop::shared(); "
                    "call every SDK entry point on the main thread (reported once)",
                    call);
}

}  // namespace quov
