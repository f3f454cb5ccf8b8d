#include "platform/Context.h"

#include "platform/http/HttpClient.h"
#include "platform/media/ImageLoader.h"
#include "platform/runtime/TaskWorker.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quov::platform {
namespace {

using namespace std::chrono_literals;

HttpRequest requestTo(std::string url) {
    HttpRequest r;
    r.url = std::move(url);
    return r;
}

HttpRequest deadRequest() { return requestTo("http://127.0.0.1:" + std::to_string(test::TestServer::deadPort()) + "/"); }

TEST(Context, EveryWorkerOfAShutDownContextAnswersOnceWithAFailure) {
    MainLoop loop;
    Context context(loop);
    context.http();  // started before, so the stop has something to join
    context.shutDown();
    int http = 0, shutDown = 0, images = 0, taskFailures = 0, tasksRun = 0;
    context.http().send(deadRequest(), [&](HttpResponse r) { ++http, shutDown += r.shutDown; });
    context.images().load(deadRequest().url, [&](ImagePtr image) { images += image == nullptr; });
    context.tasks().submit([&] { ++tasksRun; }, [&](const std::string&) { ++taskFailures; });
    context.shutDown();  // idempotent
    EXPECT_TRUE(loop.runUntil([&] { return http == 1 && images == 1; }, 10s));
    loop.runUntil([] { return false; }, 50ms);  // room for a wrong second answer
    EXPECT_EQ(std::vector<int>({http, shutDown, images, taskFailures, tasksRun}), std::vector<int>({1, 1, 1, 1, 0}));
}

// A registered part is built on the core, so it must go while the core still works.
struct SendsWhenDestroyed final : Context::Part {
    explicit SendsWhenDestroyed(Context& c) : context(c) {}
    ~SendsWhenDestroyed() override {
        bool answered = false;
        context.http().send(deadRequest(), [&](HttpResponse r) { *shutDownSeen = r.shutDown, answered = true; });
        context.mainLoop().runUntil([&] { return answered; }, 10s);
    }
    Context& context;
    std::shared_ptr<bool> shutDownSeen = std::make_shared<bool>(true);
};

TEST(Context, RegisteredPartsGoBeforeTheCoreStops) {
    MainLoop loop;
    std::shared_ptr<bool> shutDownSeen;
    {
        Context context(loop);
        auto& part = context.part<SendsWhenDestroyed>();
        EXPECT_EQ(&part, &context.part<SendsWhenDestroyed>()) << "one instance per type";
        shutDownSeen = part.shutDownSeen;
        *shutDownSeen = false;
    }
    EXPECT_FALSE(*shutDownSeen) << "the part's last request met a stopped client";
}

// The warm-up makes the HTTP worker on its own thread; a first request that races
// it must get one client and its answer, and a stop must wait for the warm-up.
TEST(Context, FirstUseRacingTheWarmUpIsServed) {
    test::TestServer server;
    server.on("/ping", test::Answer::text("pong"));
    for (int round = 0; round < 3; ++round) {
        MainLoop loop;
        Context context(loop);
        context.warmUp(), context.warmUp();  // once only
        HttpClient& client = context.http();
        EXPECT_EQ(&context.http(), &client);
        std::optional<HttpResponse> answer;
        client.send(requestTo(server.url("/ping")), [&](HttpResponse r) { answer = std::move(r); });
        ASSERT_TRUE(loop.runUntil([&] { return answer.has_value(); }, 10s)) << "round " << round;
        EXPECT_EQ(answer->body, "pong");
        context.shutDown();
    }
    MainLoop loop;
    Context stoppedFirst(loop);
    stoppedFirst.shutDown(), stoppedFirst.warmUp();  // nothing to warm once stopped
}

}  // namespace
}  // namespace quov::platform
