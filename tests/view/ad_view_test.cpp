#include "view/QVAdView.h"

#include "facade/QuovAdFlow.h"
#include "platform/Window.h"
#include "support/LogCapture.h"
#include "support/RecordingDelegate.h"

#include <gtest/gtest.h>

#include <set>

namespace quov {
namespace {

using platform::Application;
using platform::TouchPhase;
using platform::Window;

QVBidModelPtr bidWithImage(std::int64_t w, std::int64_t h, std::string url = "http://127.0.0.1:9/i.png") {
    auto bid = std::make_shared<QVBidModel>();
    QVBidImageModel image;
    image.setUrl(std::move(url));
    image.setWidth(w);
    image.setHeight(h);
    bid->setImages({image});
    return bid;
}

/// One application with a key window the size of its screen, and what the ad view
/// asked of its surroundings.
struct Rig {
    MainLoop loop;
    Application app{loop};
    std::shared_ptr<Window> window = Window::make();
    std::vector<std::optional<std::string>> imageLoads;
    double clock = 1000.0;

    explicit Rig(Size screen) {
        app.setMainScreen(screen, 3);
        app.setKeyWindow(window);
    }
    QVAdViewEnvironment environment() {
        QVAdViewEnvironment env;
        env.application = &app;
        env.loadImage = [this](std::weak_ptr<platform::ImageView>, const std::optional<std::string>& url) {
            imageLoads.push_back(url);
        };
        env.clock = [this] { return clock += 0.25; };
        return env;
    }
    /// An ad view in the window, pinned the way the facade pins it.
    std::shared_ptr<QVAdView> makeView() {
        auto view = QVAdView::initWithFrame({{0, 0}, app.mainScreen().bounds().size}, environment());
        window->addSubview(view);
        view->setTranslatesAutoresizingMaskIntoConstraints(false);
        view->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor())->setActive(true);
        view->trailingAnchor().constraintEqualToAnchor(window->trailingAnchor())->setActive(true);
        view->widthAnchor().constraintEqualToAnchor(window->widthAnchor())->setActive(true);
        view->heightAnchor().constraintEqualToAnchor(window->heightAnchor())->setActive(true);
        return view;
    }
    void settle() { loop.runUntil([this] { return loop.pending() == 0; }, std::chrono::seconds(5)); }
};

/// Constraints anywhere in the tree that relate one of the ad view's four subviews.
std::size_t subviewConstraints(const QVAdView& view) {
    std::set<const platform::View*> parts = {view.maskView().get(), view.imageView().get(),
                                             view.closeButton().get(), view.clickAdButton().get()};
    std::size_t n = 0;
    std::vector<const platform::View*> stack;
    const platform::View* root = &view;
    while (root->superview()) root = root->superview().get();
    stack.push_back(root);
    while (!stack.empty()) {
        const platform::View* v = stack.back();
        stack.pop_back();
        for (const auto& c : v->constraints())
            if (parts.count(c->firstItem().get()) || parts.count(c->secondItem().get())) ++n;
        for (const auto& s : v->subviews()) stack.push_back(s.get());
    }
    return n;
}

TEST(AdViewLayout, FiguresForPortraitLandscapeSquareAndTallImages) {
    struct Case {
        const char* name;
        Size screen;
        std::int64_t iw, ih;
        Rect image;
        Point closeOrigin;
    };
    const Case cases[] = {
        {"portrait", {375, 812}, 600, 500, {{28.125, 273.1875}, {318.75, 265.625}}, {309.875, 223.1875}},
        {"landscape", {812, 375}, 600, 500, {{214.75, 28.125}, {382.5, 318.75}}, {607.25, 25.125}},
        {"square: width rule, button beside", {500, 500}, 600, 500,
         {{37.5, 250 - 425.0 * 500 / 600 / 2}, {425, 425.0 * 500 / 600}},
         {37.5 + 425 + 10, 250 - 425.0 * 500 / 600 / 2 - 3}},
        {"tall image is not clamped", {375, 812}, 300, 900, {{28.125, 406 - 478.125}, {318.75, 956.25}},
         {28.125 + 318.75 + 3 - 40, 406 - 478.125 - 10 - 40}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Rig rig(c.screen);
        auto view = rig.makeView();
        view->showBid(bidWithImage(c.iw, c.ih), [](auto&) {}, [](auto&) {}, [](auto&) {});
        const Rect image = view->imageView()->frame();
        EXPECT_DOUBLE_EQ(image.origin.x, c.image.origin.x);
        EXPECT_DOUBLE_EQ(image.origin.y, c.image.origin.y);
        EXPECT_DOUBLE_EQ(image.size.width, c.image.size.width);
        EXPECT_DOUBLE_EQ(image.size.height, c.image.size.height);
        const Rect close = view->closeButton()->frame();
        EXPECT_DOUBLE_EQ(close.origin.x, c.closeOrigin.x);
        EXPECT_DOUBLE_EQ(close.origin.y, c.closeOrigin.y);
        EXPECT_DOUBLE_EQ(close.size.width, 40);
        EXPECT_DOUBLE_EQ(close.size.height, 40);
        const Rect click = view->clickAdButton()->frame();  // exactly over the image
        EXPECT_DOUBLE_EQ(click.origin.x, image.origin.x);
        EXPECT_DOUBLE_EQ(click.origin.y, image.origin.y);
        EXPECT_DOUBLE_EQ(click.size.width, image.size.width);
        EXPECT_DOUBLE_EQ(click.size.height, image.size.height);
        EXPECT_EQ(view->maskView()->frame(), (Rect{{0, 0}, c.screen}));
        EXPECT_EQ(view->frame(), (Rect{{0, 0}, c.screen}));
    }
}

TEST(AdViewLayout, BoxSizeRuleAndItsFallbacksForUnusableImages) {
    QVBidImageModel good, zeroW, zeroH, negative;
    good.setWidth(600), good.setHeight(500);
    zeroW.setWidth(0), zeroW.setHeight(500);
    zeroH.setWidth(600), zeroH.setHeight(0);
    negative.setWidth(-600), negative.setHeight(500);
    struct Case {
        Size screen;
        const QVBidImageModel* image;
        Size box;
    };
    const Case cases[] = {
        {{375, 812}, &good, {318.75, 265.625}},  {{812, 375}, &good, {382.5, 318.75}},
        {{375, 812}, &zeroW, {318.75, 318.75}},  {{812, 375}, &zeroH, {318.75, 318.75}},
        {{375, 812}, &zeroH, {318.75, 318.75}},  {{375, 812}, &negative, {318.75, 318.75}},
        {{375, 812}, nullptr, {318.75, 318.75}}, {{500, 500}, nullptr, {425, 425}},
    };
    for (const auto& c : cases) {
        const Size box = QVAdViewImageBoxSize(c.screen, c.image);
        EXPECT_DOUBLE_EQ(box.width, c.box.width);
        EXPECT_DOUBLE_EQ(box.height, c.box.height);
    }
}

TEST(AdViewLayout, FourteenConstraintsBeforeABidSixteenAfterNeverDuplicated) {
    Rig rig({375, 812});
    auto view = rig.makeView();
    EXPECT_EQ(subviewConstraints(*view), 14u);
    view->setupUIConstraints();
    view->setupUIConstraints();
    EXPECT_EQ(subviewConstraints(*view), 14u);

    view->showBid(bidWithImage(600, 500), [](auto&) {}, [](auto&) {}, [](auto&) {});
    EXPECT_EQ(subviewConstraints(*view), 16u);
    for (int i = 0; i < 3; ++i) view->setupUIConstraints();
    rig.app.setMainScreen({812, 375}, 3);  // flips: the notification rebuilds
    rig.app.deviceOrientationDidChange();
    EXPECT_EQ(subviewConstraints(*view), 16u);
    EXPECT_DOUBLE_EQ(view->imageView()->frame().size.width, 382.5) << "rebuilt for landscape";
    EXPECT_DOUBLE_EQ(view->closeButton()->frame().origin.x, 607.25);
    EXPECT_EQ(view->imageViewHeight(), nullptr);
    EXPECT_EQ(view->imageViewWidth(), nullptr);

    // Off screen it keeps observing, and a rebuild without a superview still works.
    view->removeFromSuperview();
    rig.app.setMainScreen({375, 812}, 3);
    EXPECT_EQ(subviewConstraints(*view), 16u);
    EXPECT_DOUBLE_EQ(view->imageView()->frame().size.width, 318.75);
}

TEST(AdViewLayout, RemovalWalksToTheRootAndClearsTheViewsOwn) {
    Rig rig({375, 812});
    auto view = rig.makeView();
    auto extra = platform::View::make();
    rig.window->addSubview(extra);
    // Relates the image view from the window: found by the walk past the ad view.
    extra->leadingAnchor().constraintEqualToAnchor(view->imageView()->leadingAnchor())->setActive(true);
    view->imageView()->widthAnchor().constraintEqualToConstant(7)->setActive(true);
    const auto unrelated = extra->widthAnchor().constraintEqualToConstant(3);
    unrelated->setActive(true);
    view->removeAllConstraintsFromView(view->imageView());
    EXPECT_TRUE(view->imageView()->constraints().empty());
    for (const auto& c : rig.window->constraints()) EXPECT_NE(c->secondItem(), view->imageView());
    EXPECT_TRUE(unrelated->isActive());

    auto loose = platform::View::make();
    loose->widthAnchor().constraintEqualToConstant(1)->setActive(true);
    view->removeAllConstraintsFromView(loose);
    EXPECT_TRUE(loose->constraints().empty());
}

TEST(AdViewShow, ImageThenImpressionThenOnAdShowThenLayout) {
    Rig rig({375, 812});
    auto view = rig.makeView();
    test::LogCapture log;
    auto bid = bidWithImage(600, 500, "not a url at all");
    bid->setCheckViews(std::vector<std::string>{"http://127.0.0.1:9/view"});
    std::vector<std::string> seenAtShow;
    std::size_t constraintsAtShow = 0;
    QVBidModelPtr shownBid;
    view->showBid(
        bid,
        [&](const QVBidModelPtr& b) {
            seenAtShow = log.lines();
            constraintsAtShow = subviewConstraints(*view);
            shownBid = b;
        },
        [](auto&) {}, [](auto&) {});
    ASSERT_EQ(rig.imageLoads.size(), 1u);
    EXPECT_EQ(rig.imageLoads[0], std::optional<std::string>("not a url at all"));
    ASSERT_FALSE(seenAtShow.empty()) << "the impression is reported before onAdShow";
    EXPECT_EQ(seenAtShow[0], "GET URL WITH retry, 3, http://127.0.0.1:9/view");
    EXPECT_EQ(constraintsAtShow, 14u) << "layout comes after onAdShow";
    EXPECT_EQ(shownBid, bid);
    EXPECT_EQ(view->bid(), bid);
    EXPECT_EQ(subviewConstraints(*view), 16u);
    QuovAd::shared().flush(std::chrono::seconds(10));
}

TEST(AdViewShow, ABidWithoutImagesShowsAnEmptySquareBox) {
    Rig rig({375, 812});
    auto view = rig.makeView();
    int shows = 0;
    view->showBid(std::make_shared<QVBidModel>(), [&](auto&) { ++shows; }, [](auto&) {}, [](auto&) {});
    EXPECT_EQ(shows, 1);
    ASSERT_EQ(rig.imageLoads.size(), 1u);
    EXPECT_FALSE(rig.imageLoads[0].has_value());
    EXPECT_EQ(view->imageView()->frame().size, (Size{318.75, 318.75}));
    EXPECT_EQ(subviewConstraints(*view), 16u);
}

/// A shown ad with a scripted opener and a record of every callback.
struct ClickRig : Rig {
    std::shared_ptr<QVAdView> view;
    std::vector<std::string> events;
    std::vector<std::optional<std::string>> opened;
    std::set<std::string> openable;

    explicit ClickRig(QVBidModelPtr bid) : Rig({375, 812}) {
        app.setURLOpener([this](const std::optional<std::string>& url, platform::URLOpenCompletion done) {
            opened.push_back(url);
            done(url && openable.count(*url));
        });
        view = makeView();
        view->showBid(
            std::move(bid), [this](auto&) { events.push_back("show"); },
            [this](auto&) { events.push_back("clicked"); }, [this](auto&) { events.push_back("closed"); });
    }
    Point imageOrigin() const { return view->imageView()->frame().origin; }
    void tap(std::uint64_t id, Point down, Point up) {
        window->sendTouch(id, TouchPhase::Began, down);
        window->sendTouch(id, TouchPhase::Ended, up);
    }
};

QVBidModelPtr linkedBid(std::optional<std::string> deep, std::optional<std::string> ios,
                        std::optional<std::string> click) {
    auto bid = bidWithImage(600, 500);
    bid->setDeepLinkURL(std::move(deep));
    bid->setIOSURL(std::move(ios));
    bid->setClickURL(std::move(click));
    return bid;
}

TEST(AdViewClick, OpenChainTriesEachLinkOnlyAfterThePreviousFailed) {
    using Opt = std::optional<std::string>;
    struct Case {
        const char* name;
        Opt deep, ios, click;
        std::set<std::string> openable;
        std::vector<Opt> tried;
        std::vector<std::string> logged;
    };
    const std::vector<Case> cases = {
        {"deep link opens", "app://d", "https://i", "https://c", {"app://d"}, {"app://d"}, {}},
        {"deep link absent, platform page opens", std::nullopt, "https://i", "https://c", {"https://i"},
         {std::nullopt, "https://i"}, {}},
        {"only the click URL opens", "app://d", "https://i", "https://c", {"https://c"},
         {"app://d", "https://i", "https://c"}, {}},
        {"nothing opens", "app://d", "https://i", "https://c", {},
         {"app://d", "https://i", "https://c"}, {"Unable to open URL: https://c"}},
        {"all absent", std::nullopt, std::nullopt, std::nullopt, {},
         {std::nullopt, std::nullopt, std::nullopt}, {"Unable to open URL: (null)"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        test::LogCapture log;
        ClickRig rig(linkedBid(c.deep, c.ios, c.click));
        rig.openable = c.openable;
        std::weak_ptr<QVAdView> weak = rig.view;
        const Point o = rig.imageOrigin();
        rig.tap(1, {o.x + 10, o.y + 20}, {o.x + 12, o.y + 25});
        EXPECT_EQ(rig.events, (std::vector<std::string>{"show", "clicked"}));
        EXPECT_EQ(rig.view->superview(), nullptr) << "off screen when the handler returns";
        rig.view.reset();
        EXPECT_FALSE(weak.expired()) << "the pending open step keeps the view alive";
        rig.settle();
        EXPECT_EQ(rig.opened, c.tried);
        EXPECT_EQ(log.linesStartingWith("Unable to open URL"), c.logged);
        EXPECT_TRUE(weak.expired()) << "released once the chain ended";
    }
}

TEST(AdViewClick, TouchDownIsRecordedInTheClickAreasSpace) {
    ClickRig rig(linkedBid(std::nullopt, std::nullopt, std::nullopt));
    EXPECT_EQ(rig.view->touchDownPoint(), (Point{0, 0}));
    EXPECT_EQ(rig.view->touchDownDate(), 0);
    const Point o = rig.imageOrigin();
    rig.window->sendTouch(1, TouchPhase::Began, {o.x + 10, o.y + 20});
    EXPECT_EQ(rig.view->touchDownPoint(), (Point{10, 20}));
    EXPECT_DOUBLE_EQ(rig.view->touchDownDate(), 1000.25);
    EXPECT_TRUE(rig.events.size() == 1) << "nothing happens on touch-down";

    // Lifted outside: no click; the record waits to be overwritten.
    rig.window->sendTouch(1, TouchPhase::Ended, {1, 1});
    EXPECT_EQ(rig.events, (std::vector<std::string>{"show"}));
    EXPECT_NE(rig.view->superview(), nullptr);
    rig.window->sendTouch(2, TouchPhase::Began, {o.x + 30, o.y + 40});
    EXPECT_EQ(rig.view->touchDownPoint(), (Point{30, 40}));
}

TEST(AdViewClick, ClickWithoutTouchDownAndCloseWithoutClick) {
    {
        ClickRig rig(linkedBid(std::nullopt, std::nullopt, std::nullopt));
        platform::TouchEvent noTouches({});
        rig.view->onAdButtonTouchUpInside(*rig.view->clickAdButton(), noTouches);
        EXPECT_EQ(rig.events, (std::vector<std::string>{"show", "clicked"}));
        EXPECT_EQ(rig.view->touchDownPoint(), (Point{0, 0}));
        EXPECT_EQ(rig.view->touchDownDate(), 0);
        rig.settle();
    }
    {
        ClickRig rig(linkedBid("app://d", std::nullopt, std::nullopt));
        const Rect close = rig.view->closeButton()->frame();
        rig.tap(1, {close.origin.x + 20, close.origin.y + 20}, {close.origin.x + 20, close.origin.y + 20});
        EXPECT_EQ(rig.events, (std::vector<std::string>{"show", "closed"}));
        EXPECT_EQ(rig.view->superview(), nullptr);
        rig.settle();
        EXPECT_TRUE(rig.opened.empty()) << "a close opens nothing";
    }
}

TEST(FacadeViewPath, NoKeyWindowFailsTheLoadWithAClearError) {
    auto& app = Application::shared();
    auto previous = app.keyWindow();
    app.setKeyWindow(nullptr);
    QuovAd ad;
    auto delegate = std::make_shared<test::RecordingDelegate>();
    ad.setDelegate(delegate);
    QuovAdFlow::makeLoadCompletion(ad)({bidWithImage(600, 500)}, std::nullopt);
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"loaded", "loadFailed"}));
    ASSERT_EQ(delegate->errors.size(), 1u);
    EXPECT_EQ(delegate->errors[0].domain, "QAPP");
    EXPECT_EQ(delegate->errors[0].code, QuovAdFlow::kNoKeyWindowCode);
    EXPECT_TRUE(delegate->errors[0].description.has_value());
    app.setKeyWindow(previous);
}

TEST(FacadeViewPath, TwoLoadsStackTwoPinnedViewsOnTheKeyWindow) {
    auto& app = Application::shared();
    auto previous = app.keyWindow();
    app.setMainScreen({375, 812}, 3);
    auto window = Window::make();
    app.setKeyWindow(window);
    QuovAd ad;
    auto delegate = std::make_shared<test::RecordingDelegate>();
    ad.setDelegate(delegate);
    QuovAdFlow::makeLoadCompletion(ad)({bidWithImage(600, 500)}, std::nullopt);
    QuovAdFlow::makeLoadCompletion(ad)({bidWithImage(300, 900)}, std::nullopt);
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"loaded", "displayed", "loaded", "displayed"}));
    ASSERT_EQ(window->subviews().size(), 2u);
    for (const auto& v : window->subviews()) {
        auto adView = std::dynamic_pointer_cast<QVAdView>(v);
        ASSERT_NE(adView, nullptr);
        EXPECT_EQ(adView->frame(), (Rect{{0, 0}, {375, 812}}));
        EXPECT_FALSE(adView->translatesAutoresizingMaskIntoConstraints());
    }
    std::size_t pins = 0;
    for (const auto& c : window->constraints())
        if (std::dynamic_pointer_cast<QVAdView>(c->firstItem())) ++pins;
    EXPECT_EQ(pins, 8u) << "leading, trailing, width and height for each view; nothing vertical";
    app.setKeyWindow(previous);
}

}  // namespace
}  // namespace quov
