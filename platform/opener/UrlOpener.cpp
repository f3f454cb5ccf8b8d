#include "platform/opener/UrlOpener.h"

#include "platform/http/UrlSyntax.h"
#include "platform/runtime/Fd.h"
#include "platform/runtime/Log.h"
#include "platform/runtime/Text.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

extern char** environ;

namespace quov::platform {
namespace {

using Clock = std::chrono::steady_clock;

// Schemes that resolve to local files, inline content, browser internals or
// remote mounts: never opened, not even when a host registers them.
constexpr std::string_view kLocalSchemes[] = {
    "file", "data", "javascript", "vbscript", "about", "blob", "filesystem",
    "view-source", "resource", "chrome", "jar", "smb", "nfs",
    "admin", "trash", "recent", "computer", "archive", "burn", "network", "ghelp", "help", "man",
    "info", "applications", "fonts", "sftp", "ftp", "ftps", "dav", "davs", "afp", "ssh", "mtp",
    "gphoto2", "obex"};

bool isLocalScheme(std::string_view scheme) {
    return std::find(std::begin(kLocalSchemes), std::end(kLocalSchemes), scheme) != std::end(kLocalSchemes);
}

std::mutex& schemesMutex() {
    static std::mutex m;
    return m;
}
std::vector<std::string>& hostSchemes() {
    static std::vector<std::string> schemes;
    return schemes;
}

bool schemeAllowed(const std::string& scheme) {
    if (scheme == "http" || scheme == "https") return true;
    std::lock_guard lock(schemesMutex());
    const auto& schemes = hostSchemes();
    return std::find(schemes.begin(), schemes.end(), scheme) != schemes.end();
}

// Why a URL is not handed on, or nothing when it may be.
std::optional<std::string> refusal(const std::optional<std::string>& url) {
    if (!url) return "no URL";
    if (url->empty()) return "an empty URL";
    if (url->size() > kMaxURLBytes) return "longer than " + std::to_string(kMaxURLBytes) + " bytes";
    // Every scheme starts with a letter, so a leading '-' never gets this far;
    // the check stays explicit because it is what keeps options out of argv.
    if ((*url)[0] == '-') return "starts with '-'";
    const auto scheme = absoluteURLScheme(*url);
    if (!scheme) return "not an absolute URL of URL characters";
    if (!schemeAllowed(*scheme)) return "scheme \"" + *scheme + "\" is neither http(s) nor registered by the host";
    return std::nullopt;
}

// Never throws: a completion that cannot be posted (no memory) is dropped rather
// than taking the worker down.
void answer(MainLoop& loop, URLOpenCompletion completion, bool opened) noexcept {
    try {
        loop.post([completion = std::move(completion), opened] {
            if (completion) completion(opened);
        });
    } catch (...) {
    }
}

class FileActions {
public:
    FileActions() { ::posix_spawn_file_actions_init(&fa_); }
    ~FileActions() { ::posix_spawn_file_actions_destroy(&fa_); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    posix_spawn_file_actions_t* get() { return &fa_; }

private:
    posix_spawn_file_actions_t fa_;
};

class SpawnAttr {
public:
    SpawnAttr() { ::posix_spawnattr_init(&attr_); }
    ~SpawnAttr() { ::posix_spawnattr_destroy(&attr_); }
    SpawnAttr(const SpawnAttr&) = delete;
    SpawnAttr& operator=(const SpawnAttr&) = delete;
    posix_spawnattr_t* get() { return &attr_; }

private:
    posix_spawnattr_t attr_;
};

// What a desktop opener needs to find the session, the user's handlers and their
// language; nothing else of the host's (tokens, preload paths) reaches the child.
bool passedToOpener(std::string_view entry) {
    static constexpr std::string_view kNames[] = {
        "PATH", "HOME", "USER", "LOGNAME", "LANG", "LANGUAGE", "TZ", "DISPLAY", "WAYLAND_DISPLAY",
        "XAUTHORITY", "DBUS_SESSION_BUS_ADDRESS", "DESKTOP_SESSION", "BROWSER", "KDE_FULL_SESSION",
        "KDE_SESSION_VERSION", "GNOME_DESKTOP_SESSION_ID"};
    static constexpr std::string_view kPrefixes[] = {"LC_", "XDG_"};
    const std::string_view name = entry.substr(0, entry.find('='));
    if (name.size() == entry.size()) return false;
    for (auto n : kNames)
        if (name == n) return true;
    for (auto p : kPrefixes)
        if (name.substr(0, p.size()) == p) return true;
    return false;
}

// Returns the child's pid, or -1 when it could not be started.
pid_t spawnOpener(const std::string& program, const std::string& url) {
    FileActions actions;
    // Descriptors the host opened without O_CLOEXEC must not reach the browser,
    // nor may it read the host's terminal. Running in "/" keeps a URL such as
    // "name:thing" from naming a file in the host's working directory.
    if (::posix_spawn_file_actions_addopen(actions.get(), 0, "/dev/null", O_RDONLY, 0) != 0 ||
        ::posix_spawn_file_actions_addclosefrom_np(actions.get(), 3) != 0 ||
        ::posix_spawn_file_actions_addchdir_np(actions.get(), "/") != 0)
        return -1;

    SpawnAttr attr;
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    // Its own session: the host's Ctrl-C or hang-up does not close the browser, and
    // signals the host ignores or blocks (SIGPIPE, SIGCHLD) are normal again there.
    short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID;
    if (::posix_spawnattr_setflags(attr.get(), flags) != 0 ||
        ::posix_spawnattr_setsigmask(attr.get(), &none) != 0 ||
        ::posix_spawnattr_setsigdefault(attr.get(), &all) != 0)
        return -1;

    std::string arg0 = program, arg1 = url;
    char* argv[] = {arg0.data(), arg1.data(), nullptr};
    std::vector<char*> env;
    for (char** e = environ; e && *e; ++e)
        if (passedToOpener(*e)) env.push_back(*e);
    env.push_back(nullptr);
    pid_t pid = -1;
    if (::posix_spawnp(&pid, program.c_str(), actions.get(), attr.get(), argv, env.data()) != 0)
        return -1;
    return pid;
}

// Through syscall(): this libc's <sys/pidfd.h> lacks C linkage for C++.
int pidfdOpen(pid_t pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    return -1;
#endif
}

struct Child {
    pid_t pid = -1;
    UniqueFd pidfd;  // wakes the worker on exit; none where the kernel has none
    Clock::time_point deadline;
    URLOpenCompletion completion;
    bool answered = false;
};

struct Request {
    std::string url;
    URLOpenCompletion completion;
};

}  // namespace

// Spawns and watches children on a worker that lives only while there is work, so
// an idle opener costs no thread.
class ProgramURLOpener::Spawner {
public:
    Spawner(std::string program, MainLoop& loop, std::chrono::milliseconds patience)
        : loop_(loop), patience_(patience), program_(std::move(program)) {}
    ~Spawner() { shutDown(); }
    Spawner(const Spawner&) = delete;
    Spawner& operator=(const Spawner&) = delete;

