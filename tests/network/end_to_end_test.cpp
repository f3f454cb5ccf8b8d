#include <quov/QuovAd.h>

#include "facade/QuovAdFlow.h"
#include "platform/Context.h"
#include "support/LogCapture.h"
#include "support/NetworkScope.h"
#include "support/RecordingDelegate.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

namespace quov {
namespace {

using test::Answer;
using test::NetworkScope;
using test::RecordingDelegate;
using test::TestServer;
using test::UnansweringServer;

// A host's whole load through the facade singleton, against a real server.
class EndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        presenter.emplace(platform::Context::shared(), [this](QuovAd&, QVBidModelPtr bid) {
            delegate->calls.push_back("view");
            shown.push_back(std::move(bid));
        });
        QuovAd::shared().setupWithAppId(std::string("e2e"), std::string("secret"));
        QuovAd::shared().setDelegate(delegate);
    }
    void TearDown() override {
        presenter.reset();
        QuovAd::shared().setLoadTimeout(std::chrono::seconds(60));
    }

    void loadAndWait() {
        delegate->calls.clear();
        QuovAd::shared().loadAdWithAdId(std::string("slot"));
        ASSERT_TRUE(NetworkScope::runUntil([&] { return !delegate->calls.empty(); }));
    }

    TestServer server;
    NetworkScope scope{server.base()};
    test::LogCapture log;
    std::shared_ptr<RecordingDelegate> delegate = std::make_shared<RecordingDelegate>();
    std::vector<QVBidModelPtr> shown;
    std::optional<QuovAdFlow::ScopedViewPresenter> presenter;
};

TEST_F(EndToEnd, DelegateHearsTheOutcomeOfEachAnswer) {
    server.on("/network", Answer::text("gone", 404));
    loadAndWait();
    EXPECT_EQ(delegate->calls, std::vector<std::string>{"loadFailed"});
    EXPECT_EQ(delegate->errors.back(), QVError::errorWithCode(4001));
    EXPECT_EQ(log.linesStartingWith("Reqeust failed"), std::vector<std::string>{"Reqeust failed, response: gone"});

    server.on("/network", Answer::json(R"({"seatbid":[{"bid":[]}]})"));
    loadAndWait();
    EXPECT_EQ(delegate->calls, std::vector<std::string>{"loadFailed"});
    EXPECT_EQ(delegate->errors.back(), (Error{"QAPP", 204, std::nullopt}));

    server.on("/network", Answer::json(R"({"seatbid":[{"bid":[{"id":"first","isRendering":1},{"id":"second"}]}]})"));
    loadAndWait();
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"loaded", "view"}));
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_EQ(shown[0]->identifier(), std::optional<std::string>("first"));
    EXPECT_EQ(server.countOn("/network"), 3u);
}

TEST_F(EndToEnd, AShownBidsImpressionsArriveFilled) {
    server.on("/network", Answer::json(R"({"seatbid":[{"bid":[{"id":"b","check_views":[")" +
                                       server.url("/imp?idfa=__IDFA__&ts=__STMS__") + R"("]}]}]})"));
    server.on("/imp", Answer::empty());
    QuovAdFlow::ScopedViewPresenter reporting(platform::Context::shared(),
                                              [](QuovAd&, QVBidModelPtr bid) { bid->reportAdShow(); });
    QuovAd::shared().loadAdWithAdId(std::nullopt);
    ASSERT_TRUE(NetworkScope::runUntil([&] { return server.countOn("/imp") > 0; }));
    ASSERT_TRUE(QuovAd::shared().flush(std::chrono::seconds(20)));
    const auto imp = server.receivedOn("/imp");
    ASSERT_EQ(imp.size(), 1u);
    EXPECT_EQ(imp[0].query.rfind("idfa=00000000-0000-0000-0000-000000000000&ts=", 0), 0u) << imp[0].query;
    EXPECT_EQ(imp[0].query.find("__"), std::string::npos) << imp[0].query;
}

// Earlier loads leave kept-alive connections; the bid server then reads the
// POST and closes without a word. The load must send it once and fail.
TEST_F(EndToEnd, ALoadIsOnePostEvenWhenTheConnectionDies) {
    constexpr std::size_t kWarm = 5;
    UnansweringServer closing(UnansweringServer::After::Close, kWarm);
    platform::Context::ScopedServiceBase base(platform::Context::shared(), closing.url(""));
    for (std::size_t i = 0; i < kWarm; ++i) QuovAd::shared().loadAdWithAdId(std::nullopt);
    ASSERT_TRUE(NetworkScope::runUntil([&] { return delegate->calls.size() == kWarm; }));
    loadAndWait();
    EXPECT_EQ(delegate->calls, std::vector<std::string>{"loadFailed"});
    EXPECT_EQ(delegate->errors.back(), QVError::errorWithCode(4001));
    EXPECT_EQ(closing.unanswered(), 1u);
}

TEST_F(EndToEnd, TheBidRequestNeverFollowsARedirectToAnotherOrigin) {
    TestServer elsewhere;
    elsewhere.on("/network", Answer::json(R"({"seatbid":[{"bid":[{"id":"x"}]}]})"));
    for (int status : {301, 302, 303, 307, 308}) {
        SCOPED_TRACE(status);
        server.redirect("/network", elsewhere.url("/network?appid=e2e"), status);
        loadAndWait();
        EXPECT_EQ(delegate->calls, std::vector<std::string>{"loadFailed"});
        EXPECT_EQ(delegate->errors.back(), QVError::errorWithCode(4001));
    }
    EXPECT_EQ(elsewhere.count(), 0u) << "the app key left for another origin";

    server.on("/moved", Answer::json(R"({"seatbid":[{"bid":[{"id":"x"}]}]})"));
    server.redirect("/network", "/moved", 307);
    loadAndWait();
    EXPECT_EQ(delegate->calls, (std::vector<std::string>{"loaded", "view"})) << "same origin is followed";
}

TEST_F(EndToEnd, ALoadThatOutlastsItsTimeOutFailsLikeATransportFailure) {
    UnansweringServer stalled(UnansweringServer::After::Stall);
    platform::Context::ScopedServiceBase base(platform::Context::shared(), stalled.url(""));
    QuovAd::shared().setLoadTimeout(std::chrono::milliseconds(200));
    loadAndWait();
    EXPECT_EQ(delegate->calls, std::vector<std::string>{"loadFailed"});
    EXPECT_EQ(delegate->errors.back(), QVError::errorWithCode(4001));
    EXPECT_EQ(stalled.unanswered(), 1u);
}

}  // namespace
}  // namespace quov
