// The ad network against raw libcurl on the same loopback server, in one run.
// Pairs to compare: BM_BidRoundTrip_Sdk / BM_BidRoundTrip_RawCurlSameWork (the same
// work; BM_BidRoundTrip_RawCurl reuses one connection and a prebuilt body) and
// BM_TrackingFanout_Sdk / BM_TrackingFanout_RawCurlMulti. BM_MainThreadPerLoad
// is what one load costs the host's thread.
#include <quov/Log.h>
#include <quov/MainLoop.h>
#include <quov/QVBidModel.h>
#include <quov/QVRequestHelper.h>
#include <quov/QuovAd.h>
#include <quov/QuovHost.h>

#include "network/BidRequest.h"
#include "bench/BenchServer.h"
#include "platform/Context.h"
#include "network/BidServerBase.h"
#include "network/ResponseRule.h"
#include "platform/runtime/Log.h"

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <time.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using json = nlohmann::json;

constexpr int kFanout = 1000;
// The SDK's own per-host limit, so both sides of the fan-out pair open the same connections.
constexpr long kConnectionsPerHost = 6;

const std::string& bidAnswer() {
    static const std::string body = [] {
        json bid = {{"id", "bench-bid"},
                    {"adType", 1},
                    {"click_url", "https://landing.example.test/x"},
                    {"deeplink_url", "app://open"},
                    {"check_views", {"http://127.0.0.1:1/v?i=__IDFA__", "http://127.0.0.1:1/v2?m=__MAC__"}},
                    {"check_clicks", {"http://127.0.0.1:1/c?x=__ABS_DOWN_X__"}},
                    {"images", {{{"url", "http://127.0.0.1:1/a.png"}, {"w", 640}, {"h", 960}}}}};
        return json{{"id", "r"}, {"seatbid", {{{"bid", {bid}}}}}}.dump();
    }();
    return body;
}

// One loopback server for the whole run.
quov::bench::BenchServer& server() {
    static quov::bench::BenchServer s([](httplib::Server& http) {
        http.Post("/network", [](const httplib::Request&, httplib::Response& res) {
            res.set_content(bidAnswer(), "application/json");
        });
        http.Get("/imp", [](const httplib::Request&, httplib::Response& res) { res.status = 200; });
    });
    return s;
}

void configureSdk() {
    static bool done = [] {
        quov::setLogSink([](const std::string&) {});  // the tracking lines would drown the figures
        quov::QuovHost::setBundleInfo({{"CFBundleShortVersionString", "1.0"},
                                       {"CFBundleIdentifier", "com.quov.bench"},
                                       {"CFBundleName", "quov-bench"}});
        quov::QuovAd::shared().setupWithAppId(std::string("bench"), std::string("key"));
        // Kept for the process: every benchmark here talks to this server.
        static quov::platform::Context::ScopedServiceBase base(quov::platform::Context::shared(), server().base());
        return true;
    }();
    (void)done;
}

size_t discard(char*, size_t size, size_t count, void*) { return size * count; }

void BM_BidRoundTrip_Sdk(benchmark::State& state) {
    configureSdk();
    auto& loop = quov::MainLoop::shared();
    for (auto _ : state) {
        std::size_t bids = 0;
        bool done = false;
        quov::QVRequestHelper::loadAdWithAdId(std::string("slot"),
                                              [&](std::vector<quov::QVBidModelPtr> b, std::optional<quov::Error>) {
                                                  bids = b.size();
                                                  done = true;
                                              });
        loop.runUntil([&] { return done; }, std::chrono::seconds(10));
        if (bids != 1) state.SkipWithError("the load did not yield the bid");
    }
}
BENCHMARK(BM_BidRoundTrip_Sdk)->UseRealTime()->MeasureProcessCPUTime();

void BM_BidRoundTrip_RawCurl(benchmark::State& state) {
    configureSdk();
    const auto inputs = quov::network::gatherBidRequestInputs();
    const std::string body = quov::network::buildBidRequest(inputs).dump();
    const std::string url = server().base() + "/network?appid=bench";
    CURL* easy = curl_easy_init();
    curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
    headers = curl_slist_append(headers, "appkey: key");
    std::string answer;
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
    curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION,
                     +[](char* d, size_t s, size_t n, void* u) {
                         static_cast<std::string*>(u)->append(d, s * n);
                         return s * n;
                     });
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
    for (auto _ : state) {
        answer.clear();
        if (curl_easy_perform(easy) != CURLE_OK) state.SkipWithError("raw POST failed");
        benchmark::DoNotOptimize(answer.data());
    }
    curl_slist_free_all(headers);
    curl_easy_cleanup(easy);
}
BENCHMARK(BM_BidRoundTrip_RawCurl)->UseRealTime();

// The fair baseline: raw libcurl doing what a load does, on the calling thread:
// gather the device facts and build the same body, POST it on a fresh
// connection, and parse the answer into bids.
void BM_BidRoundTrip_RawCurlSameWork(benchmark::State& state) {
    configureSdk();
    const std::string url = server().base() + "/network?appid=bench";
    std::string answer;
    for (auto _ : state) {
        const auto inputs = quov::network::gatherBidRequestInputs();
        const std::string body = quov::network::buildBidRequest(inputs).dump();
        CURL* easy = curl_easy_init();
        curl_slist* headers = curl_slist_append(nullptr, "Content-Type: application/json");
        headers = curl_slist_append(headers, "appkey: key");
        answer.clear();
        curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
        curl_easy_setopt(easy, CURLOPT_POSTFIELDS, body.c_str());
        curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, +[](char* d, size_t s, size_t n, void* u) {
            static_cast<std::string*>(u)->append(d, s * n);
            return s * n;
        });
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, &answer);
        if (curl_easy_perform(easy) != CURLE_OK) state.SkipWithError("raw POST failed");
        curl_slist_free_all(headers);
        curl_easy_cleanup(easy);
        const json document = json::parse(answer, nullptr, false);
        if (quov::network::bidsFromResponse(&document).size() != 1) state.SkipWithError("the answer did not parse");
    }
}
BENCHMARK(BM_BidRoundTrip_RawCurlSameWork)->UseRealTime();

