#include <quov/MainLoop.h>

#include <sys/eventfd.h>
#include <poll.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <mutex>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace quov {

struct MainLoop::State {
    mutable std::mutex mutex;
    std::deque<Task> tasks;
    int fd = -1;
    std::atomic<std::thread::id> drainer{};

    void signal() const {
        const std::uint64_t one = 1;
        // EAGAIN only when the counter is saturated, which still leaves it readable.
        while (::write(fd, &one, sizeof one) < 0 && errno == EINTR) {}
    }
    void reset() const {
        std::uint64_t value = 0;
        while (::read(fd, &value, sizeof value) < 0 && errno == EINTR) {}
    }
};

MainLoop& MainLoop::shared() {
    static MainLoop* loop = new MainLoop();  // never destroyed: workers may post at exit
    return *loop;
}

MainLoop::MainLoop() : state_(new State) {
    state_->fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (state_->fd < 0) {
        delete state_;
        throw std::system_error(errno, std::generic_category(), "eventfd");
    }
}

MainLoop::~MainLoop() {
    ::close(state_->fd);
    delete state_;
}

void MainLoop::post(Task task) {
    bool wasEmpty;
    {
        std::lock_guard lock(state_->mutex);
        wasEmpty = state_->tasks.empty();
        state_->tasks.push_back(std::move(task));
    }
    // A non-empty queue is already signalled: by the post that filled it, or by
    // drain(), which takes everything after its reset and re-signals leftovers.
    if (wasEmpty) state_->signal();
}

std::size_t MainLoop::drain() {
    state_->drainer.store(std::this_thread::get_id(), std::memory_order_relaxed);
    // Reset before taking the batch: a post racing with us signals again after
    // this read, so the fd never reads empty while a task waits.
    state_->reset();
    std::deque<Task> batch;
    {
        std::lock_guard lock(state_->mutex);
        batch.swap(state_->tasks);
    }
    std::size_t ran = 0;
    while (!batch.empty()) {
        Task task = std::move(batch.front());
        batch.pop_front();
        try {
            if (task) task();
        } catch (...) {
            // Keep what the throwing task did not get to, ahead of newer posts.
            std::lock_guard lock(state_->mutex);
            for (auto it = batch.rbegin(); it != batch.rend(); ++it)
                state_->tasks.push_front(std::move(*it));
            if (!state_->tasks.empty()) state_->signal();
            throw;
        }
        ++ran;
    }
    std::lock_guard lock(state_->mutex);
    if (!state_->tasks.empty()) state_->signal();
    return ran;
}

bool MainLoop::onDrainingThread() const {
    const std::thread::id drainer = state_->drainer.load(std::memory_order_relaxed);
    return drainer == std::thread::id() || drainer == std::this_thread::get_id();
}

int MainLoop::fd() const { return state_->fd; }

std::size_t MainLoop::pending() const {
    std::lock_guard lock(state_->mutex);
    return state_->tasks.size();
}

bool MainLoop::runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    using Clock = std::chrono::steady_clock;
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        drain();
        if (done()) return true;
        const auto now = Clock::now();
        if (now >= deadline) return false;
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
        pollfd p{state_->fd, POLLIN, 0};
        ::poll(&p, 1, static_cast<int>(left > 1000 ? 1000 : left));
    }
}

}  // namespace quov
