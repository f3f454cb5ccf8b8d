#include <quov/QVBidModel.h>
#include <quov/QVRequestHelper.h>

#include "network/Tracking.h"
#include "network/UrlMacros.h"
#include "platform/runtime/Log.h"

namespace quov {

namespace {
// Fixed for both lists: up to three attempts per address, back to back.
constexpr std::uint64_t kReportAttempts = 3;
}  // namespace

// The macro values are read here, per address as formatURL would; the filling
// itself, linear in the address, runs on the task worker with the encoding.
void QVBidModel::reportAdShow() const {
    const auto& views = checkViews();
    if (!views || views->empty()) return;
    // Every address on its own: one failing never holds up the others.
    for (std::size_t i = 0; i < views->size(); ++i) {
        network::startTrackingFilled(
            [url = (*views)[i], identity = network::IdentityMacros::capture()] { return identity.fill(url); },
            kReportAttempts, {},
            [](const Error& error) { platform::QVLog("Report ad show failed, %@", error.describe()); });
    }
}

void QVBidModel::reportAdClickWithAdSize(Size adSize, Point touchDownPoint, double touchDownDate,
                                         Point touchUpPoint, double touchUpDate) const {
    const auto& clicks = checkClicks();
    if (!clicks || clicks->empty()) return;
    const network::TouchMacros touch{adSize, touchDownPoint, touchDownDate, touchUpPoint, touchUpDate};
    for (std::size_t i = 0; i < clicks->size(); ++i) {
        network::startTrackingFilled(
            [url = (*clicks)[i], identity = network::IdentityMacros::capture(), touch] {
                return touch.fill(identity.fill(url));
            },
            kReportAttempts, {},
            [](const Error& error) { platform::QVLog("Report ad click failed, %@", error.describe()); });
    }
}

}  // namespace quov
