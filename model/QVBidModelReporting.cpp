#include <quov/QVBidModel.h>
#include <quov/QVRequestHelper.h>

#include "platform/runtime/Log.h"

namespace quov {

namespace {
// Fixed for both lists: up to three attempts per address, back to back.
constexpr std::uint64_t kReportAttempts = 3;
}  // namespace

void QVBidModel::reportAdShow() const {
    if (!checkViews_ || checkViews_->empty()) return;
    // Every address on its own: one failing never holds up the others.
    for (std::size_t i = 0; i < checkViews_->size(); ++i) {
        const std::string url = QVRequestHelper::formatURL((*checkViews_)[i]);
        QVRequestHelper::getURLWithRetry(url, kReportAttempts, {}, [](const Error& error) {
            platform::QVLog("Report ad show failed, %@", error.describe());
        });
    }
}

void QVBidModel::reportAdClickWithAdSize(Size adSize, Point touchDownPoint, double touchDownDate,
                                         Point touchUpPoint, double touchUpDate) const {
    if (!checkClicks_ || checkClicks_->empty()) return;
    for (std::size_t i = 0; i < checkClicks_->size(); ++i) {
        const std::string identity = QVRequestHelper::formatURL((*checkClicks_)[i]);
        const std::string url = QVRequestHelper::formatURL(identity, adSize, touchDownPoint, touchDownDate,
                                                           touchUpPoint, touchUpDate);
        QVRequestHelper::getURLWithRetry(url, kReportAttempts, {}, [](const Error& error) {
            platform::QVLog("Report ad click failed, %@", error.describe());
        });
    }
}

}  // namespace quov
