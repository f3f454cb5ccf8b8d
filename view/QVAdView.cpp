#include "view/QVAdView.h"

#include "platform/Context.h"
#include "platform/runtime/Log.h"
#include "platform/media/ResourceBundle.h"

#include <algorithm>
#include <chrono>

namespace quov {

using platform::Button;
using platform::ConstraintPtr;
using platform::TouchEvent;
using platform::ViewPtr;

namespace {
constexpr double kImageFraction = 0.85;
}

Size QVAdViewImageBoxSize(Size screen, const QVBidImageModel* image) {
    const double sw = screen.width;
    const double sh = screen.height;
    const bool usable = image && image->width() > 0 && image->height() > 0;
    if (sw > sh) {
        const double h = sh * kImageFraction;
        if (!usable) return {h, h};
        return {(h * static_cast<double>(image->width())) / static_cast<double>(image->height()), h};
    }
    const double w = sw * kImageFraction;
    if (!usable) return {w, w};
    return {w, (w * static_cast<double>(image->height())) / static_cast<double>(image->width())};
}

Size QVAdViewFitImageBox(Size screen, Size box) {
    if (!(box.width > 0) || !(box.height > 0)) return box;
    // The room the close button leaves, from the constraints of setupUIConstraints:
    // above the image it overhangs the right edge by 3 and needs 10 + 40 on top;
    // beside it it needs 10 + 40 on the right and overhangs the top by 3. The image
    // is centred, so each overhang counts on both sides.
    const bool buttonAbove = screen.width < screen.height;
    const double maxWidth = buttonAbove ? screen.width - 2 * 3 : screen.width - 2 * 50;
    const double maxHeight = buttonAbove ? screen.height - 2 * 50 : screen.height - 2 * 3;
    const double scale = std::min({1.0, std::max(0.0, maxWidth) / box.width, std::max(0.0, maxHeight) / box.height});
    return {box.width * scale, box.height * scale};
}

void QVAdViewPinToWindow(const std::shared_ptr<QVAdView>& view, platform::View& window) {
    window.addSubview(view);
    view->setTranslatesAutoresizingMaskIntoConstraints(false);
    platform::LayoutConstraint::activateConstraints({
        view->leadingAnchor().constraintEqualToAnchor(window.leadingAnchor()),
        view->trailingAnchor().constraintEqualToAnchor(window.trailingAnchor()),
        view->widthAnchor().constraintEqualToAnchor(window.widthAnchor()),
        view->heightAnchor().constraintEqualToAnchor(window.heightAnchor()),
    });
}

std::shared_ptr<QVAdView> QVAdView::initWithFrame(Rect frame, QVAdViewEnvironment environment) {
    auto view = std::make_shared<QVAdView>(frame, std::move(environment));
    view->construct();
    return view;
}

QVAdView::QVAdView(Rect frame, QVAdViewEnvironment environment)
    : View(frame), environment_(std::move(environment)) {}

platform::Application& QVAdView::app() const {
    return environment_.application ? *environment_.application : platform::Context::shared().application();
}

double QVAdView::now() const {
    if (environment_.clock) return environment_.clock();
    using namespace std::chrono;
    return duration<double>(system_clock::now().time_since_epoch()).count();
}

void QVAdView::construct() {
    setTranslatesAutoresizingMaskIntoConstraints(false);

    maskView_ = platform::View::make();
    imageView_ = platform::ImageView::make();
    closeButton_ = Button::make();
    clickAdButton_ = Button::make();

    maskView_->setBackgroundColor(platform::Color::black());
    maskView_->setAlpha(0.8);

    for (const ViewPtr& v : {maskView_, ViewPtr(imageView_), ViewPtr(closeButton_), ViewPtr(clickAdButton_)})
        v->setTranslatesAutoresizingMaskIntoConstraints(false);
    for (const ViewPtr& v : {maskView_, ViewPtr(imageView_), ViewPtr(clickAdButton_), ViewPtr(closeButton_)})
        addSubview(v);

    auto self = std::static_pointer_cast<QVAdView>(shared_from_this());
    clickAdButton_->addTarget(self, &QVAdView::onAdButtonTouchDown, platform::ControlEventTouchDown);
    clickAdButton_->addTarget(self, &QVAdView::onAdButtonTouchUpInside,
                              platform::ControlEventTouchUpInside);

    clickAdButton_->setAccessibilityLabel("ad");
    closeButton_->setAccessibilityLabel("close");
    closeButton_->setContentEdgeInsets({5, 5, 5, 5});
    imageView_->setContentMode(platform::ContentMode::ScaleAspectFit);

    // Looked for only beside the library. Without it the button has no image but
    // keeps its place and action.
    const platform::Bundle code = platform::Bundle::bundleForLibrary();
    const auto bundle = platform::Bundle::bundleWithURL(code.URLForResource("quovsdk_images", "bundle"));
    platform::ImagePtr icon = platform::imageNamed("SF_x_circle_fill", bundle);
    if (!icon) {
        const std::string where = code.directories().empty() ? std::string("(unknown)")
                                                              : code.directories().front().string();
        platform::logLine(bundle ? "SF_x_circle_fill is missing or unreadable in quovsdk_images.bundle in " + where +
                                       "; the close button has no icon"
                                 : "quovsdk_images.bundle is missing in " + where + "; the close button has no icon");
    }
    closeButton_->setImage(std::move(icon), platform::ControlState::Normal);

    closeButton_->addTarget(self, &QVAdView::close, platform::ControlEventTouchUpInside);

    setupUIConstraints();
    View::layoutSubviews();

    platform::Application& application = app();
    // Never ended, on purpose: generation stays on for the life of the process.
    application.beginGeneratingDeviceOrientationNotifications();
    std::weak_ptr<QVAdView> weak = self;
    const auto rebuild = [weak](const platform::Notification& n) {
        if (auto view = weak.lock()) view->deviceOrientationDidChange(n);
    };
    orientationChanges_ = application.defaultCenter().addObserver(
        rebuild, std::string(platform::UIDeviceOrientationDidChangeNotification));
    // The layout is made from the screen's size, so any resize (a smaller window,
    // leaving fullscreen) needs it made again, not only a flip.
    screenChanges_ = application.defaultCenter().addObserver(
        rebuild, std::string(platform::QuovMainScreenDidChangeNotification));
}

void QVAdView::deviceOrientationDidChange(const platform::Notification&) {
    setupUIConstraints();
    View::layoutSubviews();
}

void QVAdView::setupUIConstraints() {
    removeAllConstraintsFromView(closeButton_);
    removeAllConstraintsFromView(imageView_);
    removeAllConstraintsFromView(clickAdButton_);
    removeAllConstraintsFromView(maskView_);

    const std::vector<ConstraintPtr> fixed = {
        maskView_->leadingAnchor().constraintEqualToAnchor(leadingAnchor()),
        maskView_->trailingAnchor().constraintEqualToAnchor(trailingAnchor()),
        maskView_->topAnchor().constraintEqualToAnchor(topAnchor()),
        maskView_->bottomAnchor().constraintEqualToAnchor(bottomAnchor()),
        clickAdButton_->leadingAnchor().constraintEqualToAnchor(imageView_->leadingAnchor()),
        clickAdButton_->trailingAnchor().constraintEqualToAnchor(imageView_->trailingAnchor()),
        clickAdButton_->topAnchor().constraintEqualToAnchor(imageView_->topAnchor()),
        clickAdButton_->bottomAnchor().constraintEqualToAnchor(imageView_->bottomAnchor()),
        closeButton_->widthAnchor().constraintEqualToConstant(40),
        closeButton_->heightAnchor().constraintEqualToConstant(40),
        imageView_->centerXAnchor().constraintEqualToAnchor(centerXAnchor()),
        imageView_->centerYAnchor().constraintEqualToAnchor(centerYAnchor()),
    };
    for (const auto& c : fixed) c->setActive(true);

    const double width = app().mainScreen().bounds().size.width;
    const double height = app().mainScreen().bounds().size.height;
    // Portrait asks "narrower than tall"; the image box below asks "wider than tall":
    // a square screen puts the button beside an image sized by the width.
    if (width < height) {
        closeButton_->trailingAnchor().constraintEqualToAnchor(imageView_->trailingAnchor(), 3)->setActive(true);
        closeButton_->bottomAnchor().constraintEqualToAnchor(imageView_->topAnchor(), -10)->setActive(true);
    } else {
        closeButton_->leadingAnchor().constraintEqualToAnchor(imageView_->trailingAnchor(), 10)->setActive(true);
        closeButton_->topAnchor().constraintEqualToAnchor(imageView_->topAnchor(), -3)->setActive(true);
    }

    if (!bid_) return;
    const QVBidImageModel* first = bid_->images().empty() ? nullptr : &bid_->images().front();
    Size box = QVAdViewImageBoxSize({width, height}, first);
    if (environment_.fitToScreen) box = QVAdViewFitImageBox({width, height}, box);
    imageView_->heightAnchor().constraintEqualToConstant(box.height)->setActive(true);
    imageView_->widthAnchor().constraintEqualToConstant(box.width)->setActive(true);
}

void QVAdView::removeAllConstraintsFromView(const ViewPtr& v) {
    for (ViewPtr s = v->superview(); s; s = s->superview()) {
        for (const ConstraintPtr& c : s->constraints()) {
            if (c->firstItem() == v || c->secondItem() == v) s->removeConstraint(c);
        }
    }
    v->removeConstraints(v->constraints());
}

void QVAdView::showBid(QVBidModelPtr bid, BidCallback onAdShow, BidCallback onAdClicked,
                       BidCallback onAdClosed) {
    onAdClicked_ = std::move(onAdClicked);
    onAdClosed_ = std::move(onAdClosed);
    bid_ = std::move(bid);

    std::optional<std::string> url;
    if (bid_ && !bid_->images().empty()) url = bid_->images().front().url();
    if (environment_.loadImage) environment_.loadImage(imageView_, url);

    if (bid_) bid_->reportAdShow();
    if (onAdShow) onAdShow(bid_);

    setupUIConstraints();
    View::layoutSubviews();
}

void QVAdView::onAdButtonTouchDown(Button& sender, const TouchEvent& event) {
    touchDownPoint_ = platform::locationInView(event.anyTouchForView(sender), sender);
    touchDownDate_ = now();
}

void QVAdView::onAdButtonTouchUpInside(Button& sender, const TouchEvent& event) {
    click(platform::locationInView(event.anyTouchForView(sender), sender));
}

void QVAdView::close(Button&, const TouchEvent&) { dismiss(); }

void QVAdView::click(Point up) {
    // Kept alive through removal: the window may hold the last reference.
    auto self = std::static_pointer_cast<QVAdView>(shared_from_this());
    openURLStep(1);
    const Size adSize = imageView_->bounds().size;
    if (bid_) bid_->reportAdClickWithAdSize(adSize, touchDownPoint_, touchDownDate_, up, now());
    if (onAdClicked_) onAdClicked_(bid_);
    removeFromSuperview();
}

void QVAdView::dismiss() {
    auto self = std::static_pointer_cast<QVAdView>(shared_from_this());
    if (onAdClosed_) onAdClosed_(bid_);
    removeFromSuperview();
}

Point QVAdView::clickAreaCentre() const {
    const Size s = clickAdButton_->bounds().size;
    return {s.width / 2, s.height / 2};
}

void QVAdView::keyDown(platform::KeyAction action) {
    if (action == platform::KeyAction::Dismiss) {
        dismiss();
        return;
    }
    touchDownPoint_ = clickAreaCentre();
    touchDownDate_ = now();
    activateHeld_ = true;
}

void QVAdView::keyUp(platform::KeyAction action) {
    // A release without its press here (held before the ad came) clicks nothing.
    if (action != platform::KeyAction::Activate || !activateHeld_) return;
    activateHeld_ = false;
    click(clickAreaCentre());
}

// Deep link, then the platform landing page, then the click URL; each only when the
// one before could not be opened. Each pending step keeps the view alive.
void QVAdView::openURLStep(int step) {
    auto self = std::static_pointer_cast<QVAdView>(shared_from_this());
    std::optional<std::string> url;
    if (bid_) url = step == 1 ? bid_->deepLinkURL() : step == 2 ? bid_->iOSURL() : bid_->clickURL();
    app().openURL(url, [self, step](bool opened) {
        if (opened) return;
        if (step < 3) {
            self->openURLStep(step + 1);
        } else {
            platform::QVLog("Unable to open URL: %@",
                            platform::orNull(self->bid_ ? self->bid_->clickURL() : std::nullopt));
        }
    });
}

}  // namespace quov