std::vector<std::string> impressionUrls() {
    std::vector<std::string> urls;
    for (int i = 0; i < kFanout; ++i) urls.push_back(server().base() + "/imp?n=" + std::to_string(i) + "&d=__IDFA__");
    return urls;
}

double threadCpuMicros() {
    timespec t{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) * 1e6 + static_cast<double>(t.tv_nsec) / 1e3;
}

// x_main_cpu_us: the host thread's CPU per tracker (reportAdShow and the drains that
// deliver the outcomes), apart from the workers' share in the cpu column.
void BM_TrackingFanout_Sdk(benchmark::State& state) {
    configureSdk();
    auto bid = quov::QVBidModel::initWithDict(json{{"check_views", impressionUrls()}});
    double mainCpu = 0;
    for (auto _ : state) {
        const double before = threadCpuMicros();
        bid->reportAdShow();
        if (!quov::QuovAd::shared().flush(std::chrono::seconds(60))) state.SkipWithError("flush timed out");
        mainCpu += threadCpuMicros() - before;
    }
    state.SetItemsProcessed(state.iterations() * kFanout);
    state.counters["x_main_cpu_us"] =
        benchmark::Counter(mainCpu / kFanout, benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_TrackingFanout_Sdk)->UseRealTime()->MeasureProcessCPUTime()->Unit(benchmark::kMillisecond);

// The same trackers through one curl multi handle on the calling thread, with the
// SDK's connection policy (a fresh connection per request, at most 128 open) and the
// macros filled in the loop; reuse=1 is the old row: kept-alive connections, 6 a host.
void BM_TrackingFanout_RawCurlMulti(benchmark::State& state) {
    configureSdk();
    const bool reuse = state.range(0) != 0;
    const std::vector<std::string> raw = impressionUrls();
    CURLM* multi = curl_multi_init();
    if (reuse)
        curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, kConnectionsPerHost);
    else
        curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, 128L);
    std::vector<std::string> urls(raw.size());
    for (auto _ : state) {
        std::vector<CURL*> handles;
        for (std::size_t i = 0; i < raw.size(); ++i) {
            urls[i] = quov::QVRequestHelper::formatURL(raw[i]);
            const std::string& u = urls[i];
            CURL* e = curl_easy_init();
            curl_easy_setopt(e, CURLOPT_URL, u.c_str());
            curl_easy_setopt(e, CURLOPT_NOSIGNAL, 1L);
            if (!reuse) {
                curl_easy_setopt(e, CURLOPT_FRESH_CONNECT, 1L);
                curl_easy_setopt(e, CURLOPT_FORBID_REUSE, 1L);
            }
            curl_easy_setopt(e, CURLOPT_WRITEFUNCTION, discard);
            curl_multi_add_handle(multi, e);
            handles.push_back(e);
        }
        int running = 1;
        while (running) {
            curl_multi_perform(multi, &running);
            if (running) curl_multi_poll(multi, nullptr, 0, 1000, nullptr);
        }
        int queued = 0;
        while (CURLMsg* m = curl_multi_info_read(multi, &queued))
            if (m->msg == CURLMSG_DONE && m->data.result != CURLE_OK) state.SkipWithError("raw GET failed");
        for (CURL* e : handles) {
            curl_multi_remove_handle(multi, e);
            curl_easy_cleanup(e);
        }
    }
    curl_multi_cleanup(multi);
    state.SetItemsProcessed(state.iterations() * kFanout);
}
BENCHMARK(BM_TrackingFanout_RawCurlMulti)
    ->Arg(0)
    ->Arg(1)
    ->ArgName("reuse")
    ->UseRealTime()
    ->MeasureProcessCPUTime()
    ->Unit(benchmark::kMillisecond);

// Everything a load does on the host's thread, without the wire: the device
// record and the request, then parsing the answer and running the completion.
void BM_MainThreadPerLoad(benchmark::State& state) {
    configureSdk();
    quov::platform::HttpResponse answer;
    answer.transportOk = true;
    answer.status = 200;
    answer.contentType = "application/json";
    answer.body = bidAnswer();
    for (auto _ : state) {
        const auto inputs = quov::network::gatherBidRequestInputs();
        const json document = quov::network::buildBidRequest(inputs);
        auto request = quov::network::makeBidHttpRequest(inputs, document, server().base());
        benchmark::DoNotOptimize(request.body.data());
        std::size_t bids = 0;
        quov::network::completeBidRequest(
            answer, [&](std::vector<quov::QVBidModelPtr> b, std::optional<quov::Error>) { bids = b.size(); });
        if (bids != 1) state.SkipWithError("the answer did not parse");
    }
}
BENCHMARK(BM_MainThreadPerLoad)->Unit(benchmark::kMicrosecond);

// A hostile impression URL: 4 MiB with a "__MAC__" every eight bytes. Filling it
// runs on the host's thread when the impression is reported.
void BM_MacroFill_Dense4MiB(benchmark::State& state) {
    configureSdk();
    std::string url = "http://127.0.0.1/i?";
    while (url.size() < (4u << 20)) url += "__MAC__&";
    for (auto _ : state) {
        std::string filled = quov::QVRequestHelper::formatURL(url);
        benchmark::DoNotOptimize(filled.data());
    }
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(url.size()));
}
BENCHMARK(BM_MacroFill_Dense4MiB)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace
