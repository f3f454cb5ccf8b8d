#include <quov/QVDeviceInfo.h>

#include "platform/runtime/Crypto.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <system_error>

namespace quov {
namespace {

class Fd {
public:
    explicit Fd(int fd) : fd_(fd) {}
    ~Fd() {
        if (fd_ >= 0) ::close(fd_);
    }
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

std::string hex(const platform::Md5Digest& digest) {
    char out[33];
    for (int i = 0; i < 16; ++i) std::snprintf(out + 2 * i, 3, "%02x", digest[i]);
    return std::string(out, 32);
}

[[noreturn]] void digestFailure() { throw std::runtime_error("MD5 is unavailable in this OpenSSL"); }

}  // namespace

std::string QVDeviceInfo::dataMD5(const std::optional<std::string>& text) {
    if (!text) return "";
    // Measured as a C string: the digest stops at the first zero byte.
    const std::size_t length = std::strlen(text->c_str());
    const auto digest = platform::md5(std::string_view(text->data(), length));
    if (!digest) digestFailure();
    return hex(*digest);
}

std::string QVDeviceInfo::fileMD5(const std::string& path) {
    // A blocking open and blocking reads: a FIFO is hashed from the writer that
    // connects until it closes, never cut short by a writer that is late or idle.
    Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (fd.get() < 0) return "";
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0 || S_ISDIR(st.st_mode)) return "";

    platform::Md5Stream md5;
    unsigned char chunk[1024];
    while (true) {
        ssize_t n = ::read(fd.get(), chunk, sizeof chunk);
        if (n < 0) {
            if (errno == EINTR) continue;
            throw std::system_error(errno, std::generic_category(), "fileMD5: reading " + path);
        }
        md5.update(chunk, static_cast<std::size_t>(n));  // the final empty read too
        if (n == 0) break;
    }
    return hex(md5.finish());
}

}  // namespace quov
