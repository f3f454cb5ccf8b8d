// A host that leaves with a load and trackers in flight against a slow loopback
// server: `quov-exit-host MODE DELAY_MS`, MODE one of return, exit, flush, static.
// Exit 0 when it left cleanly; 3 when flush() outlasted its time-out.
#include <quov/MainLoop.h>
#include <quov/QVRequestHelper.h>
#include <quov/QuovAd.h>
#include <quov/QuovHost.h>

#include "platform/Context.h"
#include "support/FaultServer.h"
#include "tests/support/fake_device.h"

#include <cstdio>
#include <cstdlib>
#include <string>

using namespace std::chrono_literals;

namespace {

constexpr auto kFlushTimeout = 300ms;
bool flushInStaticDestructor = false;

// Built before main, so destroyed after everything main started: the latest a host can flush.
struct FlushAtExit {
    ~FlushAtExit() {
        if (flushInStaticDestructor) quov::QuovAd::shared().flush(kFlushTimeout);
    }
} flushAtExit;

}  // namespace

int main(int argc, char** argv) {
    if (argc != 3) return std::fprintf(stderr, "usage: %s return|exit|flush|static DELAY_MS\n", argv[0]), 2;
    const std::string mode = argv[1];
    // Answers after 400 ms, so whatever the delay some work is on the wire.
    static quov::test::FaultServer server([](quov::test::FaultServer::Conn& c) {
        if (c.pause(400))
            c.send("HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: 2\r\nConnection: close\r\n\r\n{}");
    });
    // A scripted device: this host has no bundle of its own.
    static quov::platform::Context::ScopedDevicePlatform device(quov::platform::Context::shared(),
                                                                std::make_shared<quov::platform::FakeDevicePlatform>());
    quov::QuovHost::setBidServerBase(server.base());
    quov::QuovAd::shared().setupWithAppId(std::string("exit"), std::string("key"));
    quov::QuovAd::shared().loadAdWithAdId(std::string("slot"));
    for (int i = 0; i < 8; ++i)
        quov::QVRequestHelper::getURLWithRetry(server.base() + "/t?i=" + std::to_string(i), 3, {}, {});
    quov::MainLoop::shared().runUntil([] { return false; }, std::chrono::milliseconds(std::atoi(argv[2])));

    if (mode == "exit") std::exit(0);
    flushInStaticDestructor = mode == "static";
    if (mode == "flush") {
        const auto start = std::chrono::steady_clock::now();
        quov::QuovAd::shared().flush(kFlushTimeout);
        if (std::chrono::steady_clock::now() - start > kFlushTimeout + 200ms) return 3;
    }
    return 0;
}
