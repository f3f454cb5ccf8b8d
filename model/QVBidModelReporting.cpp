#include <quov/QVBidModel.h>
#include <quov/QVRequestHelper.h>

#include "network/Tracking.h"
#include "network/UrlMacros.h"
#include "platform/runtime/Log.h"

namespace quov {

namespace {
// Fixed for both lists: up to three attempts per address, back to back.
constexpr std::uint64_t kReportAttempts = 3;

// A list this long would cost the host's frame its filling and encoding: its
// macro values are read now, per address as formatURL does, and the linear work
// runs on the task worker. The usual short list starts its requests at once.
bool fillOffMain(const std::vector<std::string>& urls) {
    std::size_t bytes = 0;
    for (const auto& u : urls) bytes += u.size();
    return bytes >= network::kFillOffMainBytes;
}

void showFailed(const Error& error) { platform::QVLog("Report ad show failed, %@", error.describe()); }
void clickFailed(const Error& error) { platform::QVLog("Report ad click failed, %@", error.describe()); }

}  // namespace

void QVBidModel::reportAdShow() const {
    const auto& views = checkViews();
    if (!views || views->empty()) return;
    const bool offMain = fillOffMain(*views);
    // Every address on its own: one failing never holds up the others.
    for (std::size_t i = 0; i < views->size(); ++i) {
        if (offMain) {
            network::startTrackingFilled(
                [url = (*views)[i], identity = network::IdentityMacros::capture()] { return identity.fill(url); },
                kReportAttempts, {}, showFailed);
        } else {
            QVRequestHelper::getURLWithRetry(QVRequestHelper::formatURL((*views)[i]), kReportAttempts, {},
                                             showFailed);
        }
    }
}

void QVBidModel::reportAdClickWithAdSize(Size adSize, Point touchDownPoint, double touchDownDate,
                                         Point touchUpPoint, double touchUpDate) const {
    const auto& clicks = checkClicks();
    if (!clicks || clicks->empty()) return;
    const bool offMain = fillOffMain(*clicks);
    const network::TouchMacros touch{adSize, touchDownPoint, touchDownDate, touchUpPoint, touchUpDate};
    for (std::size_t i = 0; i < clicks->size(); ++i) {
        if (offMain) {
            network::startTrackingFilled(
                [url = (*clicks)[i], identity = network::IdentityMacros::capture(), touch] {
                    return touch.fill(identity.fill(url));
                },
                kReportAttempts, {}, clickFailed);
        } else {
            QVRequestHelper::getURLWithRetry(touch.fill(QVRequestHelper::formatURL((*clicks)[i])), kReportAttempts,
                                             {}, clickFailed);
        }
    }
}

}  // namespace quov
