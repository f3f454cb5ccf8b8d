// The longest single drain() of the main loop while the SDK handles the largest
// answers the transport accepts, as worst_drain_ms; and what an empty bid costs.
// BM_WorstDrain_FourMiBOfEmptyBids: a load whose answer is 4 MiB of "{}," bids,
// through the facade (no key window, so the first bid ends in onQuovSDKAdLoadFailed).
// BM_WorstDrain_FourMiBImpressionURL: reporting an impression address of 4 MiB with
// a "__MAC__" every eight bytes, against a loopback server, all three attempts.
#include <quov/Log.h>
#include <quov/MainLoop.h>
#include <quov/QVBidModel.h>
#include <quov/QuovAd.h>
#include <quov/QuovHost.h>

#include "network/BidResponse.h"
#include "network/Tracking.h"
#include "platform/Context.h"
#include "bench/BenchServer.h"

#include <benchmark/benchmark.h>
#include <httplib.h>
#include <malloc.h>
#include <nlohmann/json.hpp>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

namespace {

using namespace quov;
using Clock = std::chrono::steady_clock;

const std::string& emptyBidsAnswer() {
    static const std::string body = [] {
        std::string bids;
        while (bids.size() < (4u << 20) - 64) bids += "{},";
        bids.pop_back();
        return R"({"seatbid":[{"bid":[)" + bids + "]}]}";
    }();
    return body;
}

bench::BenchServer& server() {
    static bench::BenchServer s([](httplib::Server& http) {
        http.Post("/network", [](const httplib::Request&, httplib::Response& res) {
            res.set_content(emptyBidsAnswer(), "application/json");
        });
        http.Get("/imp", [](const httplib::Request&, httplib::Response& res) { res.status = 200; });
    });
    return s;
}

void configure() {
    static const bool done = [] {
        setLogSink([](const std::string&) {});  // the host's log handler is not the SDK's cost
        QuovHost::setBundleInfo({{"CFBundleShortVersionString", "1.0"},
                                 {"CFBundleIdentifier", "com.quov.bench"},
                                 {"CFBundleName", "quov-bench"}});
        QuovAd::shared().setupWithAppId(std::string("bench"), std::string("key"));
        return true;
    }();
    (void)done;
}

// Drains as a host would (on the loop's descriptor) until done(); the longest drain in ms.
double worstDrainUntil(const std::function<bool()>& done) {
    MainLoop& loop = MainLoop::shared();
    double worst = 0;
    const auto giveUp = Clock::now() + std::chrono::seconds(60);
    while (!done() && Clock::now() < giveUp) {
        pollfd p{loop.fd(), POLLIN, 0};
        ::poll(&p, 1, 10);
        const auto start = Clock::now();
        loop.drain();
        worst = std::max(worst, std::chrono::duration<double, std::milli>(Clock::now() - start).count());
    }
    return worst;
}

struct Outcome : QuovAdDelegate {
    bool ended = false;
    void onQuovSDKAdLoaded() override { ended = true; }
    void onQuovSDKAdLoadFailed(const Error&) override { ended = true; }
};

// Heap held per bid of an answer of empty bids, the vector's slot included. First,
// while no worker frees an earlier load's bids under the count.
void BM_BytesPerEmptyBid(benchmark::State& state) {
    platform::HttpResponse answer;
    answer.transportOk = true;
    answer.status = 200;
    answer.contentType = "application/json";
    answer.body = emptyBidsAnswer();
    double perBid = 0, bids = 0;
    for (auto _ : state) {
        const std::size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
        network::BidResponse parsed = network::parseBidResponse(answer);
        const std::size_t after = mallinfo2().uordblks + mallinfo2().hblkhd;
        if (parsed.bids.empty()) state.SkipWithError("the answer did not parse");
        perBid = static_cast<double>(after - before) / static_cast<double>(parsed.bids.size());
        bids = static_cast<double>(parsed.bids.size());
    }
    state.counters["bids"] = bids;
    state.counters["bytes_per_bid"] = perBid;
    state.counters["bytes_per_body_byte"] = perBid * bids / static_cast<double>(answer.body.size());
}
BENCHMARK(BM_BytesPerEmptyBid)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_WorstDrain_FourMiBOfEmptyBids(benchmark::State& state) {
    configure();
    platform::Context::ScopedServiceBase base(platform::Context::shared(), server().base());
    auto outcome = std::make_shared<Outcome>();
    QuovAd::shared().setDelegate(outcome);
    double worst = 0;
    for (auto _ : state) {
        outcome->ended = false;
        QuovAd::shared().loadAdWithAdId(std::string("slot"));
        worst = std::max(worst, worstDrainUntil([&] { return outcome->ended; }));
        if (!outcome->ended) state.SkipWithError("the load did not end");
    }
    QuovAd::shared().setDelegate(std::weak_ptr<QuovAdDelegate>());
    state.counters["worst_drain_ms"] = worst;
}
BENCHMARK(BM_WorstDrain_FourMiBOfEmptyBids)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_WorstDrain_FourMiBImpressionURL(benchmark::State& state) {
    configure();
    std::string url = server().base() + "/imp?";
    while (url.size() < (4u << 20)) url += "__MAC__&";
    auto bid = QVBidModel::initWithDict(nlohmann::json{{"check_views", {url}}});
    double worst = 0;
    for (auto _ : state) {
        // Reported from inside a drain, as the view does when it shows the bid.
        MainLoop::shared().post([bid] { bid->reportAdShow(); });
        worst = std::max(worst, worstDrainUntil([] {
                             return MainLoop::shared().pending() == 0 && network::pendingTrackingRequests() == 0;
                         }));
    }
    state.counters["worst_drain_ms"] = worst;
}
BENCHMARK(BM_WorstDrain_FourMiBImpressionURL)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace
