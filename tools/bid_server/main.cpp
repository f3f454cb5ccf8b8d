#include "tools/bid_server/BidServer.h"

#include <csignal>
#include <cstdio>
#include <exception>
#include <pthread.h>

using namespace quov::tools;

int main(int argc, char** argv) {
    BidServerArguments args = parseBidServerArguments(std::vector<std::string>(argv + 1, argv + argc));
    if (!args.error.empty()) {
        std::fprintf(stderr, "quov-bid-server: %s\ntry 'quov-bid-server --help'\n", args.error.c_str());
        return 2;
    }
    if (args.help) {
        std::fputs(bidServerUsage().c_str(), stdout);
        return 0;
    }
    if (!args.quiet)
        args.options.log = [](const std::string& text) {
            std::fputs(text.c_str(), stderr);
            std::fflush(stderr);
        };

    // Blocked before any thread starts, so every server thread inherits the mask and
    // the signals wait for sigwait below.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    BidServer server(args.options);
    try {
        server.start();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "quov-bid-server: %s\n", e.what());
        return 1;
    }
    std::printf("listening on %s\n", server.baseUrl().c_str());
    std::fflush(stdout);
    std::fprintf(stderr, "scenario %s; Ctrl-C to stop\n", scenarioName(args.options.scenario).c_str());

    int received = 0;
    sigwait(&signals, &received);
    server.stop();
    std::fputs(server.summary().c_str(), stderr);
    return 0;
}
