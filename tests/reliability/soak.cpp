// `quov-soak [LOADS]` (default 10000): view-path loads, headless through the RGBA frame API,
// each loaded, drawn and closed by a key. Fails when resident memory grew by 1 MiB or more
// after the first 1,000 loads (or half of a shorter run), or descriptors or threads did not
// come back. The bid server runs in a child: its threads' heaps are not the SDK's growth.
#include <quov/Log.h>
#include <quov/MainLoop.h>
#include <quov/QuovAd.h>
#include <quov/QuovFrame.h>
#include <quov/QuovHost.h>

#include "platform/Context.h"
#include "support/RecordingDelegate.h"
#include "tests/support/fake_device.h"
#include "tools/bid_server/BidServer.h"

#include <malloc.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

long statusField(const char* name) {  // a /proc/self/status number (kB for sizes)
    std::ifstream status("/proc/self/status");
    std::string key;
    long value = -1;
    while (status >> key && key != name) {}
    status >> value;
    return value;
}

// Freed memory the allocator still holds is not growth: hand it back before sampling.
long residentKiB() {
    malloc_trim(0);
    return statusField("VmRSS:");
}

long openDescriptors() {  // less the iterator's own
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}) - 1;
}

// Forked before any thread exists; the child serves until the soak's SIGTERM.
std::string startServerProcess(pid_t& child) {
    int fds[2];
    if (::pipe(fds) != 0 || (child = ::fork()) < 0) return {};
    if (child == 0) {
        ::close(fds[0]);
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        quov::tools::BidServer server{quov::tools::BidServerOptions{}};
        server.start();
        const std::string base = server.baseUrl() + "\n";
        if (::write(fds[1], base.data(), base.size()) != static_cast<ssize_t>(base.size())) ::_exit(1);
        ::pause();
        ::_exit(0);
    }
    ::close(fds[1]);
    std::string base;
    char c;
    while (::read(fds[0], &c, 1) == 1 && c != '\n') base += c;
    ::close(fds[0]);
    return base;
}

// The loopback server closes its side of the last connections on its own threads.
void settle(quov::MainLoop& loop) { loop.runUntil([] { return false; }, std::chrono::milliseconds(300)); }

}  // namespace

int main(int argc, char** argv) {
    using namespace quov;
    const long loads = argc > 1 ? std::atol(argv[1]) : 10000;
    const long warmUp = std::min(1000L, loads / 2);

    pid_t serverPid = -1;
    const std::string serverBase = startServerProcess(serverPid);
    if (serverBase.empty()) return std::fprintf(stderr, "soak: the bid server did not start\n"), 1;
    struct StopServer {
        pid_t pid;
        ~StopServer() {
            ::kill(pid, SIGTERM);
            ::waitpid(pid, nullptr, 0);
        }
    } stopServer{serverPid};

    setLogHandler([](LogLevel, const std::string&) {});  // a line per load would swamp the figures
    platform::Context::ScopedDevicePlatform device(platform::Context::shared(),
                                                   std::make_shared<platform::FakeDevicePlatform>());
    QuovHost::setBidServerBase(serverBase);
    frame::attachSurface(375, 812, 1.0);
    std::vector<std::uint8_t> pixels(375 * 812 * 4);

    auto delegate = std::make_shared<test::RecordingDelegate>();
    QuovAd& ad = QuovAd::shared();
    ad.setupWithAppId(std::string("soak"), std::string("key"));
    ad.setDelegate(delegate);
    MainLoop& loop = MainLoop::shared();

    long rssAtWarmUp = 0, fdsAtWarmUp = 0, threadsAtWarmUp = 0;
    for (long i = 0; i < loads; ++i) {
        if (i == warmUp) {
            settle(loop);
            rssAtWarmUp = residentKiB();
            fdsAtWarmUp = openDescriptors();
            threadsAtWarmUp = statusField("Threads:");
        }
        delegate->calls.clear();
        ad.loadAdWithAdId(std::string("slot"));
        const bool shown = loop.runUntil([&] { return delegate->calls.size() >= 2; }, std::chrono::seconds(20));
        if (!shown || delegate->calls != std::vector<std::string>{"loaded", "displayed"})
            return std::fprintf(stderr, "soak: load %ld ended with %zu calls\n", i, delegate->calls.size()), 1;
        // Until the image is in and drawn, then closed by a key; the impression done.
        loop.runUntil([&] { return ad.flush({}); }, std::chrono::seconds(20));
        if (frame::needsDisplay()) frame::draw(pixels.data(), 375, 812, 375 * 4);
        frame::key(frame::Key::Escape, true);
        frame::key(frame::Key::Escape, false);
        if (!loop.runUntil([&] { return delegate->calls.size() == 3 && ad.flush({}); }, std::chrono::seconds(20)))
            return std::fprintf(stderr, "soak: load %ld was not closed\n", i), 1;
    }
    settle(loop);
    const long rssGrowth = residentKiB() - rssAtWarmUp;
    const long fds = openDescriptors(), threads = statusField("Threads:");
    std::printf("soak: %ld loads; after load %ld: RSS %+ld KiB, descriptors %ld -> %ld, threads %ld -> %ld\n", loads,
                warmUp, rssGrowth, fdsAtWarmUp, fds, threadsAtWarmUp, threads);
    // Under a sanitizer freed memory is held back, so only descriptors and threads count there.
    const bool ok = (QUOV_SANITIZED || rssGrowth < 1024) && fds <= fdsAtWarmUp && threads <= threadsAtWarmUp;
    std::printf("soak: %d passed, %d failed\n", ok ? 1 : 0, ok ? 0 : 1);
    return ok ? 0 : 1;
}
