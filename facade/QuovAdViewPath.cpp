#include "facade/QuovAdFlow.h"

namespace quov {

// No window toolkit yet: the bid cannot be shown, and the host hears why.
void QuovAdFlow::showInKeyWindow(QuovAd& ad, QVBidModelPtr) {
    if (auto d = ad.delegate())
        d->onQuovSDKAdLoadFailed(Error{"QuovSDK", 1, std::string("no key window to show the ad in")});
}

}  // namespace quov
