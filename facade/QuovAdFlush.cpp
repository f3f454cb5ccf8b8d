#include <quov/QuovAd.h>

#include <quov/MainLoop.h>

namespace quov {

// Nothing is tracked yet; draining once delivers whatever is already queued.
bool QuovAd::flush(std::chrono::milliseconds) {
    MainLoop::shared().drain();
    return true;
}

}  // namespace quov