    void setProgram(std::string program) {
        std::lock_guard lock(mutex_);
        program_ = std::move(program);
    }

    void submit(std::string url, URLOpenCompletion completion) {
        std::unique_lock lock(mutex_);
        if (stopped_) {
            lock.unlock();
            answer(loop_, std::move(completion), false);
            return;
        }
        queue_.push_back({std::move(url), std::move(completion)});
        if (running_) {
            lock.unlock();
            wake_.signal();
            return;
        }
        try {
            // The previous worker has already left its loop: this join is immediate.
            if (thread_.joinable()) thread_.join();
            thread_ = std::jthread([this](std::stop_token stop) { run(stop); });
            running_ = true;
        } catch (const std::system_error&) {
            Request request = std::move(queue_.back());
            queue_.pop_back();
            lock.unlock();
            answer(loop_, std::move(request.completion), false);
        }
    }

    void shutDown() {
        std::jthread worker;
        {
            std::lock_guard lock(mutex_);
            stopped_ = true;
            worker = std::move(thread_);
        }
        if (!worker.joinable()) return;
        worker.request_stop();
        wake_.signal();
        worker.join();
    }

private:
    void run(std::stop_token stop) {
        std::vector<Child> children;
        try {
            for (;;) {
                std::deque<Request> batch;
                std::string program;
                {
                    std::lock_guard lock(mutex_);
                    if (stop.stop_requested()) {
                        running_ = false;
                        break;
                    }
                    if (queue_.empty() && children.empty()) {
                        running_ = false;
                        return;
                    }
                    batch.swap(queue_);
                    program = program_;
                }
                for (auto& request : batch) {
                    try {
                        start(program, request, children);
                    } catch (...) {
                        // The request fails; the worker and the other requests go on.
                        if (request.completion) answer(loop_, std::move(request.completion), false);
                    }
                }
                reap(children);
                if (!children.empty()) sleep(children);
            }
        } catch (...) {
            // Nothing left to watch with: every pending request fails, once.
            std::deque<Request> rest;
            {
                std::lock_guard lock(mutex_);
                rest.swap(queue_);
                running_ = false;
            }
            for (auto& child : children)
                if (!child.answered) settle(child, false);
            for (auto& request : rest) answer(loop_, std::move(request.completion), false);
            return;
        }
        // Stopped: the children that already exited answer as they exited; the
        // ones still running started, so they count as opened and are left to run.
        reap(children);
        for (auto& child : children)
            if (!child.answered) settle(child, true);
        std::deque<Request> rest;
        {
            std::lock_guard lock(mutex_);
            rest.swap(queue_);
        }
        for (auto& request : rest) answer(loop_, std::move(request.completion), false);
    }

