#include "view/QVAdView.h"
#include "platform/Context.h"

#include "facade/QuovAdFlow.h"
#include "platform/media/ResourceBundle.h"
#include "platform/toolkit/Window.h"
#include "support/LogCapture.h"
#include "support/RecordingDelegate.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include <unistd.h>

namespace quov {
namespace {

using platform::Application;
using platform::TouchPhase;
using platform::Window;
using Opt = std::optional<std::string>;

QVBidModelPtr bidWithImage(std::int64_t w, std::int64_t h, std::string url = "http://127.0.0.1:9/i.png") {
    auto bid = std::make_shared<QVBidModel>();
    QVBidImageModel image;
    image.setUrl(std::move(url));
    image.setWidth(w);
    image.setHeight(h);
    bid->setImages({image});
    return bid;
}

void expectRect(Rect got, Rect want, const char* what) {
    EXPECT_DOUBLE_EQ(got.origin.x, want.origin.x) << what;
    EXPECT_DOUBLE_EQ(got.origin.y, want.origin.y) << what;
    EXPECT_DOUBLE_EQ(got.size.width, want.size.width) << what;
    EXPECT_DOUBLE_EQ(got.size.height, want.size.height) << what;
}

/// One application with a key window the size of its screen, and what the ad view asked of its surroundings.
struct Rig {
    MainLoop loop;
    Application app{loop};
    std::shared_ptr<Window> window = Window::make();
    std::vector<Opt> imageLoads;
    double clock = 1000.0;

