#include <quov/MainLoop.h>
#include <quov/QuovAd.h>

#include "facade/QuovAdFlow.h"
#include "platform/Context.h"
#include "platform/toolkit/Window.h"
#include "support/LogCapture.h"
#include "support/NetworkScope.h"
#include "support/RecordingDelegate.h"
#include "support/TestImages.h"
#include "support/TestServer.h"
#include "view/QVAdView.h"

#include <nlohmann/json.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <thread>

namespace quov {
namespace {

using test::LogCapture;
using test::RecordingDelegate;
using testing::HasSubstr;
using testing::ThrowsMessage;
using Calls = std::vector<std::string>;

QVBidModelPtr bidWithRendering(std::int64_t rendering) {
    auto bid = std::make_shared<QVBidModel>();
    bid->setIsRendering(rendering);
    return bid;
}

class LoadCompletion : public ::testing::Test {
protected:
    QuovAd ad;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::vector<QVBidModelPtr> presented;
    QuovAdFlow::ScopedViewPresenter presenter{platform::Context::shared(), [this](QuovAd&, QVBidModelPtr bid) {
                                                  delegate->calls.push_back("view");
                                                  presented.push_back(std::move(bid));
                                              }};
    void SetUp() override { ad.setDelegate(delegate); }
};

TEST_F(LoadCompletion, ErrorThenNoBidThenHostRenderingThenTheView) {
    const Error networkError = QVError::errorWithCode(4001);
    const std::tuple<const char*, std::vector<QVBidModelPtr>, std::optional<Error>, Calls> cases[] = {
        {"error wins over bids", {bidWithRendering(1)}, networkError, {"loadFailed"}},
        {"no bids", {}, std::nullopt, {"loadFailed"}},
        {"host renders", {bidWithRendering(1)}, std::nullopt, {"fetchedBid"}},
        {"rendering 0 takes the view path", {bidWithRendering(0)}, std::nullopt, {"loaded", "view"}},
        {"rendering 2 takes the view path", {bidWithRendering(2)}, std::nullopt, {"loaded", "view"}},
        {"only the first bid decides", {bidWithRendering(0), bidWithRendering(1)}, std::nullopt, {"loaded", "view"}},
    };
    for (const auto& [name, bids, error, calls] : cases) {
        SCOPED_TRACE(name);
        delegate->calls.clear();
        QuovAdFlow::makeLoadCompletion(ad)(bids, error);
        EXPECT_EQ(delegate->calls, calls);
    }
    EXPECT_EQ(delegate->errors, (std::vector<Error>{networkError, Error{"QAPP", 204, std::nullopt}}));
    EXPECT_EQ(delegate->fetched, std::vector<QVBidModelPtr>{std::get<1>(cases[2])[0]});
    ASSERT_EQ(presented.size(), 3u);
    EXPECT_EQ(presented[2], std::get<1>(cases[5])[0]);
}

TEST_F(LoadCompletion, TheDelegateIsLookedUpAtCallTimeAndAGoneOneIsSkipped) {
    auto completion = QuovAdFlow::makeLoadCompletion(ad);
    auto later = std::make_shared<RecordingDelegate>();
    ad.setDelegate(later);
    completion({}, std::nullopt);
    EXPECT_TRUE(delegate->calls.empty());
    EXPECT_EQ(later->calls, Calls{"loadFailed"});
    later.reset();
    completion({}, QVError::errorWithCode(4001));
    completion({bidWithRendering(1)}, std::nullopt);
    completion({bidWithRendering(0)}, std::nullopt);
    EXPECT_EQ(presented.size(), 1u) << "the view is still shown";
    auto orphan = QuovAdFlow::makeLoadCompletion(*std::make_unique<QuovAd>());
    orphan({bidWithRendering(0)}, std::nullopt);  // its facade is gone: nothing, and no use after free
    EXPECT_EQ(presented.size(), 1u);
}

TEST(Errors, FactoryTable) {
    const std::pair<std::int64_t, const char*> cases[] = {{3002, "网络错误"}, {4001, "协商失败"}, {4002, "匹配错误"},
                                                          {0, "其他错误"},    {-1, "其他错误"},    {INT64_MAX, "其他错误"}};
    for (const auto& [code, description] : cases)
        EXPECT_EQ(QVError::errorWithCode(code), (Error{" QuovADSDK Error", code, std::string(description)}));
}

/// Preload, then show: the bid waits for its image and the host decides when the view appears.
class Preload : public ::testing::Test {
protected:
    void SetUp() override {
        app.setKeyWindow(window);
        ad.setDelegate(delegate);
        ad.setPreloadBeforeShow(true);
    }
    void TearDown() override {
        ad.flush(std::chrono::seconds(20));
        app.setKeyWindow(previousWindow);
    }
    static QVBidModelPtr bidWithImage(const std::string& url) {
        return QVBidModel::initWithDict(nlohmann::json{{"images", nlohmann::json::array({{{"url", url}}})}});
    }
    bool runUntilLoaded(long count) {
        return MainLoop::shared().runUntil(
            [&] { return std::count(delegate->calls.begin(), delegate->calls.end(), "loaded") >= count; },
            std::chrono::seconds(20));
    }

