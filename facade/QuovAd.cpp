#include <quov/QuovAd.h>

#include <quov/MainLoop.h>
#include <quov/QVDeviceInfo.h>
#include <quov/QVRequestHelper.h>

#include "facade/QuovAdFlow.h"
#include "platform/media/ImageLoader.h"
#include "platform/runtime/Log.h"

#include <mutex>
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

// ---- the load flow ----

namespace {
std::mutex presenterMutex;
QuovAdFlow::ViewPresenter& presenterSlot() {
    static QuovAdFlow::ViewPresenter presenter;
    return presenter;
}
}  // namespace

void QuovAdFlow::setViewPresenter(ViewPresenter presenter) {
    std::lock_guard lock(presenterMutex);
    presenterSlot() = std::move(presenter);
}

void QuovAdFlow::presentOnView(QuovAd& ad, QVBidModelPtr bid, std::optional<platform::ImagePtr> preloaded) {
    ViewPresenter presenter;
    {
        std::lock_guard lock(presenterMutex);
        presenter = presenterSlot();
    }
    if (presenter) {
        presenter(ad, std::move(bid));
    } else {
        showInKeyWindow(ad, std::move(bid), std::move(preloaded));
    }
}

std::function<QuovAd*()> QuovAdFlow::weakFacade(QuovAd& ad) {
    return [facade = &ad, alive = std::weak_ptr<const bool>(ad.alive_)]() -> QuovAd* {
        return alive.expired() ? nullptr : facade;
    };
}

namespace {

// The delegate to call, or a Debug line saying the call is skipped because it is gone.
std::shared_ptr<QuovAdDelegate> delegateFor(const QuovAd& facade, const char* call) {
    auto d = facade.delegate();
    if (!d) platform::QVDebug("Skipped %@: the delegate is gone", call);
    return d;
}

}  // namespace

LoadCompletion QuovAdFlow::makeLoadCompletion(QuovAd& ad) {
    return [lookup = weakFacade(ad)](std::vector<QVBidModelPtr> bids, std::optional<Error> error) {
        QuovAd* facade = lookup();
        if (!facade) return;
        if (error) {
            if (auto d = delegateFor(*facade, "onQuovSDKAdLoadFailed")) d->onQuovSDKAdLoadFailed(*error);
            return;
        }
        if (bids.empty()) {
            if (auto d = delegateFor(*facade, "onQuovSDKAdLoadFailed"))
                d->onQuovSDKAdLoadFailed(Error{"QAPP", 204, std::nullopt});
            return;
        }
        QVBidModelPtr first = bids.front();
        if (first && first->isRendering() == 1) {
            if (auto d = delegateFor(*facade, "onQuovSDKAdFetchedBid")) d->onQuovSDKAdFetchedBid(first);
            return;
        }
        if (facade->preloadBeforeShow_) {
            prepare(*facade, std::move(first));
            return;
        }
        if (auto d = delegateFor(*facade, "onQuovSDKAdLoaded")) d->onQuovSDKAdLoaded();
        presentOnView(*facade, std::move(first));
    };
}

void QuovAdFlow::prepare(QuovAd& ad, QVBidModelPtr bid) {
    auto prepared = std::make_shared<QuovPreparedAd>();
    prepared->bid = std::move(bid);
    ad.prepared_ = prepared;  // an earlier ad, ready or still loading, is dropped
    std::optional<std::string> url;
    if (prepared->bid && !prepared->bid->images().empty()) url = prepared->bid->images().front().url();
    platform::ImageLoader::shared().load(
        url, [lookup = weakFacade(ad), weak = std::weak_ptr<QuovPreparedAd>(prepared)](platform::ImagePtr image) {
            QuovAd* facade = lookup();
            auto current = weak.lock();
            if (!facade || !current || facade->prepared_ != current) return;
            current->image = std::move(image);
            current->ready = true;
            if (auto d = delegateFor(*facade, "onQuovSDKAdLoaded")) d->onQuovSDKAdLoaded();
        });
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
