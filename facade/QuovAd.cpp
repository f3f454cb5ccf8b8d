#include <quov/QuovAd.h>

#include <quov/MainLoop.h>
#include <quov/QVDeviceInfo.h>
#include <quov/QVRequestHelper.h>

#include "facade/QuovAdFlow.h"
#include "network/Tracking.h"
#include "platform/Context.h"
#include "platform/media/ImageLoader.h"
#include "platform/runtime/Log.h"
#include "platform/toolkit/Application.h"

#include <utility>

extern "C" {
const double QuovSDKVersionNumber = 1.0;
const unsigned char QuovSDKVersionString[] =
    "@(#)PROGRAM:QuovSDK  PROJECT:QuovSDK-1\n";
}

namespace quov {

QuovAdDelegate::~QuovAdDelegate() = default;
void QuovAdDelegate::onQuovSDKAdFetchedBid(QVBidModelPtr) {}
void QuovAdDelegate::onQuovSDKAdLoaded() {}
void QuovAdDelegate::onQuovSDKAdDisplayed() {}
void QuovAdDelegate::onQuovSDKAdClicked() {}
void QuovAdDelegate::onQuovSDKAdClosed() {}
void QuovAdDelegate::onQuovSDKAdLoadFailed(const Error&) {}

QuovAd& QuovAd::shared() {
    static QuovAd* instance = new QuovAd();  // lives until the process ends
    return *instance;
}

QuovAd::QuovAd() : imei_(std::string()), oaid_(std::string()) {}
QuovAd::~QuovAd() = default;

void QuovAd::setupWithAppId(std::optional<std::string> appId, std::optional<std::string> appKey) {
    QuovAdFlow::checkMainThread("QuovAd::setupWithAppId");
    // A host sets up once and loads soon after; what the first load would start
    // on this thread starts now on another.
    platform::Context::shared().warmUp();
    appId_ = std::move(appId);
    appKey_ = std::move(appKey);
    platform::QVLog("Init Finished, AppId: %@ AppKey %@", platform::orNull(AppId()),
                    platform::orNull(AppKey()));
    platform::QVLog("deviceInfo %@", QVDeviceInfo::deviceInfo().describe());
}

void QuovAd::setIMEI(std::optional<std::string> imei) {
    QuovAdFlow::checkMainThread("QuovAd::setIMEI");
    imei_ = std::move(imei);
}
void QuovAd::setOAID(std::optional<std::string> oaid) {
    QuovAdFlow::checkMainThread("QuovAd::setOAID");
    oaid_ = std::move(oaid);
}

void QuovAd::loadAdWithAdId(std::optional<std::string> adId) {
    QuovAdFlow::checkMainThread("QuovAd::loadAdWithAdId");
    if (!appKey_ || !appId_) {
        platform::QVLog("Please call `setup` initialize first");
        return;
    }
    QVRequestHelper::loadAdWithAdId(adId, QuovAdFlow::makeLoadCompletion(*this));
}

// Runs the loop rather than waiting on it: completions and retries are main-loop
// tasks, so nothing would end while the main thread merely slept. A click's
// open-URL chain counts too: its landing page should open before the host exits.
bool QuovAd::flush(std::chrono::milliseconds timeout) {
    QuovAdFlow::checkMainThread("QuovAd::flush");
    platform::Context& context = platform::Context::shared();
    platform::Application& app = context.application();
    return context.mainLoop().runUntil(
        [&app] { return network::pendingTrackingRequests() == 0 && app.pendingURLOpens() == 0; }, timeout);
}

bool QuovAd::isAdReady() const { return prepared_ && prepared_->ready; }

bool QuovAd::showAd() {
    QuovAdFlow::checkMainThread("QuovAd::showAd");
    if (!isAdReady()) return false;
    const std::shared_ptr<QuovPreparedAd> ready = std::exchange(prepared_, nullptr);
    QuovAdFlow::presentOnView(*this, ready->bid, ready->image);
    return true;
}

}  // namespace quov