    void start(const std::string& program, Request& request, std::vector<Child>& children) {
        children.reserve(children.size() + 1);  // nothing may throw once the completion moves
        const pid_t pid = spawnOpener(program, request.url);
        if (pid < 0) {
            answer(loop_, std::move(request.completion), false);
            return;
        }
        Child child;
        child.pid = pid;
        child.pidfd.reset(pidfdOpen(pid));
        child.deadline = Clock::now() + patience_;
        child.completion = std::move(request.completion);
        children.push_back(std::move(child));
    }

    // Only our own pids are waited for: the host's children are none of our business.
    void reap(std::vector<Child>& children) {
        const auto now = Clock::now();
        for (auto it = children.begin(); it != children.end();) {
            int status = 0;
            pid_t r;
            do {
                r = ::waitpid(it->pid, &status, WNOHANG);
            } while (r < 0 && errno == EINTR);
            if (r == 0) {
                if (!it->answered && now >= it->deadline) settle(*it, true);
                ++it;
                continue;
            }
            // r < 0 (ECHILD): the host ignores SIGCHLD or reaped it itself; the
            // status is lost, and a program that started counts as opened.
            const bool opened = r < 0 || (WIFEXITED(status) && WEXITSTATUS(status) == 0);
            if (!it->answered) settle(*it, opened);
            it = children.erase(it);
        }
    }

    void settle(Child& child, bool opened) {
        child.answered = true;
        answer(loop_, std::move(child.completion), opened);
    }

    void sleep(const std::vector<Child>& children) {
        std::vector<pollfd> fds{{wake_.fd(), POLLIN, 0}};
        auto timeout = std::chrono::milliseconds::max();
        const auto now = Clock::now();
        for (const auto& child : children) {
            if (child.pidfd)
                fds.push_back({child.pidfd.get(), POLLIN, 0});
            else
                timeout = std::min(timeout, std::chrono::milliseconds(50));
            if (!child.answered)
                timeout = std::min(timeout, std::max(std::chrono::milliseconds(0),
                                                     std::chrono::ceil<std::chrono::milliseconds>(
                                                         child.deadline - now)));
        }
        const int ms = timeout == std::chrono::milliseconds::max()
                           ? -1
                           : static_cast<int>(std::min<std::int64_t>(timeout.count(), 1 << 30));
        if (::poll(fds.data(), fds.size(), ms) > 0 && (fds[0].revents & POLLIN)) wake_.drain();
    }

    MainLoop& loop_;
    const std::chrono::milliseconds patience_;
    const EventSignal wake_;

    std::mutex mutex_;
    std::string program_;
    std::deque<Request> queue_;
    bool running_ = false;
    bool stopped_ = false;
    std::jthread thread_;  // last: joined before the rest goes
};

std::vector<std::string> setAllowedURLSchemes(const std::vector<std::string>& schemes) {
    std::vector<std::string> kept, refused;
    for (const std::string& given : schemes) {
        std::string scheme = asciiLower(given);
        if (!isURLScheme(scheme) || isLocalScheme(scheme)) {
            refused.push_back(given);
        } else if (std::find(kept.begin(), kept.end(), scheme) == kept.end()) {
            kept.push_back(std::move(scheme));
        }
    }
    std::lock_guard lock(schemesMutex());
    hostSchemes() = std::move(kept);
    return refused;
}

ProgramURLOpener::ProgramURLOpener(std::string program, MainLoop& loop, std::chrono::milliseconds patience)
    : loop_(loop), spawner_(std::make_unique<Spawner>(std::move(program), loop, patience)) {}

ProgramURLOpener::~ProgramURLOpener() = default;

void ProgramURLOpener::open(const std::optional<std::string>& url, URLOpenCompletion completion) {
    if (const auto why = refusal(url)) {
        QVDebug("URL opener refused %@: %@", orNull(url), *why);
        answer(loop_, std::move(completion), false);
        return;
    }
    spawner_->submit(*url, std::move(completion));
}

void ProgramURLOpener::setProgram(std::string program) { spawner_->setProgram(std::move(program)); }

void ProgramURLOpener::shutDown() { spawner_->shutDown(); }

URLOpener urlOpenerFor(std::shared_ptr<ProgramURLOpener> opener) {
    return [opener = std::move(opener)](const std::optional<std::string>& url, URLOpenCompletion completion) {
        opener->open(url, std::move(completion));
    };
}

URLOpener makeProgramURLOpener(std::string program, MainLoop& loop, std::chrono::milliseconds patience) {
    return urlOpenerFor(std::make_shared<ProgramURLOpener>(std::move(program), loop, patience));
}

}  // namespace quov::platform
