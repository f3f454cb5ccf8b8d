#include <quov/MainLoop.h>

#include "platform/runtime/Fd.h"

#include <poll.h>

#include <atomic>
#include <deque>
#include <mutex>
#include <thread>

namespace quov {

struct MainLoop::State {
    mutable std::mutex mutex;
    std::deque<Task> tasks;
    platform::EventSignal wake;
    std::atomic<std::thread::id> drainer{};
};

MainLoop& MainLoop::shared() {
    static MainLoop* loop = new MainLoop();  // never destroyed: workers may post at exit
    return *loop;
}

MainLoop::MainLoop() : state_(new State) {}

MainLoop::~MainLoop() { delete state_; }

void MainLoop::post(Task task) {
    bool wasEmpty;
    {
        std::lock_guard lock(state_->mutex);
        wasEmpty = state_->tasks.empty();
        state_->tasks.push_back(std::move(task));
    }
    // A non-empty queue is already signalled: by the post that filled it, or by
    // drain(), which takes everything after its reset and re-signals leftovers.
    if (wasEmpty) state_->wake.signal();
}

std::size_t MainLoop::drain() {
    state_->drainer.store(std::this_thread::get_id(), std::memory_order_relaxed);
    // Reset before taking the batch: a post racing with us signals again after
    // this read, so the fd never reads empty while a task waits.
    state_->wake.drain();
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
            if (!state_->tasks.empty()) state_->wake.signal();
            throw;
        }
        ++ran;
    }
    std::lock_guard lock(state_->mutex);
    if (!state_->tasks.empty()) state_->wake.signal();
    return ran;
}

bool MainLoop::onDrainingThread() const {
    const std::thread::id drainer = state_->drainer.load(std::memory_order_relaxed);
    return drainer == std::thread::id() || drainer == std::this_thread::get_id();
}

int MainLoop::fd() const { return state_->wake.fd(); }

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
        pollfd p{state_->wake.fd(), POLLIN, 0};
        ::poll(&p, 1, static_cast<int>(left > 1000 ? 1000 : left));
    }
}

}  // namespace quov
