#include <quov/MainLoop.h>

#include <gtest/gtest.h>

#include <poll.h>

#include <stdexcept>
#include <vector>

namespace {

bool readable(int fd) {
    pollfd p{fd, POLLIN, 0};
    return ::poll(&p, 1, 0) == 1 && (p.revents & POLLIN);
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
