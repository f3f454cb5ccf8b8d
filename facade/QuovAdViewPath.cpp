#include "facade/QuovAdFlow.h"

#include "platform/toolkit/Application.h"
#include "platform/media/ImageViewURL.h"
#include "view/QVAdView.h"

namespace quov {

void QuovAdFlow::showInKeyWindow(QuovAd& ad, QVBidModelPtr bid, std::optional<platform::ImagePtr> preloaded) {
    platform::Application& app = platform::Application::shared();
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
    window->addSubview(view);

    view->setTranslatesAutoresizingMaskIntoConstraints(false);
    // No vertical constraint: the view stays at the frame's origin 0.
    view->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor())->setActive(true);
    view->trailingAnchor().constraintEqualToAnchor(window->trailingAnchor())->setActive(true);
    view->widthAnchor().constraintEqualToAnchor(window->widthAnchor())->setActive(true);
    view->heightAnchor().constraintEqualToAnchor(window->heightAnchor())->setActive(true);

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
        platform::setImageWithURL(std::move(view), url);
    };
    return environment;
}

}  // namespace quov
