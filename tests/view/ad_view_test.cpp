#include "view/QVAdView.h"

#include "facade/QuovAdFlow.h"
#include "platform/Context.h"
#include "platform/toolkit/Window.h"
#include "support/LogCapture.h"
#include "support/RecordingDelegate.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>
#include <set>

namespace quov {
namespace {

using platform::TouchPhase;
using Opt = std::optional<std::string>;

QVBidModelPtr bidWithImage(std::int64_t w, std::int64_t h) {
    const nlohmann::json image = {{"url", "http://127.0.0.1:9/i.png"}, {"w", w}, {"h", h}};
    return QVBidModel::initWithDict({{"images", nlohmann::json::array({image})}});
}

bool near(Rect a, Rect b) {  // frames solved from constraints differ from the figures in the last bits
    return std::abs(a.origin.x - b.origin.x) + std::abs(a.origin.y - b.origin.y) +
               std::abs(a.size.width - b.size.width) + std::abs(a.size.height - b.size.height) < 1e-9;
}

bool inside(Rect r, Size screen) {
    return r.origin.x >= -1e-9 && r.origin.y >= -1e-9 && r.origin.x + r.size.width <= screen.width + 1e-9 &&
           r.origin.y + r.size.height <= screen.height + 1e-9;
}

/// One application with a key window the size of its screen, and what the ad view asked of its surroundings.
struct Rig {
    MainLoop loop;
    platform::Application app{loop};
    std::shared_ptr<platform::Window> window = platform::Window::make();
    std::vector<Opt> imageLoads;
    bool fit = false;

    explicit Rig(Size screen, bool fitToScreen = false) : fit(fitToScreen) {
        app.setMainScreen(screen, 3);
        app.setKeyWindow(window);
    }
    std::shared_ptr<QVAdView> makeView() {
        QVAdViewEnvironment env;
        env.application = &app;
        env.loadImage = [this](std::weak_ptr<platform::ImageView>, const Opt& url) { imageLoads.push_back(url); };
        env.fitToScreen = fit;
        auto view = QVAdView::initWithFrame({{0, 0}, app.mainScreen().bounds().size}, env);
        QVAdViewPinToWindow(view, *window);
        return view;
    }
    std::shared_ptr<QVAdView> show(QVBidModelPtr bid) {
        auto view = makeView();
        view->showBid(std::move(bid), {}, {}, {});
        return view;
    }
    void settle() { loop.runUntil([this] { return loop.pending() == 0; }, std::chrono::seconds(5)); }
};

/// Constraints anywhere in the view's tree that relate one of its four subviews.
std::size_t subviewConstraints(const QVAdView& view) {
    const std::set<const platform::View*> parts = {view.maskView().get(), view.imageView().get(),
                                                   view.closeButton().get(), view.clickAdButton().get()};
    const platform::View* root = &view;
    while (root->superview()) root = root->superview().get();
    std::size_t n = 0;
    std::function<void(const platform::View&)> walk = [&](const platform::View& v) {
        for (const auto& c : v.constraints())
            n += parts.count(c->firstItem().get()) || parts.count(c->secondItem().get());
        for (const auto& s : v.subviews()) walk(*s);
    };
    walk(*root);
    return n;
}

TEST(AdViewLayout, FiguresForEachScreenShapeAndAfterAResize) {
    const double sqH = 425.0 * 500 / 600, sqY = 250 - sqH / 2;
    const std::tuple<const char*, Size, Size, std::int64_t, std::int64_t, Rect, Point> cases[] = {
        {"portrait", {375, 812}, {375, 812}, 600, 500, {{28.125, 273.1875}, {318.75, 265.625}}, {309.875, 223.1875}},
        {"landscape", {812, 375}, {812, 375}, 600, 500, {{214.75, 28.125}, {382.5, 318.75}}, {607.25, 25.125}},
        {"square: width rule, button beside", {500, 500}, {500, 500}, 600, 500, {{37.5, sqY}, {425, sqH}},
         {472.5, sqY - 3}},
        {"tall image is not clamped", {375, 812}, {375, 812}, 300, 900, {{28.125, -72.125}, {318.75, 956.25}},
         {309.875, -122.125}},
        {"1280x720 to 800x450", {1280, 720}, {800, 450}, 600, 500, {{170.5, 33.75}, {459, 382.5}}, {639.5, 30.75}},
    };
    for (const auto& [name, from, screen, iw, ih, image, close] : cases) {
        SCOPED_TRACE(name);
        Rig rig(from);
        auto view = rig.show(bidWithImage(iw, ih));
        rig.app.setMainScreen(screen, 3);  // a resize in the last row
        rig.window->layoutIfNeeded();
        EXPECT_TRUE(near(view->imageView()->frame(), image));
        EXPECT_TRUE(near(view->clickAdButton()->frame(), image));
        EXPECT_TRUE(near(view->closeButton()->frame(), {close, {40, 40}}));
        EXPECT_EQ(view->maskView()->frame(), (Rect{{0, 0}, screen}));
        EXPECT_EQ(view->frame(), (Rect{{0, 0}, screen}));
        EXPECT_EQ(subviewConstraints(*view), 16u);
    }
}

TEST(AdViewLayout, UnusableImagesGetASquareBoxAndConstraintsAreNeverDuplicated) {
    for (const auto& [w, h] : {std::pair<std::int64_t, std::int64_t>{0, 500}, {600, 0}, {-600, 500}})
        EXPECT_EQ(QVAdViewImageBoxSize({812, 375}, &bidWithImage(w, h)->images()[0]), (Size{318.75, 318.75}));
    Rig rig({375, 812});
    auto empty = rig.show(std::make_shared<QVBidModel>());  // no images: that box with nothing in it
    EXPECT_EQ(rig.imageLoads, std::vector<Opt>{std::nullopt});
    EXPECT_EQ(empty->imageView()->frame().size, (Size{318.75, 318.75}));
    auto view = rig.show(bidWithImage(600, 500));
    for (int i = 0; i < 3; ++i) view->setupUIConstraints();
    rig.app.setMainScreen({812, 375}, 3);  // flips: the notification rebuilds
    rig.app.deviceOrientationDidChange();
    EXPECT_EQ(subviewConstraints(*view), 16u);
    EXPECT_DOUBLE_EQ(view->imageView()->frame().size.width, 382.5) << "rebuilt for landscape";
    // Off screen it keeps observing, and a rebuild without a superview still works.
    view->removeFromSuperview();
    rig.app.setMainScreen({375, 812}, 3);
    EXPECT_EQ(subviewConstraints(*view), 16u);
    EXPECT_DOUBLE_EQ(view->imageView()->frame().size.width, 318.75);
}

/// A shown ad with a scripted opener and a record of every callback.
struct ClickRig : Rig {
    std::shared_ptr<QVAdView> view;
    std::vector<std::string> events;
    std::vector<Opt> opened;
    std::set<std::string> openable;

