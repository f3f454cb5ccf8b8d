#include <quov/MainLoop.h>
#include <quov/QuovAd.h>

#include "facade/QuovAdFlow.h"
#include "platform/Context.h"
#include "network/BidServerBase.h"
#include "support/LogCapture.h"
#include "support/NetworkScope.h"
#include "support/RecordingDelegate.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <thread>

namespace quov {
namespace {

using test::LogCapture;
using test::RecordingDelegate;

QVBidModelPtr bidWithRendering(std::int64_t rendering, const char* id = "b") {
    auto bid = std::make_shared<QVBidModel>();
    bid->setIdentifier(std::string(id));
    bid->setIsRendering(rendering);
    return bid;
}

class LoadCompletion : public ::testing::Test {
protected:
    void SetUp() override {
        delegate = std::make_shared<RecordingDelegate>();
        ad.setDelegate(delegate);
        presenter.emplace(platform::Context::shared(), [this](QuovAd&, QVBidModelPtr bid) {
            delegate->calls.push_back("view");
            presented.push_back(std::move(bid));
        });
    }
    void TearDown() override { presenter.reset(); }

    std::optional<QuovAdFlow::ScopedViewPresenter> presenter;

    QuovAd ad;
    std::shared_ptr<RecordingDelegate> delegate;
    std::vector<QVBidModelPtr> presented;
};

TEST_F(LoadCompletion, DecidesInTheSpecifiedOrder) {
    const Error networkError = QVError::errorWithCode(4001);
    struct Case {
        const char* name;
        std::vector<QVBidModelPtr> bids;
        std::optional<Error> error;
        std::vector<std::string> calls;
    };
    const std::vector<Case> cases = {
        {"error wins over bids", {bidWithRendering(1)}, networkError, {"loadFailed"}},
        {"error alone", {}, networkError, {"loadFailed"}},
        {"no bids", {}, std::nullopt, {"loadFailed"}},
        {"host renders", {bidWithRendering(1)}, std::nullopt, {"fetchedBid"}},
        {"rendering 0 takes the view path", {bidWithRendering(0)}, std::nullopt, {"loaded", "view"}},
        {"rendering 2 takes the view path", {bidWithRendering(2)}, std::nullopt, {"loaded", "view"}},
        {"rendering -1 takes the view path", {bidWithRendering(-1)}, std::nullopt, {"loaded", "view"}},
        {"only the first bid decides", {bidWithRendering(0), bidWithRendering(1)}, std::nullopt,
         {"loaded", "view"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        delegate->calls.clear();
        QuovAdFlow::makeLoadCompletion(ad)(c.bids, c.error);
        EXPECT_EQ(delegate->calls, c.calls);
    }
    // The error goes on unchanged; no bid is "QAPP"/204 with no description; only the first bid is used.
    EXPECT_EQ(delegate->errors, (std::vector<Error>{networkError, networkError, Error{"QAPP", 204, std::nullopt}}));
    ASSERT_EQ(delegate->fetched.size(), 1u);
    EXPECT_EQ(delegate->fetched[0], cases[3].bids[0]);
    ASSERT_EQ(presented.size(), 4u);
    EXPECT_EQ(presented[3], cases[7].bids[0]);
}

TEST_F(LoadCompletion, GoneDelegateIsSkippedAndTheViewStillShown) {
    auto completion = QuovAdFlow::makeLoadCompletion(ad);
    delegate->calls.clear();
    auto keep = delegate;
    QuovAdFlow::ScopedViewPresenter inner(platform::Context::shared(), [&](QuovAd&, QVBidModelPtr bid) {
        keep->calls.push_back("view");
        presented.push_back(std::move(bid));
    });
    delegate.reset();
    ad.setDelegate(std::weak_ptr<QuovAdDelegate>());
    completion({}, QVError::errorWithCode(4001));
    completion({}, std::nullopt);
    completion({bidWithRendering(1)}, std::nullopt);
    completion({bidWithRendering(0)}, std::nullopt);
    EXPECT_EQ(keep->calls, (std::vector<std::string>{"view"}));
    EXPECT_EQ(presented.size(), 1u);
}

TEST_F(LoadCompletion, DelegateIsLookedUpAtCallTimeNotWhenTheLoadStarted) {
    auto completion = QuovAdFlow::makeLoadCompletion(ad);
    auto later = std::make_shared<RecordingDelegate>();
    ad.setDelegate(later);
    completion({}, std::nullopt);
    EXPECT_TRUE(delegate->calls.empty());
    EXPECT_EQ(later->calls, (std::vector<std::string>{"loadFailed"}));
}

TEST(Facade, ACompletionThatOutlivesItsFacadeDoesNothing) {
    auto delegate = std::make_shared<RecordingDelegate>();
    quov::LoadCompletion completion;
    {
        QuovAd ad;
        ad.setDelegate(delegate);
        completion = QuovAdFlow::makeLoadCompletion(ad);
    }
    completion({}, QVError::errorWithCode(4001));  // under ASan: no use after free
    EXPECT_TRUE(delegate->calls.empty());
}

TEST(Facade, LoadBeforeSetupLogsAndCallsNothing) {
    struct Case {
        std::optional<std::string> id, key;
    };
    for (const Case& c : {Case{std::nullopt, std::nullopt}, Case{std::string("a"), std::nullopt},
                          Case{std::nullopt, std::string("k")}}) {
        QuovAd ad;
        auto delegate = std::make_shared<RecordingDelegate>();
        ad.setDelegate(delegate);
        if (c.id || c.key) ad.setupWithAppId(c.id, c.key);
        LogCapture log;
        ad.loadAdWithAdId(std::string("slot"));
        EXPECT_EQ(log.lines(), (std::vector<std::string>{"Please call `setup` initialize first"}));
        EXPECT_TRUE(delegate->calls.empty());
        EXPECT_EQ(MainLoop::shared().pending(), 0u) << "nothing may be started";
    }
}

TEST(Facade, ACallOffTheMainThreadIsReportedOnce) {
    QuovAd ad;
    ad.setIMEI(std::string("main"));
    MainLoop::shared().drain();  // this thread drains the loop: it is the main thread
    LogCapture log;
    ad.setOAID(std::string("still main"));
    EXPECT_TRUE(log.lines().empty());
    std::thread([&] { ad.setIMEI(std::string("worker")); }).join();
    std::thread([&] { ad.setOAID(std::string("worker")); }).join();
    const auto misuse = log.linesStartingWith("QuovSDK misuse: ");
    ASSERT_EQ(misuse.size(), 1u);
    EXPECT_NE(misuse[0].find("QuovAd::setIMEI"), std::string::npos) << misuse[0];
    EXPECT_NE(misuse[0].find("main thread"), std::string::npos) << misuse[0];
}

TEST(Facade, AMissingBundleValueNamesTheKeyAndTheCallThatSetsIt) {
    test::NetworkScope scope;
    for (const char* key : {"CFBundleShortVersionString", "CFBundleIdentifier", "CFBundleName"}) {
        SCOPED_TRACE(key);
        const auto full = scope.device->bundle;
        scope.device->bundle.erase(key);
        QuovAd ad;
        try {
            ad.setupWithAppId(std::string("a"), std::string("k"));
            ADD_FAILURE() << "setup went through";
        } catch (const std::invalid_argument& e) {
            EXPECT_NE(std::string(e.what()).find(key), std::string::npos) << e.what();
            EXPECT_NE(std::string(e.what()).find("QuovHost::setBundleInfo"), std::string::npos) << e.what();
        }
        scope.device->bundle = full;
    }
}

TEST(Errors, FactoryTable) {
    struct Case {
        std::int64_t code;
        const char* description;
    };
    for (const Case& c : {Case{3002, "网络错误"}, Case{4001, "协商失败"}, Case{4002, "匹配错误"},
                          Case{0, "其他错误"}, Case{-1, "其他错误"}, Case{204, "其他错误"},
                          Case{INT64_MAX, "其他错误"}}) {
        SCOPED_TRACE(c.code);
        Error e = QVError::errorWithCode(c.code);
        EXPECT_EQ(e.domain, " QuovADSDK Error");
        EXPECT_EQ(e.domain.size(), 16u);
        EXPECT_EQ(e.code, c.code);
        EXPECT_EQ(e.description, std::optional<std::string>(c.description));
    }
}

}  // namespace
}  // namespace quov
