#pragma once

namespace quov::platform {

/// The one owner of a file descriptor: closes it when destroyed or reset;
/// move-only. -1 means none.
class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) noexcept : fd_(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const noexcept { return fd_; }
    explicit operator bool() const noexcept { return fd_ >= 0; }
    /// Gives the descriptor up without closing it.
    int release() noexcept {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }
    /// Closes the held descriptor, then holds fd.
    void reset(int fd = -1) noexcept;

private:
    int fd_ = -1;
};

/// A wake-up for a thread that sleeps in poll(): a non-blocking, close-on-exec
/// eventfd counter. signal() from any thread makes fd() readable until drain().
class EventSignal {
public:
    /// Throws std::system_error when the kernel has no descriptor to give.
    EventSignal();

    /// Never blocks: a saturated counter is still readable.
    void signal() const noexcept;
    /// Resets the counter; never blocks.
    void drain() const noexcept;
    int fd() const noexcept { return fd_.get(); }

private:
    UniqueFd fd_;
};

}  // namespace quov::platform
