#include "platform/toolkit/Application.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using namespace quov;
using namespace quov::platform;

TEST(NotificationCenterTest, SubscriptionsEndedDuringAPostAndSenderFilters) {
    auto center = std::make_unique<NotificationCenter>();
    std::vector<std::string> calls;
    int sender = 0, otherSender = 0;
    NotificationCenter::Subscription a, b, c, onlySender;
    a = center->addObserver([&](const Notification&) {
        calls.push_back("a");
        b.reset();  // b must not be called in this post
        c = center->addObserver([&](const Notification&) { calls.push_back("c"); }, "n");
    }, "n");
    b = center->addObserver([&](const Notification&) { calls.push_back("b"); }, "n");
    onlySender = center->addObserver([&](const Notification&) { calls.push_back("only-sender"); }, "n", &sender);
    center->postNotificationName("n", &otherSender);
    { const auto gone = std::move(a); }  // ends with its last owner
    center->postNotificationName("n", &sender);
    EXPECT_EQ(calls, (std::vector<std::string>{"a", "only-sender", "c"}));
    center.reset();
    EXPECT_FALSE(onlySender.active()) << "a subscription may outlive its center";
}

TEST(OpenURL, AnswersExactlyOnceOnTheMainLoopAfterTheCallReturns) {
    const std::pair<URLOpener, bool> cases[] = {
        {{}, false},  // no opener installed
        {[](const auto&, URLOpenCompletion done) { done(true); }, true},
        {[](const auto&, URLOpenCompletion done) { done(false), done(true); }, false},  // the first answer counts
        {[](const auto&, URLOpenCompletion) -> void { throw std::runtime_error("x"); }, false},
        {[](const auto&, URLOpenCompletion done) { std::thread([done] { done(true); }).join(); }, true},
    };
    for (std::size_t i = 0; i < std::size(cases); ++i) {
        MainLoop loop;
        Application app(loop);
        app.setURLOpener(cases[i].first);
        std::vector<bool> answers;
        app.openURL("https://example.invalid/", [&](bool opened) { answers.push_back(opened); });
        EXPECT_TRUE(answers.empty()) << "case " << i << ": answered before openURL returned";
        loop.drain(), loop.drain();
        EXPECT_EQ(answers, std::vector<bool>{cases[i].second}) << "case " << i;
    }
}

}  // namespace