    explicit Rig(Size screen) {
        app.setMainScreen(screen, 3);
        app.setKeyWindow(window);
    }
    /// An ad view in the window, pinned the way the facade pins it.
    std::shared_ptr<QVAdView> makeView() {
        QVAdViewEnvironment env;
        env.application = &app;
        env.loadImage = [this](std::weak_ptr<platform::ImageView>, const Opt& url) { imageLoads.push_back(url); };
        env.clock = [this] { return clock += 0.25; };
        auto view = QVAdView::initWithFrame({{0, 0}, app.mainScreen().bounds().size}, env);
        window->addSubview(view);
        view->setTranslatesAutoresizingMaskIntoConstraints(false);
        platform::LayoutConstraint::activateConstraints({
            view->leadingAnchor().constraintEqualToAnchor(window->leadingAnchor()),
            view->trailingAnchor().constraintEqualToAnchor(window->trailingAnchor()),
            view->widthAnchor().constraintEqualToAnchor(window->widthAnchor()),
            view->heightAnchor().constraintEqualToAnchor(window->heightAnchor()),
        });
        return view;
    }
    void settle() { loop.runUntil([this] { return loop.pending() == 0; }, std::chrono::seconds(5)); }
};

void showQuietly(QVAdView& view, QVBidModelPtr bid) {
    view.showBid(std::move(bid), [](auto&) {}, [](auto&) {}, [](auto&) {});
}

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

TEST(AdViewLayout, FiguresForPortraitLandscapeSquareAndTallImages) {
    const double squareH = 425.0 * 500 / 600, squareY = 250 - squareH / 2;
    const std::tuple<const char*, Size, std::int64_t, std::int64_t, Rect, Point> cases[] = {
        {"portrait", {375, 812}, 600, 500, {{28.125, 273.1875}, {318.75, 265.625}}, {309.875, 223.1875}},
        {"landscape", {812, 375}, 600, 500, {{214.75, 28.125}, {382.5, 318.75}}, {607.25, 25.125}},
        {"square: width rule, button beside", {500, 500}, 600, 500, {{37.5, squareY}, {425, squareH}},
         {37.5 + 425 + 10, squareY - 3}},
        {"tall image is not clamped", {375, 812}, 300, 900, {{28.125, 406 - 478.125}, {318.75, 956.25}},
         {28.125 + 318.75 + 3 - 40, 406 - 478.125 - 10 - 40}},
    };
    for (const auto& [name, screen, iw, ih, image, close] : cases) {
        SCOPED_TRACE(name);
        Rig rig(screen);
        auto view = rig.makeView();
        showQuietly(*view, bidWithImage(iw, ih));
        expectRect(view->imageView()->frame(), image, "image");
        expectRect(view->clickAdButton()->frame(), image, "click area: exactly over the image");
        expectRect(view->closeButton()->frame(), {close, {40, 40}}, "close button");
        EXPECT_EQ(view->maskView()->frame(), (Rect{{0, 0}, screen}));
        EXPECT_EQ(view->frame(), (Rect{{0, 0}, screen}));
    }
}

TEST(AdViewLayout, EveryResizeLaysTheViewOutAgain) {
    // No flip between portrait and landscape in any of these.
    const std::tuple<const char*, Size, Size, Rect, Point> cases[] = {
        {"1280x720 to 800x450", {1280, 720}, {800, 450}, {{170.5, 33.75}, {459, 382.5}}, {639.5, 30.75}},
        {"portrait grows", {375, 812}, {390, 844}, {{29.25, 283.875}, {331.5, 276.25}}, {323.75, 233.875}},
    };
    for (const auto& [name, from, to, image, close] : cases) {
        SCOPED_TRACE(name);
        Rig rig(from);
        auto view = rig.makeView();
        showQuietly(*view, bidWithImage(600, 500));
        rig.app.setMainScreen(to, 3);
        rig.window->layoutIfNeeded();
        expectRect(view->imageView()->frame(), image, "image");
        expectRect(view->clickAdButton()->frame(), image, "click area");
        expectRect(view->closeButton()->frame(), {close, {40, 40}}, "close button, inside the window");
        EXPECT_EQ(view->frame(), (Rect{{0, 0}, to}));
        EXPECT_EQ(subviewConstraints(*view), 16u);
    }
}

TEST(AdViewLayout, UnusableImagesGetASquareBox) {
    QVBidImageModel zeroW, zeroH, negative;
    zeroW.setWidth(0), zeroW.setHeight(500);
    zeroH.setWidth(600), zeroH.setHeight(0);
    negative.setWidth(-600), negative.setHeight(500);
    const std::tuple<Size, const QVBidImageModel*, double> cases[] = {
        {{375, 812}, &zeroW, 318.75}, {{812, 375}, &zeroH, 318.75},   {{375, 812}, &negative, 318.75},
        {{375, 812}, nullptr, 318.75}, {{500, 500}, nullptr, 425},
    };
    for (const auto& [screen, image, side] : cases) EXPECT_EQ(QVAdViewImageBoxSize(screen, image), (Size{side, side}));

    Rig rig({375, 812});  // a bid without images shows that box with nothing in it
    auto view = rig.makeView();
    int shows = 0;
    view->showBid(std::make_shared<QVBidModel>(), [&](auto&) { ++shows; }, [](auto&) {}, [](auto&) {});
    EXPECT_EQ(shows, 1);
    EXPECT_EQ(rig.imageLoads, std::vector<Opt>{std::nullopt});
    EXPECT_EQ(view->imageView()->frame().size, (Size{318.75, 318.75}));
}

TEST(AdViewLayout, FourteenConstraintsBeforeABidSixteenAfterNeverDuplicated) {
    Rig rig({375, 812});
    auto view = rig.makeView();
    EXPECT_EQ(subviewConstraints(*view), 14u);
    view->setupUIConstraints();
    view->setupUIConstraints();
    EXPECT_EQ(subviewConstraints(*view), 14u);

    showQuietly(*view, bidWithImage(600, 500));
    EXPECT_EQ(subviewConstraints(*view), 16u);
    for (int i = 0; i < 3; ++i) view->setupUIConstraints();
    rig.app.setMainScreen({812, 375}, 3);  // flips: the notification rebuilds
    rig.app.deviceOrientationDidChange();
    EXPECT_EQ(subviewConstraints(*view), 16u);
    EXPECT_DOUBLE_EQ(view->imageView()->frame().size.width, 382.5) << "rebuilt for landscape";
    EXPECT_EQ(view->imageViewHeight(), nullptr);
    EXPECT_EQ(view->imageViewWidth(), nullptr);

    // Off screen it keeps observing, and a rebuild without a superview still works.
    view->removeFromSuperview();
    rig.app.setMainScreen({375, 812}, 3);
    EXPECT_EQ(subviewConstraints(*view), 16u);
    EXPECT_DOUBLE_EQ(view->imageView()->frame().size.width, 318.75);
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
    const auto onShow = [&](const QVBidModelPtr& b) {
        seenAtShow = log.lines();
        constraintsAtShow = subviewConstraints(*view);
        shownBid = b;
    };
    view->showBid(bid, onShow, [](auto&) {}, [](auto&) {});
    EXPECT_EQ(rig.imageLoads, std::vector<Opt>{"not a url at all"});
    EXPECT_EQ(seenAtShow, std::vector<std::string>{"GET URL WITH retry, 3, http://127.0.0.1:9/view"})
        << "the impression is reported before onAdShow, even for an image that cannot load";
    EXPECT_EQ(constraintsAtShow, 14u) << "layout comes after onAdShow";
    EXPECT_EQ(shownBid, bid);
    EXPECT_EQ(view->bid(), bid);
    EXPECT_EQ(subviewConstraints(*view), 16u);
    QuovAd::shared().flush(std::chrono::seconds(10));
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
        view->showBid(
            bid, [this](auto&) { events.push_back("show"); }, [this](auto&) { events.push_back("clicked"); },
            [this](auto&) { events.push_back("closed"); });
    }
    /// A point in the image's own space, in the window's.
    Point inImage(double x, double y) const {
        const Point o = view->imageView()->frame().origin;
        return {o.x + x, o.y + y};
    }
};

TEST(AdViewClick, OpenChainTriesEachLinkOnlyAfterThePreviousFailed) {
    struct Case {
        const char* name;
        Opt deep, ios, click;
        std::set<std::string> openable;
        std::vector<Opt> tried;
        std::vector<std::string> logged;
    };
    const Case cases[] = {
        {"deep link opens", "app://d", "https://i", "https://c", {"app://d"}, {"app://d"}, {}},
        {"deep link absent, platform page opens", std::nullopt, "https://i", "https://c", {"https://i"},
         {std::nullopt, "https://i"}, {}},
        {"only the click URL opens", "app://d", "https://i", "https://c", {"https://c"},
         {"app://d", "https://i", "https://c"}, {}},
        {"nothing opens", "app://d", "https://i", "https://c", {}, {"app://d", "https://i", "https://c"},
         {"Unable to open URL: https://c"}},
        {"all absent", std::nullopt, std::nullopt, std::nullopt, {}, {std::nullopt, std::nullopt, std::nullopt},
         {"Unable to open URL: (null)"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        test::LogCapture log;
        ClickRig rig(c.deep, c.ios, c.click);
        rig.openable = c.openable;
        std::weak_ptr<QVAdView> weak = rig.view;
        rig.window->sendTouch(1, TouchPhase::Began, rig.inImage(10, 20));
        rig.window->sendTouch(1, TouchPhase::Ended, rig.inImage(12, 25));
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

TEST(AdViewClick, TouchDownIsRecordedInTheClickAreasSpaceAndAnUpOutsideIsNoClick) {
    ClickRig rig;
    EXPECT_EQ(rig.view->touchDownPoint(), (Point{0, 0}));
    rig.window->sendTouch(1, TouchPhase::Began, rig.inImage(10, 20));
    EXPECT_EQ(rig.view->touchDownPoint(), (Point{10, 20}));
    EXPECT_DOUBLE_EQ(rig.view->touchDownDate(), 1000.25);
    rig.window->sendTouch(1, TouchPhase::Ended, {1, 1});
    EXPECT_EQ(rig.events, (std::vector<std::string>{"show"}));
    EXPECT_NE(rig.view->superview(), nullptr);
    rig.window->sendTouch(2, TouchPhase::Began, rig.inImage(30, 40));
    EXPECT_EQ(rig.view->touchDownPoint(), (Point{30, 40})) << "the next touch-down overwrites the record";
}

TEST(AdViewClick, ClickWithoutTouchDownAndCloseWithoutClick) {
    ClickRig clicked;
    clicked.view->onAdButtonTouchUpInside(*clicked.view->clickAdButton(), platform::TouchEvent({}));
    EXPECT_EQ(clicked.events, (std::vector<std::string>{"show", "clicked"}));
    EXPECT_EQ(clicked.view->touchDownDate(), 0);
    clicked.settle();

    ClickRig closed("app://d");
    const Point o = closed.view->closeButton()->frame().origin, mid = {o.x + 20, o.y + 20};
    closed.window->sendTouch(1, TouchPhase::Began, mid);
    closed.window->sendTouch(1, TouchPhase::Ended, mid);
    EXPECT_EQ(closed.events, (std::vector<std::string>{"show", "closed"}));
    EXPECT_EQ(closed.view->superview(), nullptr);
    closed.settle();
    EXPECT_TRUE(closed.opened.empty()) << "a close opens nothing";
}

TEST(AdViewCloseIcon, OnlyBesideTheLibraryAndTheButtonWorksWithoutIt) {
    namespace fs = std::filesystem;
    const fs::path scratch = fs::temp_directory_path() / ("quov-icon-" + std::to_string(::getpid()));
    fs::create_directories(scratch / "empty");
    fs::create_directories(scratch / "refused" / "quovsdk_images.bundle");
    // A GIF under the icon's name: the ad images' decoder refuses that format.
    std::ofstream(scratch / "refused" / "quovsdk_images.bundle" / "SF_x_circle_fill.png", std::ios::binary)
        << std::string("GIF89a\x01\x00\x01\x00\x80\x00\x00\x00\x00\x00\xff\xff\xff,\x00\x00\x00\x00"
                       "\x01\x00\x01\x00\x00\x02\x02D\x01\x00;", 35);
    const std::tuple<const char*, std::optional<fs::path>, bool, const char*> cases[] = {
        {"beside the test program", std::nullopt, true, nullptr},
        {"no bundle", scratch / "empty", false, "quovsdk_images.bundle is missing"},
        {"refused icon", scratch / "refused", false, "SF_x_circle_fill is missing or unreadable"},
    };
    for (const auto& [name, directory, hasIcon, logged] : cases) {
        SCOPED_TRACE(name);
        platform::Bundle::setLibraryDirectory(directory);
        test::LogCapture log;
        Rig rig({375, 812});
        auto view = rig.makeView();
        int closes = 0;
        view->showBid(bidWithImage(600, 500), [](auto&) {}, [](auto&) {}, [&](auto&) { ++closes; });
        EXPECT_EQ(view->closeButton()->imageForState(platform::ControlState::Normal) != nullptr, hasIcon);
        const auto lines = log.lines();
        if (logged) {
            ASSERT_EQ(lines.size(), 1u);
            EXPECT_NE(lines[0].find(logged), std::string::npos) << lines[0];
        } else {
            EXPECT_TRUE(lines.empty());
        }
        expectRect(view->closeButton()->frame(), {{309.875, 223.1875}, {40, 40}}, "the button keeps its place");
        const Point mid = {309.875 + 20, 223.1875 + 20};
        rig.window->sendTouch(1, TouchPhase::Began, mid);
        rig.window->sendTouch(1, TouchPhase::Ended, mid);
        EXPECT_EQ(closes, 1) << "and its action";
        rig.settle();
    }
    platform::Bundle::setLibraryDirectory(std::nullopt);
    fs::remove_all(scratch);
}

TEST(FacadeViewPath, PinsEachViewToTheKeyWindowAndFailsClearlyWithoutOne) {
    auto& app = platform::Context::shared().application();
    auto previous = app.keyWindow();
    app.setMainScreen({375, 812}, 3);
    auto window = Window::make();
    app.setKeyWindow(window);
    QuovAd ad;
    auto delegate = std::make_shared<test::RecordingDelegate>();
    ad.setDelegate(delegate);
    QuovAdFlow::makeLoadCompletion(ad)({bidWithImage(600, 500)}, std::nullopt);
    QuovAdFlow::makeLoadCompletion(ad)({bidWithImage(300, 900)}, std::nullopt);
    ASSERT_EQ(window->subviews().size(), 2u);
    for (const auto& v : window->subviews()) {
        auto adView = std::dynamic_pointer_cast<QVAdView>(v);
        ASSERT_NE(adView, nullptr);
        EXPECT_EQ(adView->frame(), (Rect{{0, 0}, {375, 812}}));
    }
    std::size_t pins = 0;
    for (const auto& c : window->constraints()) pins += std::dynamic_pointer_cast<QVAdView>(c->firstItem()) != nullptr;
    EXPECT_EQ(pins, 8u) << "leading, trailing, width and height for each view; nothing vertical";

    app.setKeyWindow(nullptr);
    QuovAdFlow::makeLoadCompletion(ad)({bidWithImage(600, 500)}, std::nullopt);
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"loaded", "displayed", "loaded", "displayed", "loaded",
                                                         "loadFailed"}));
    ASSERT_EQ(delegate->errors.size(), 1u);
    EXPECT_EQ(delegate->errors[0].domain, "QAPP");
    EXPECT_EQ(delegate->errors[0].code, QuovAdFlow::kNoKeyWindowCode);
    EXPECT_TRUE(delegate->errors[0].description.has_value());
    app.setKeyWindow(previous);
}

}  // namespace
}  // namespace quov
