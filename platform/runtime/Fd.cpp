#include "platform/runtime/Fd.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <system_error>

namespace quov::platform {

void UniqueFd::reset(int fd) noexcept {
    // Not retried on EINTR: Linux releases the descriptor either way, and a retry
    // could close one another thread has just been given.
    if (fd_ >= 0 && fd_ != fd) ::close(fd_);
    fd_ = fd;
}

EventSignal::EventSignal() : fd_(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (!fd_) throw std::system_error(errno, std::generic_category(), "eventfd");
}

void EventSignal::signal() const noexcept {
    const std::uint64_t one = 1;
    // EAGAIN only when the counter is saturated, which still leaves it readable.
    while (::write(fd_.get(), &one, sizeof one) < 0 && errno == EINTR) {}
}

void EventSignal::drain() const noexcept {
    std::uint64_t value = 0;
    while (::read(fd_.get(), &value, sizeof value) < 0 && errno == EINTR) {}
}

}  // namespace quov::platform
