#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>

namespace quov::platform {

/// One background thread that runs tasks in submission order, for CPU work that
/// must stay off the host's thread. A task that throws is reported to its own
/// failure handler (on this thread) with the exception's text; the worker goes on.
/// shutDown (and the destructor) stops taking tasks, finishes the one running,
/// drops the rest unrun and joins; a task submitted after it fails at once.
class TaskWorker {
public:
    using Task = std::function<void()>;
    using Failure = std::function<void(const std::string& what)>;

    TaskWorker();
    ~TaskWorker();
    TaskWorker(const TaskWorker&) = delete;
    TaskWorker& operator=(const TaskWorker&) = delete;

    /// Any thread; never blocks on the task. After shutDown the task is not run
    /// and onFailure is called on the caller's thread.
    void submit(Task task, Failure onFailure = {});

    /// Idempotent; not on the worker's own thread.
    void shutDown();

private:
    struct Job {
        Task task;
        Failure onFailure;
    };
    void run(std::stop_token stop);

    std::mutex mutex_;
    std::condition_variable_any ready_;
    std::deque<Job> jobs_;
    bool stopped_ = false;
    std::jthread thread_;  // last: starts after the queue exists, joins before it goes
};

}  // namespace quov::platform
