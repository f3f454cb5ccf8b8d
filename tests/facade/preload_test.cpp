// Preload, then show: the facade holds a bid back until its image is in, and the
// host decides when the view appears.
#include <quov/MainLoop.h>
#include <quov/QuovAd.h>

#include "platform/Context.h"
#include "facade/QuovAdFlow.h"
#include "platform/toolkit/Application.h"
#include "platform/toolkit/Window.h"
#include "support/NetworkScope.h"
#include "support/RecordingDelegate.h"
#include "support/TestImages.h"
#include "support/TestServer.h"
#include "tools/bid_server/BidServer.h"
#include "view/QVAdView.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <algorithm>

namespace quov {
namespace {

using test::RecordingDelegate;

/// The shared application with a fresh key window, put back as it was afterwards.
class Preload : public ::testing::Test {
protected:
    void SetUp() override {
        previousWindow_ = app().keyWindow();
        app().setKeyWindow(window);
        delegate = std::make_shared<RecordingDelegate>();
        ad.setDelegate(delegate);
        ad.setPreloadBeforeShow(true);
    }
    void TearDown() override {
        ad.flush(std::chrono::seconds(20));
        app().setKeyWindow(previousWindow_);
    }
    static platform::Application& app() { return platform::Context::shared().application(); }

    QVBidModelPtr bidWithImage(const std::string& url) {
        auto bid = std::make_shared<QVBidModel>();
        QVBidImageModel image;
        image.setUrl(url);
        image.setWidth(4);
        image.setHeight(2);
        bid->setImages({image});
        return bid;
    }
    bool runUntilLoaded(std::size_t count) {
        return MainLoop::shared().runUntil(
            [&] { return std::count(delegate->calls.begin(), delegate->calls.end(), "loaded") >= long(count); },
            std::chrono::seconds(20));
    }
    std::shared_ptr<QVAdView> shownView() const {
        if (window->subviews().size() != 1) return nullptr;
        return std::dynamic_pointer_cast<QVAdView>(window->subviews()[0]);
    }

    std::shared_ptr<platform::Window> window = platform::Window::make();
    QuovAd ad;
    std::shared_ptr<RecordingDelegate> delegate;

private:
    std::shared_ptr<platform::Window> previousWindow_;
};

TEST_F(Preload, LoadsFromTheBidServerThenShowsOnRequest) {
    tools::BidServer server(tools::BidServerOptions{});
    server.start();
    test::NetworkScope scope(server.baseUrl());
    QuovAd& shared = QuovAd::shared();
    shared.setupWithAppId(std::string("app"), std::string("key"));
    shared.setDelegate(delegate);
    shared.setPreloadBeforeShow(true);
    EXPECT_FALSE(shared.showAd()) << "nothing ready yet";

    shared.loadAdWithAdId(std::string("slot"));
    ASSERT_TRUE(runUntilLoaded(1));
    shared.setPreloadBeforeShow(false);
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"loaded"}));
    EXPECT_TRUE(shared.isAdReady());
    EXPECT_TRUE(window->subviews().empty()) << "no view before showAd";
    EXPECT_EQ(server.stats()["counts"].value("/track/view", 0), 0) << "no impression before showAd";

    ASSERT_TRUE(shared.showAd());
    EXPECT_FALSE(shared.isAdReady());
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"loaded", "displayed"}));
    auto view = shownView();
    ASSERT_NE(view, nullptr);
    EXPECT_NE(view->imageView()->image(), nullptr) << "the preloaded image, without another download";
    ASSERT_TRUE(shared.flush(std::chrono::seconds(20)));
    EXPECT_EQ(server.stats()["counts"]["/track/view"], 1);
    EXPECT_FALSE(shared.showAd()) << "shown once";
    EXPECT_EQ(window->subviews().size(), 1u);
}

TEST_F(Preload, AFailedImageStillMakesTheAdReady) {
    const std::string dead = "http://127.0.0.1:" + std::to_string(test::TestServer::deadPort()) + "/i.png";
    for (const std::optional<std::string>& url : {std::optional<std::string>(dead), std::optional<std::string>()}) {
        SCOPED_TRACE(url.value_or("(no url)"));
        delegate->calls.clear();
        auto bid = std::make_shared<QVBidModel>();
        if (url) bid = bidWithImage(*url);
        QuovAdFlow::makeLoadCompletion(ad)({bid}, std::nullopt);
        EXPECT_FALSE(ad.isAdReady()) << "not before the image has been tried";
        ASSERT_TRUE(runUntilLoaded(1));
        EXPECT_TRUE(ad.isAdReady());
        ASSERT_TRUE(ad.showAd());
        auto view = std::dynamic_pointer_cast<QVAdView>(window->subviews().back());
        ASSERT_NE(view, nullptr);
        EXPECT_EQ(view->imageView()->image(), nullptr);
        EXPECT_EQ(delegate->calls, (std::vector<std::string>{"loaded", "displayed"}));
    }
}

TEST_F(Preload, ANewerLoadReplacesAnUnshownAd) {
    test::TestServer images;
    images.on("/a.png", {200, "image/png", test::encodePNG(4, 2, [](int, int) { return 0xff0000ffu; })});
    images.on("/b.png", {200, "image/png", test::encodePNG(4, 2, [](int, int) { return 0x0000ffffu; })});
    auto first = bidWithImage(images.url("/a.png"));
    auto second = bidWithImage(images.url("/b.png"));

    QuovAdFlow::makeLoadCompletion(ad)({first}, std::nullopt);
    ASSERT_TRUE(runUntilLoaded(1));
    QuovAdFlow::makeLoadCompletion(ad)({second}, std::nullopt);
    EXPECT_FALSE(ad.isAdReady()) << "the ready ad is gone once a newer one is on its way";
    ASSERT_TRUE(runUntilLoaded(2));

    ASSERT_TRUE(ad.showAd());
    auto view = shownView();
    ASSERT_NE(view, nullptr);
    EXPECT_EQ(view->bid(), second);
    ASSERT_NE(view->imageView()->image(), nullptr);
    EXPECT_EQ(view->imageView()->image()->rgba[2], 0xff) << "blue: the second creative";
    EXPECT_FALSE(ad.showAd());
}

}  // namespace
}  // namespace quov
