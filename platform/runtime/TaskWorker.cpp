#include "platform/runtime/TaskWorker.h"

#include <exception>

namespace quov::platform {

TaskWorker::TaskWorker() : thread_([this](std::stop_token stop) { run(stop); }) {}

TaskWorker::~TaskWorker() { shutDown(); }

void TaskWorker::shutDown() {
    {
        std::lock_guard lock(mutex_);
        stopped_ = true;
    }
    thread_.request_stop();
    if (thread_.joinable()) thread_.join();
}

void TaskWorker::submit(Task task, Failure onFailure) {
    {
        std::lock_guard lock(mutex_);
        if (!stopped_) {
            jobs_.push_back({std::move(task), std::move(onFailure)});
            ready_.notify_one();
            return;
        }
    }
    try {
        if (onFailure) onFailure("shut down");
    } catch (...) {
        // Same rule as on the worker: a careless handler does not reach the caller.
    }
}

void TaskWorker::run(std::stop_token stop) {
    for (;;) {
        Job job;
        {
            std::unique_lock lock(mutex_);
            if (!ready_.wait(lock, stop, [this] { return !jobs_.empty(); })) return;
            job = std::move(jobs_.front());
            jobs_.pop_front();
        }
        std::string failure;
        try {
            if (job.task) job.task();
            continue;
        } catch (const std::exception& e) {
            failure = e.what();
        } catch (...) {
            failure = "unknown exception";
        }
        try {
            if (job.onFailure) job.onFailure(failure);
        } catch (...) {
            // Nothing left to tell; the worker must outlive a careless handler.
        }
    }
}

}  // namespace quov::platform
