#include <quov/MainLoop.h>

#include <benchmark/benchmark.h>

#include <atomic>
#include <semaphore>
#include <thread>

// The cost every SDK callback pays to reach the host's thread.
static void BM_MainLoopPostDrain(benchmark::State& state) {
    quov::MainLoop loop;
    int sink = 0;
    for (auto _ : state) {
        loop.post([&sink] { ++sink; });
        loop.drain();
    }
    benchmark::DoNotOptimize(sink);
}
BENCHMARK(BM_MainLoopPostDrain);

// A worker posting while the main thread sleeps on the fd: one round trip per
// iteration (kick the worker, it posts N tasks, the main thread wakes and runs
// them). The worker lives across iterations so thread creation stays out.
static void BM_MainLoopCrossThread(benchmark::State& state) {
    const int perKick = static_cast<int>(state.range(0));
    quov::MainLoop loop;
    std::counting_semaphore<> kick(0);
    std::atomic<bool> stop{false};
    int got = 0;
    std::thread worker([&] {
        for (;;) {
            kick.acquire();
            if (stop.load()) return;
            for (int i = 0; i < perKick; ++i) loop.post([&got] { ++got; });
        }
    });
    for (auto _ : state) {
        got = 0;
        kick.release();
        loop.runUntil([&] { return got == perKick; }, std::chrono::seconds(10));
    }
    stop = true;
    kick.release();
    worker.join();
    state.SetItemsProcessed(state.iterations() * perKick);
}
BENCHMARK(BM_MainLoopCrossThread)->Arg(1)->Arg(100)->MeasureProcessCPUTime()->UseRealTime();
