#include <quov/MainLoop.h>

#include <gtest/gtest.h>

#include <poll.h>

#include <numeric>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

bool readable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, 0) == 1 && (p.revents & POLLIN);
}

TEST(MainLoop, RunsTasksOnTheDrainingThreadInEachPostingThreadsOrder) {
    quov::MainLoop loop;
    constexpr int kThreads = 4, kEach = 500;
    std::vector<std::vector<int>> seen(kThreads);
    std::vector<std::thread::id> ranOn;
    std::vector<std::thread> workers;
    for (int t = 0; t < kThreads; ++t)
        workers.emplace_back([&, t] {
            for (int i = 0; i < kEach; ++i)
                loop.post([&, t, i] { seen[t].push_back(i), ranOn.push_back(std::this_thread::get_id()); });
        });
    for (auto& w : workers) w.join();
    EXPECT_TRUE(ranOn.empty()) << "posting must not run anything";
    EXPECT_EQ(loop.drain(), std::size_t(kThreads * kEach));
    std::vector<int> inOrder(kEach);
    std::iota(inOrder.begin(), inOrder.end(), 0);
    for (int t = 0; t < kThreads; ++t) EXPECT_EQ(seen[t], inOrder);
    EXPECT_EQ(std::count(ranOn.begin(), ranOn.end(), std::this_thread::get_id()), kThreads * kEach);
}

TEST(MainLoop, FdIsReadableExactlyWhileTasksWaitAndAThrowingTaskLosesNothing) {
    quov::MainLoop loop;
    EXPECT_FALSE(readable(loop.fd()));
    loop.post([&] { loop.post([] {}); });  // a task posted by a task waits for the next drain
    EXPECT_TRUE(readable(loop.fd()));
    EXPECT_EQ(loop.drain(), 1u);
    EXPECT_TRUE(readable(loop.fd()));
    EXPECT_EQ(loop.drain(), 1u);
    EXPECT_FALSE(readable(loop.fd()));

    std::vector<int> order;
    loop.post([&] { order.push_back(1); });
    loop.post([] { throw std::runtime_error("host callback failed"); });
    loop.post([&] { order.push_back(3); });
    EXPECT_THROW(loop.drain(), std::runtime_error);
    loop.post([&] { order.push_back(4); });
    EXPECT_TRUE(readable(loop.fd()));
    loop.drain();
    EXPECT_EQ(order, (std::vector<int>{1, 3, 4}));
}

}  // namespace
