#pragma once

#include <quov/Export.h>

#include <chrono>
#include <cstddef>
#include <functional>

namespace quov {

/// The SDK's main-thread queue. Every SDK callback (delegate calls, network
/// completions, URL-open answers, decoded images) is posted here and runs on
/// whichever thread drains it: the host's main thread.
///
/// Integrate it one of three ways:
///  - call drain() once per frame;
///  - watch fd() with poll/epoll/select (readable while tasks wait), then drain();
///  - call runUntil() from a simple host or a test.
///
/// post() is safe from any thread; drain() and runUntil() belong on the main thread.
class QUOV_EXPORT MainLoop {
public:
    using Task = std::function<void()>;

    /// The queue the SDK itself posts to. Lives until the process ends.
    static MainLoop& shared();

    MainLoop();
    ~MainLoop();
    MainLoop(const MainLoop&) = delete;
    MainLoop& operator=(const MainLoop&) = delete;

    /// Queues a task. Any thread; never blocks on I/O. Tasks run in posting order.
    void post(Task task);

    /// Runs the tasks waiting at the time of the call, in order, and returns how
    /// many ran. Tasks they post run on the next drain, so a frame stays bounded.
    /// If a task throws, the tasks after it stay queued and the exception propagates.
    std::size_t drain();

    /// An eventfd that is readable while tasks wait. Owned by the loop; do not close.
    int fd() const;

    /// True on the thread that drained the loop last, and on any thread before the
    /// first drain. Any thread.
    bool onDrainingThread() const;

    /// Number of tasks waiting.
    std::size_t pending() const;

    /// Drains and sleeps on fd() until done() returns true or the timeout passes.
    /// Returns done()'s last answer. Blocks the calling (main) thread.
    bool runUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);

private:
    struct State;
    State* state_;
};

}  // namespace quov