    ClickRig(Opt deep = std::nullopt, Opt ios = std::nullopt, Opt click = std::nullopt) : Rig({375, 812}) {
        app.setURLOpener([this](const Opt& url, platform::URLOpenCompletion done) {
            opened.push_back(url);
            done(url && openable.count(*url));
        });
        auto bid = bidWithImage(600, 500);
        bid->setDeepLinkURL(std::move(deep));
        bid->setIOSURL(std::move(ios));
        bid->setClickURL(std::move(click));
        view = makeView();
        const auto record = [this](const char* what) { return [this, what](auto&) { events.push_back(what); }; };
        view->showBid(bid, record("show"), record("clicked"), record("closed"));
    }
    /// A point in the image's own space, in the window's.
    Point inImage(double x, double y) const {
        const Point o = view->imageView()->frame().origin;
        return {o.x + x, o.y + y};
    }
};

TEST(AdViewClick, OpenChainTriesEachLinkOnlyAfterThePreviousFailed) {
    using Strings = std::vector<std::string>;
    const std::tuple<const char*, Opt, Opt, Opt, std::set<std::string>, std::vector<Opt>, Strings> cases[] = {
        {"deep link opens", "app://d", "https://i", "https://c", {"app://d"}, {"app://d"}, {}},
        {"deep link absent, platform page opens", std::nullopt, "https://i", "https://c", {"https://i"},
         {std::nullopt, "https://i"}, {}},
        {"nothing opens", "app://d", "https://i", "https://c", {}, {"app://d", "https://i", "https://c"},
         {"Unable to open URL: https://c"}},
        {"all absent", std::nullopt, std::nullopt, std::nullopt, {}, {std::nullopt, std::nullopt, std::nullopt},
         {"Unable to open URL: (null)"}},
    };
    for (const auto& [name, deep, ios, click, openable, tried, logged] : cases) {
        SCOPED_TRACE(name);
        test::LogCapture log;
        ClickRig rig(deep, ios, click);
        rig.openable = openable;
        std::weak_ptr<QVAdView> weak = rig.view;
        rig.window->sendTouch(1, TouchPhase::Began, rig.inImage(10, 20));
        rig.window->sendTouch(1, TouchPhase::Ended, rig.inImage(12, 25));
        EXPECT_EQ(rig.events, (Strings{"show", "clicked"}));
        EXPECT_EQ(rig.view->superview(), nullptr) << "off screen when the handler returns";
        rig.view.reset();
        EXPECT_FALSE(weak.expired()) << "the pending open step keeps the view alive";
        rig.settle();
        EXPECT_EQ(rig.opened, tried);
        EXPECT_EQ(log.linesStartingWith("Unable to open URL"), logged);
        EXPECT_TRUE(weak.expired()) << "released once the chain ended";
    }
}

TEST(AdViewClick, TouchDownIsRecordedAStrayReleaseOrAnUpOutsideIsNoClickAndCloseOpensNothing) {
    ClickRig rig("app://d");
    rig.view->keyUp(platform::KeyAction::Activate);  // a key held from before the ad
    rig.window->sendTouch(1, TouchPhase::Began, rig.inImage(10, 20));
    EXPECT_EQ(rig.view->touchDownPoint(), (Point{10, 20}));
    rig.window->sendTouch(1, TouchPhase::Ended, {1, 1});
    EXPECT_EQ(rig.events, (std::vector<std::string>{"show"}));
    const Point close = rig.view->closeButton()->frame().origin;
    rig.window->sendTouch(1, TouchPhase::Began, {close.x + 20, close.y + 20});
    rig.window->sendTouch(1, TouchPhase::Ended, {close.x + 20, close.y + 20});
    EXPECT_EQ(rig.events, (std::vector<std::string>{"show", "closed"}));
    EXPECT_EQ(rig.view->superview(), nullptr);
    rig.settle();
    EXPECT_TRUE(rig.opened.empty());
}

TEST(AdViewFit, ImageAndCloseButtonStayOnScreenForEveryShape) {
    const Size screens[] = {{375, 812}, {800, 600}, {812, 375}, {500, 500}, {100, 100}};
    const std::pair<std::int64_t, std::int64_t> creatives[] = {{728, 90}, {320, 50}, {300, 900}, {1, 1000}, {600, 500}};
    for (const Size screen : screens) {
        for (const auto& [iw, ih] : creatives) {
            SCOPED_TRACE(testing::Message() << iw << "x" << ih << " on " << screen.width << "x" << screen.height);
            Rig rig(screen, true);
            auto view = rig.show(bidWithImage(iw, ih));
            const Rect image = view->imageView()->frame();
            EXPECT_TRUE(inside(view->closeButton()->frame(), screen));
            EXPECT_TRUE(inside(image, screen));
            EXPECT_NEAR(image.size.width * double(ih), image.size.height * double(iw), 1e-6 * image.size.width * ih);
            EXPECT_TRUE(near(view->clickAdButton()->frame(), image));
        }
    }
}

TEST(FacadeViewPath, FitsOnRequestAndFailsClearlyWithoutAKeyWindow) {
    auto& app = platform::Context::shared().application();
    const auto previous = app.keyWindow();
    auto window = platform::Window::make();
    app.setMainScreen({375, 812}, 1);
    app.setKeyWindow(window);
    QuovAd ad;
    auto delegate = std::make_shared<test::RecordingDelegate>();
    ad.setDelegate(delegate);
    ad.setFitAdToScreen(true);
    QuovAdFlow::makeLoadCompletion(ad)({bidWithImage(300, 900)}, std::nullopt);
    ASSERT_EQ(window->subviews().size(), 1u);
    const auto view = std::dynamic_pointer_cast<QVAdView>(window->subviews()[0]);
    EXPECT_TRUE(inside(view->closeButton()->frame(), {375, 812})) << "a tall creative, fitted";

    app.setKeyWindow(nullptr);
    QuovAdFlow::makeLoadCompletion(ad)({bidWithImage(600, 500)}, std::nullopt);
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"loaded", "displayed", "loaded", "loadFailed"}));
    ASSERT_EQ(delegate->errors.size(), 1u);
    EXPECT_EQ(delegate->errors[0].code, QuovAdFlow::kNoKeyWindowCode);
    app.setKeyWindow(previous);
}

}  // namespace
}  // namespace quov
