#include <quov/MainLoop.h>

#include <benchmark/benchmark.h>

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

// Posting from a worker while the main thread drains.
static void BM_MainLoopCrossThread(benchmark::State& state) {
    quov::MainLoop loop;
    for (auto _ : state) {
        int got = 0;
        std::thread worker([&] {
            for (int i = 0; i < 100; ++i) loop.post([&got] { ++got; });
        });
        loop.runUntil([&] { return got == 100; }, std::chrono::seconds(10));
        worker.join();
    }
}
BENCHMARK(BM_MainLoopCrossThread);
