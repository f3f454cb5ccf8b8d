#include "facade/QuovAdFlow.h"

#include "platform/Context.h"
#include "platform/media/ImageLoader.h"
#include "platform/media/ImageViewURL.h"
#include "platform/runtime/Log.h"
#include "platform/runtime/TaskWorker.h"
#include "platform/toolkit/Application.h"
#include "view/QVAdView.h"

#include <mutex>
#include <utility>

namespace quov {

namespace {

// The presenter in force, kept in the context so a test scopes its own.
struct PresenterPart final : platform::Context::Part {
    explicit PresenterPart(platform::Context&) {}
    std::mutex mutex;
    QuovAdFlow::ViewPresenter presenter;

    QuovAdFlow::ViewPresenter exchange(QuovAdFlow::ViewPresenter next) {
        std::lock_guard lock(mutex);
        std::swap(presenter, next);
        return next;
    }
};

}  // namespace

QuovAdFlow::ScopedViewPresenter::ScopedViewPresenter(platform::Context& context, ViewPresenter presenter)
    : context_(context),
      previous_(context.part<PresenterPart>().exchange(std::move(presenter))) {}

QuovAdFlow::ScopedViewPresenter::~ScopedViewPresenter() {
    context_.part<PresenterPart>().exchange(std::move(previous_));
}

void QuovAdFlow::presentOnView(QuovAd& ad, QVBidModelPtr bid, std::optional<platform::ImagePtr> preloaded) {
    auto& part = platform::Context::shared().part<PresenterPart>();
    ViewPresenter presenter;
    {
        std::lock_guard lock(part.mutex);
        presenter = part.presenter;
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
        // Only the first bid is ever used; the rest of an answer of a million bids
        // is freed on the task worker, not in the host's frame.
        const bool noBid = bids.empty();
        QVBidModelPtr first = noBid ? nullptr : bids.front();
        if (bids.size() > 1) platform::Context::shared().tasks().submit([rest = std::move(bids)] {});
        QuovAd* facade = lookup();
        if (!facade) return;
        if (error) {
            if (auto d = delegateFor(*facade, "onQuovSDKAdLoadFailed")) d->onQuovSDKAdLoadFailed(*error);
            return;
        }
        if (noBid) {
            if (auto d = delegateFor(*facade, "onQuovSDKAdLoadFailed"))
                d->onQuovSDKAdLoadFailed(Error{"QAPP", 204, std::nullopt});
            return;
        }
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
    platform::Context::shared().images().load(
        url, [lookup = weakFacade(ad), weak = std::weak_ptr<QuovPreparedAd>(prepared)](platform::ImagePtr image) {
            QuovAd* facade = lookup();
            auto current = weak.lock();
            if (!facade || !current || facade->prepared_ != current) return;
            current->image = std::move(image);
            current->ready = true;
            if (auto d = delegateFor(*facade, "onQuovSDKAdLoaded")) d->onQuovSDKAdLoaded();
        });
}

void QuovAdFlow::showInKeyWindow(QuovAd& ad, QVBidModelPtr bid, std::optional<platform::ImagePtr> preloaded) {
    platform::Application& app = platform::Context::shared().application();
    const std::shared_ptr<platform::Window> window = app.keyWindow();
    if (!window) {
        // Nowhere to show it: the host hears why instead of never hearing anything.
        if (auto d = ad.delegate()) d->onQuovSDKAdLoadFailed(noKeyWindowError());
        return;
    }
    const Size screen = app.mainScreen().bounds().size;
    QVAdViewEnvironment environment = defaultAdViewEnvironment();
    environment.fitToScreen = ad.fitAdToScreen();
    if (preloaded) {
        environment.loadImage = [image = *preloaded](std::weak_ptr<platform::ImageView> target,
                                                     const std::optional<std::string>&) {
            if (auto v = target.lock()) v->setImage(image);
        };
    }
    auto view = QVAdView::initWithFrame(Rect{{0, 0}, screen}, std::move(environment));
    QVAdViewPinToWindow(view, *window);

    auto call = [lookup = weakFacade(ad)](void (QuovAdDelegate::*event)()) {
        return [lookup, event](const QVBidModelPtr&) {
            QuovAd* facade = lookup();
            if (auto d = facade ? facade->delegate() : nullptr) ((*d).*event)();
        };
    };
    view->showBid(std::move(bid), call(&QuovAdDelegate::onQuovSDKAdDisplayed),
                  call(&QuovAdDelegate::onQuovSDKAdClicked), call(&QuovAdDelegate::onQuovSDKAdClosed));
}

Error QuovAdFlow::noKeyWindowError() {
    return Error{"QAPP", kNoKeyWindowCode,
                 std::string("no key window to show the ad in: attach an SDL window first")};
}

QVAdViewEnvironment QuovAdFlow::defaultAdViewEnvironment() {
    QVAdViewEnvironment environment;
    environment.loadImage = [](std::weak_ptr<platform::ImageView> view, const std::optional<std::string>& url) {
        platform::setImageWithURL(std::move(view), url, platform::Context::shared().images());
    };
    return environment;
}

}  // namespace quov
