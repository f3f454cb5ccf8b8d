#include "platform/Application.h"
#include "platform/linux_device.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace quov;
using namespace quov::platform;

struct OrientationCounter {
    Application& app;
    int posts = 0;
    explicit OrientationCounter(Application& a) : app(a) {
        app.defaultCenter().addObserver(
            this, [this](const Notification&) { ++posts; },
            std::string(UIDeviceOrientationDidChangeNotification));
    }
    ~OrientationCounter() { app.defaultCenter().removeObserver(this); }
};

TEST(Orientation, PostedWhenTheScreenFlipsBetweenPortraitAndLandscape) {
    struct Case {
        const char* name;
        Size from, to;
        int posts;
    };
    const Case cases[] = {
        {"portrait to landscape", {375, 812}, {812, 375}, 1},
        {"landscape to portrait", {812, 375}, {375, 812}, 1},
        {"taller portrait", {375, 812}, {400, 900}, 0},
        {"wider landscape", {800, 600}, {1920, 1080}, 0},
        {"portrait to square (square counts as landscape)", {375, 812}, {500, 500}, 1},
        {"landscape to square", {812, 375}, {500, 500}, 0},
        {"invalid size is ignored", {375, 812}, {0, 900}, 0},
    };
    for (const auto& c : cases) {
        MainLoop loop;
        Application app(loop);
        app.beginGeneratingDeviceOrientationNotifications();
        app.setMainScreen(c.from, 2);
        OrientationCounter counter(app);
        app.setMainScreen(c.to, 2);
        EXPECT_EQ(counter.posts, c.posts) << c.name;
    }
}

TEST(Orientation, OnlyWhileGeneratingAndOnTheHostsWord) {
    MainLoop loop;
    Application app(loop);
    OrientationCounter counter(app);
    app.setMainScreen({375, 812}, 1);
    app.deviceOrientationDidChange();
    EXPECT_EQ(counter.posts, 0) << "generation is off";

    app.beginGeneratingDeviceOrientationNotifications();
    app.beginGeneratingDeviceOrientationNotifications();
    app.endGeneratingDeviceOrientationNotifications();
    app.deviceOrientationDidChange();
    app.setMainScreen({812, 375}, 1);
    EXPECT_EQ(counter.posts, 2);

    app.defaultCenter().removeObserver(&counter);
    app.deviceOrientationDidChange();
    EXPECT_EQ(counter.posts, 2) << "removed observers hear nothing";
}

TEST(Orientation, TheKeyWindowFollowsTheScreen) {
    MainLoop loop;
    Application app(loop);
    app.setMainScreen({375, 812}, 3);
    EXPECT_EQ(app.mainScreen().currentMode(), (Size{1125, 2436}));
    auto window = Window::make();
    app.setKeyWindow(window);
    EXPECT_EQ(window->frame(), (Rect{{0, 0}, {375, 812}}));
    int changes = 0;
    app.setChangeObserver([&](const Application&) { ++changes; });
    app.setMainScreen({812, 375}, 3);
    app.setApplicationState(ApplicationState::Background);
    app.setApplicationState(ApplicationState::Background);
    EXPECT_EQ(window->frame(), (Rect{{0, 0}, {812, 375}}));
    EXPECT_EQ(changes, 2) << "one per real change";
}

TEST(DeviceFeed, TheDeviceLayerReadsTheToolkitOnceItKnowsSomething) {
    auto device = std::make_shared<LinuxDevicePlatform>();
    device->setMainScreen({{390, 844}, 3.0, std::nullopt});
    device->setApplicationState(ApplicationState::Inactive);
    MainLoop loop;
    Application app(loop);
    connectDevicePlatform(app, device);
    EXPECT_EQ(device->screenBounds(), (Size{390, 844})) << "the host's values hold at first";

    app.setMainScreen({812, 375}, 2);
    EXPECT_EQ(device->screenBounds(), (Size{812, 375}));
    EXPECT_EQ(device->screenScale(), 2.0);
    EXPECT_EQ(device->screenCurrentModeSize(), (Size{1624, 750}));
    EXPECT_EQ(device->applicationState(), static_cast<int>(ApplicationState::Active));
    app.setApplicationState(ApplicationState::Background);
    EXPECT_EQ(device->applicationState(), static_cast<int>(ApplicationState::Background));
    device->setScreenProvider({});
    device->setApplicationStateProvider({});
}

TEST(NotificationCenterTest, RemovalDuringAPostAndSenderFilters) {
    NotificationCenter center;
    std::vector<std::string> calls;
    int a = 0, b = 0, c = 0, sender = 0, otherSender = 0;
    center.addObserver(&a, [&](const Notification&) {
        calls.push_back("a");
        center.removeObserver(&b);  // b must not be called in this post
        center.addObserver(&c, [&](const Notification&) { calls.push_back("c"); }, "n");
    }, "n");
    center.addObserver(&b, [&](const Notification&) { calls.push_back("b"); }, "n");
    center.addObserver(&sender, [&](const Notification&) { calls.push_back("only-sender"); }, "n",
                       &sender);
    center.postNotificationName("n", &otherSender);
    EXPECT_EQ(calls, (std::vector<std::string>{"a"}));
    calls.clear();
    center.removeObserver(&a, "n");
    center.postNotificationName("n", &sender);
    EXPECT_EQ(calls, (std::vector<std::string>{"only-sender", "c"}));
}

TEST(OpenURL, AnswersExactlyOnceOnTheMainLoopAfterTheCallReturns) {
    struct Case {
        const char* name;
        URLOpener opener;  // empty: none installed
        bool expected;
    };
    const std::vector<Case> cases = {
        {"no opener installed", {}, false},
        {"opens synchronously", [](const auto&, URLOpenCompletion done) { done(true); }, true},
        {"answers twice", [](const auto&, URLOpenCompletion done) { done(false); done(true); }, false},
        {"throws", [](const auto&, URLOpenCompletion) -> void { throw std::runtime_error("x"); }, false},
        {"answers from another thread",
         [](const auto&, URLOpenCompletion done) { std::thread([done] { done(true); }).join(); }, true},
    };
    for (const auto& c : cases) {
        MainLoop loop;
        Application app(loop);
        app.setURLOpener(c.opener);
        std::vector<bool> answers;
        app.openURL("https://example.invalid/", [&](bool opened) { answers.push_back(opened); });
        EXPECT_TRUE(answers.empty()) << c.name << ": answered before openURL returned";
        loop.drain();
        loop.drain();
        EXPECT_EQ(answers, std::vector<bool>{c.expected}) << c.name;
    }
}

}  // namespace
