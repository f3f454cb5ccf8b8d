// The fitted layout: whatever the screen's and the creative's shapes, the image and
// its close button stay on screen.
#include "platform/Context.h"
#include "view/QVAdView.h"

#include "facade/QuovAdFlow.h"
#include "platform/toolkit/Window.h"
#include "support/RecordingDelegate.h"

#include <gtest/gtest.h>

namespace quov {
namespace {

QVBidModelPtr bidWithImage(std::int64_t w, std::int64_t h) {
    auto bid = std::make_shared<QVBidModel>();
    QVBidImageModel image;
    image.setUrl(std::string("http://127.0.0.1:9/i.png"));
    image.setWidth(w);
    image.setHeight(h);
    bid->setImages({image});
    return bid;
}

bool inside(Rect r, Size screen) {
    constexpr double eps = 1e-9;
    return r.origin.x >= -eps && r.origin.y >= -eps && r.origin.x + r.size.width <= screen.width + eps &&
           r.origin.y + r.size.height <= screen.height + eps;
}

/// An ad view on its own application and window, laid out for the screen.
std::shared_ptr<QVAdView> showOn(platform::Application& app, Size screen, QVBidModelPtr bid, bool fit) {
    app.setMainScreen(screen, 2);
    auto window = platform::Window::make();
    app.setKeyWindow(window);
    QVAdViewEnvironment env;
    env.application = &app;
    env.loadImage = [](std::weak_ptr<platform::ImageView>, const std::optional<std::string>&) {};
    env.fitToScreen = fit;
    auto view = QVAdView::initWithFrame({{0, 0}, screen}, env);
    window->addSubview(view);
    view->setTranslatesAutoresizingMaskIntoConstraints(false);
    platform::LayoutConstraint::activateConstraints({
        view->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor()),
        view->trailingAnchor().constraintEqualToAnchor(window->trailingAnchor()),
        view->widthAnchor().constraintEqualToAnchor(window->widthAnchor()),
        view->heightAnchor().constraintEqualToAnchor(window->heightAnchor()),
    });
    view->showBid(std::move(bid), [](auto&) {}, [](auto&) {}, [](auto&) {});
    return view;
}

TEST(AdViewFit, ImageAndCloseButtonStayOnScreenForEveryShape) {
    const Size screens[] = {{375, 812}, {800, 600}, {812, 375}, {500, 500}, {100, 100}};
    const std::pair<std::int64_t, std::int64_t> creatives[] = {{728, 90}, {320, 50}, {300, 900}, {1, 1000}, {600, 500}};
    for (const Size screen : screens) {
        for (const auto& [iw, ih] : creatives) {
            SCOPED_TRACE(testing::Message() << iw << "x" << ih << " on " << screen.width << "x" << screen.height);
            MainLoop loop;
            platform::Application app(loop);
            auto view = showOn(app, screen, bidWithImage(iw, ih), true);
            const Rect image = view->imageView()->frame();
            EXPECT_TRUE(inside(view->closeButton()->frame(), screen));
            EXPECT_TRUE(inside(image, screen));
            EXPECT_NEAR(image.size.width * double(ih), image.size.height * double(iw), 1e-6 * image.size.width * ih)
                << "ratio kept";
            const Rect click = view->clickAdButton()->frame();
            EXPECT_NEAR(click.origin.x + click.size.width, image.origin.x + image.size.width, 1e-9);
            EXPECT_NEAR(click.origin.y + click.size.height, image.origin.y + image.size.height, 1e-9);
            const Size unfitted = QVAdViewImageBoxSize(screen, &bidWithImage(iw, ih)->images().front());
            EXPECT_LE(image.size.width, unfitted.width + 1e-9) << "never larger than the default box";
        }
    }
}

TEST(AdViewFit, AnAdThatAlreadyFitsKeepsTheDefaultBox) {
    MainLoop loop;
    platform::Application app(loop);
    auto fitted = showOn(app, {375, 812}, bidWithImage(600, 500), true);
    EXPECT_EQ(fitted->imageView()->frame(), (Rect{{28.125, 273.1875}, {318.75, 265.625}}));
}

TEST(AdViewFit, TheDefaultStillOverflowsAndTheFacadeSettingSwitchesFitOn) {
    auto& app = platform::Context::shared().application();
    const auto previous = app.keyWindow();
    const Size screen{800, 600};
    app.setMainScreen(screen, 1);
    auto window = platform::Window::make();
    app.setKeyWindow(window);
    QuovAd ad;
    for (const bool fit : {false, true}) {
        ad.setFitAdToScreen(fit);
        QuovAdFlow::makeLoadCompletion(ad)({bidWithImage(728, 90)}, std::nullopt);
        auto view = std::dynamic_pointer_cast<QVAdView>(window->subviews().back());
        ASSERT_NE(view, nullptr);
        EXPECT_EQ(inside(view->closeButton()->frame(), screen), fit) << "fit " << fit;
    }
    app.setKeyWindow(previous);
}

}  // namespace
}  // namespace quov