    platform::Application& app = platform::Context::shared().application();
    std::shared_ptr<platform::Window> previousWindow = app.keyWindow(), window = platform::Window::make();
    QuovAd ad;
    std::shared_ptr<test::RecordingDelegate> delegate = std::make_shared<test::RecordingDelegate>();
};

TEST_F(Preload, AFailedImageStillMakesItReadyANewerLoadReplacesItAndOnlyShowAdPutsItUpOnce) {
    test::TestServer server;
    server.on("/blue.png", {200, "image/png", test::encodePNG(4, 2, [](int, int) { return 0x0000ffffu; })});
    server.on("/view", test::Answer::text("down", 500));
    EXPECT_FALSE(ad.showAd()) << "nothing ready yet";
    const std::string dead = "http://127.0.0.1:" + std::to_string(test::TestServer::deadPort()) + "/i.png";
    QuovAdFlow::makeLoadCompletion(ad)({bidWithImage(dead)}, std::nullopt);
    EXPECT_FALSE(ad.isAdReady()) << "not before the image has been tried";
    ASSERT_TRUE(runUntilLoaded(1));
    EXPECT_TRUE(ad.isAdReady());
    auto newest = bidWithImage(server.url("/blue.png"));
    newest->setCheckViews(std::vector<std::string>{server.url("/view")});
    QuovAdFlow::makeLoadCompletion(ad)({newest}, std::nullopt);
    EXPECT_FALSE(ad.isAdReady()) << "the ready ad is gone once a newer one is on its way";
    ASSERT_TRUE(runUntilLoaded(2));
    ad.setPreloadBeforeShow(false);  // what counts is the setting the load was made with
    ASSERT_TRUE(ad.flush(std::chrono::seconds(20)));
    EXPECT_EQ(server.countOn("/view"), 0u) << "no impression before showAd";

    ASSERT_TRUE(ad.showAd());
    ASSERT_EQ(window->subviews().size(), 1u);
    auto view = std::dynamic_pointer_cast<QVAdView>(window->subviews()[0]);
    ASSERT_NE(view->imageView()->image(), nullptr) << "the preloaded image, without another download";
    EXPECT_EQ(view->imageView()->image()->rgba[2], 0xff) << "blue: the newest creative";
    EXPECT_EQ(server.countOn("/blue.png"), 1u);
    EXPECT_EQ(delegate->calls, (Calls{"loaded", "loaded", "displayed"}));
    ASSERT_TRUE(ad.flush(std::chrono::seconds(20)));
    EXPECT_EQ(server.countOn("/view"), 3u) << "one impression, in three attempts";
    EXPECT_FALSE(ad.showAd()) << "shown once";
}

// Misuse a host makes while integrating: told once, by name, instead of a silent failure.
TEST(Facade, MisuseNamesTheCallOnceAndAMissingBundleValueNamesItsKey) {
    QuovAd ad;
    MainLoop::shared().drain();  // this thread drains the loop: it is the main thread
    LogCapture log;
    std::thread([&] { ad.setIMEI(std::string("worker")); }).join();
    std::thread([&] { ad.setOAID(std::string("worker")); }).join();
    EXPECT_THAT(log.linesStartingWith("QuovSDK misuse: "), testing::ElementsAre(HasSubstr("QuovAd::setIMEI")));
    for (const bool partly : {false, true}) {  // a load before setup, or with no key: told, and nothing started
        if (partly) ad.setupWithAppId(std::string("a"), std::nullopt);
        log.clear();
        ad.loadAdWithAdId(std::string("slot"));
        EXPECT_EQ(log.lines(), Calls{"Please call `setup` initialize first"});
        EXPECT_EQ(MainLoop::shared().pending(), 0u);
    }

    test::NetworkScope scope;
    const auto full = scope.device->bundle;
    for (const char* key : {"CFBundleShortVersionString", "CFBundleIdentifier", "CFBundleName"}) {
        scope.device->bundle = full;
        scope.device->bundle.erase(key);
        EXPECT_THAT([&] { ad.setupWithAppId(std::string("a"), std::string("k")); },
                    ThrowsMessage<std::invalid_argument>(AllOf(HasSubstr(key), HasSubstr("QuovHost::setBundleInfo"))));
    }
    scope.device->bundle = full;
}

}  // namespace
}  // namespace quov
