#pragma once

#include <quov/Geometry.h>
#include <quov/QVBidModel.h>

#include "platform/toolkit/Application.h"
#include "platform/toolkit/Button.h"
#include "platform/toolkit/ImageView.h"
#include "platform/toolkit/NotificationCenter.h"
#include "platform/toolkit/View.h"
#include "platform/toolkit/KeyInput.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quov {

/// What the ad view needs from around it. Every empty member means the SDK's own.
struct QVAdViewEnvironment {
    /// Screen, orientation notifications, opening URLs. Null: the context's.
    platform::Application* application = nullptr;
    /// Starts loading an image URL into an image view (and forgets it if the view goes).
    std::function<void(std::weak_ptr<platform::ImageView>, const std::optional<std::string>&)> loadImage;
    /// Wall-clock seconds since 1970 with fraction.
    std::function<double()> clock;
    /// Scale the image box down (ratio kept) until the image and its close button
    /// lie inside the screen. Off: one screen side bounds the box, the other is free.
    bool fitToScreen = false;
};

/// The image box for a screen and the first image's declared size: 85 % of the
/// screen's height in landscape (width greater than height), else of its width,
/// the other side by the declared aspect ratio, unclamped. A missing image or a
/// declared side that is not positive gives the square box of that bound instead.
Size QVAdViewImageBoxSize(Size screen, const QVBidImageModel* firstImage);

/// The box scaled down, ratio kept, so that the box centred on the screen and the
/// close button where the layout puts it (above the image when the screen is
/// narrower than tall, else beside it) lie inside the screen. Never scaled up.
Size QVAdViewFitImageBox(Size screen, Size box);

class QVAdView;

/// Adds the view to the window and pins it the way an ad is shown: leading, trailing,
/// width and height. Nothing vertical: it stays at its frame's top.
void QVAdViewPinToWindow(const std::shared_ptr<QVAdView>& view, platform::View& window);

/// The full-screen interstitial: a dimming mask, the ad image centred at 85 % of one
/// screen side, a transparent click area over the image and a 40-point close button
/// beside it. Main thread. Owned by the window it is added to (and by a pending
/// open-URL step while one runs); it removes itself after a click or a close.
class QVAdView : public platform::View, public platform::KeyResponder {
public:
    using BidCallback = std::function<void(const QVBidModelPtr&)>;

    /// Builds the subviews, the close icon, the first 14 constraints and the
    /// orientation observation.
    static std::shared_ptr<QVAdView> initWithFrame(Rect frame, QVAdViewEnvironment environment = {});

    explicit QVAdView(Rect frame, QVAdViewEnvironment environment);

    /// Rebuilds the layout; the observer action of orientation changes.
    void deviceOrientationDidChange(const platform::Notification& notification);
    /// Removes every constraint of the four subviews and makes them again from the
    /// screen's current size and the bid: 14 without a bid, 16 with one.
    void setupUIConstraints();
    /// Stores the callbacks and the bid, starts the image, reports the impression,
    /// calls onAdShow, then lays out. Call once, with all three callbacks.
    void showBid(QVBidModelPtr bid, BidCallback onAdShow, BidCallback onAdClicked,
                 BidCallback onAdClosed);
    void onAdButtonTouchDown(platform::Button& sender, const platform::TouchEvent& event);
    void onAdButtonTouchUpInside(platform::Button& sender, const platform::TouchEvent& event);
    void close(platform::Button& sender, const platform::TouchEvent& event);
    /// Keys, for hosts without a pointer: Dismiss closes at once as the close button
    /// does; Activate is a touch at the centre of the click area, down at the press
    /// and up (a click) at the release.
    void keyDown(platform::KeyAction action) override;
    void keyUp(platform::KeyAction action) override;
    /// Removes, from v's superview up to the root, every constraint that relates v,
    /// then every constraint installed on v itself.
    void removeAllConstraintsFromView(const platform::ViewPtr& v);

    const std::shared_ptr<platform::ImageView>& imageView() const { return imageView_; }
    const std::shared_ptr<platform::Button>& closeButton() const { return closeButton_; }
    const std::shared_ptr<platform::Button>& clickAdButton() const { return clickAdButton_; }
    const platform::ViewPtr& maskView() const { return maskView_; }
    /// Never assigned: the layout finds its constraints by walking the tree.
    const platform::ConstraintPtr& imageViewHeight() const { return imageViewHeight_; }
    const platform::ConstraintPtr& imageViewWidth() const { return imageViewWidth_; }
    Point touchDownPoint() const { return touchDownPoint_; }
    double touchDownDate() const { return touchDownDate_; }
    const BidCallback& onAdClicked() const { return onAdClicked_; }
    const BidCallback& onAdClosed() const { return onAdClosed_; }
    const QVBidModelPtr& bid() const { return bid_; }

private:
    void construct();
    void click(Point up);
    void dismiss();
    Point clickAreaCentre() const;
    void openURLStep(int step);
    double now() const;
    platform::Application& app() const;

    QVAdViewEnvironment environment_;
    std::shared_ptr<platform::ImageView> imageView_;
    std::shared_ptr<platform::Button> closeButton_;
    std::shared_ptr<platform::Button> clickAdButton_;
    platform::ViewPtr maskView_;
    platform::ConstraintPtr imageViewHeight_;
    platform::ConstraintPtr imageViewWidth_;
    Point touchDownPoint_;
    double touchDownDate_ = 0;
    bool activateHeld_ = false;
    BidCallback onAdClicked_;
    BidCallback onAdClosed_;
    QVBidModelPtr bid_;
    platform::NotificationCenter::Subscription orientationChanges_;
    platform::NotificationCenter::Subscription screenChanges_;
};

}  // namespace quov
