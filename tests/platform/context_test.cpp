#include "platform/Context.h"

#include "platform/http/HttpClient.h"
#include "platform/media/ImageLoader.h"
#include "platform/runtime/TaskWorker.h"
#include "support/TestServer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace quov::platform {
namespace {

using namespace std::chrono_literals;

HttpRequest deadRequest() {
    HttpRequest r;
    r.url = "http://127.0.0.1:" + std::to_string(test::TestServer::deadPort()) + "/";
    return r;
}

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
bool lastRequestShutDown = true;

struct SendsWhenDestroyed final : Context::Part {
    explicit SendsWhenDestroyed(Context& c) : context(c) {}
    ~SendsWhenDestroyed() override {
        bool answered = false;
        context.http().send(deadRequest(), [&](HttpResponse r) { lastRequestShutDown = r.shutDown, answered = true; });
        context.mainLoop().runUntil([&] { return answered; }, 10s);
    }
    Context& context;
};

TEST(Context, RegisteredPartsGoBeforeTheCoreStops) {
    MainLoop loop;
    {
        Context context(loop);
        EXPECT_EQ(&context.part<SendsWhenDestroyed>(), &context.part<SendsWhenDestroyed>()) << "one per type";
    }
    EXPECT_FALSE(lastRequestShutDown) << "the part's last request met a stopped client";
}

}  // namespace
}  // namespace quov::platform
