#include <quov/QVDeviceInfo.h>
#include <quov/QuovHost.h>

#include "platform/device/linux_device.h"
#include "tests/support/fake_device.h"
#include "platform/Context.h"

#include <benchmark/benchmark.h>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>

namespace {

const std::map<std::string, std::string> kBundle = {{"CFBundleShortVersionString", "1.0"},
                                                     {"CFBundleIdentifier", "com.quov.bench"},
                                                     {"CFBundleName", "quov-bench"}};

void configureHost() { quov::QuovHost::setBundleInfo(kBundle); }

}  // namespace

// The whole record on the real Linux platform: built at setup and on every ad request.
static void BM_DeviceInfo(benchmark::State& state) {
    configureHost();
    for (auto _ : state) benchmark::DoNotOptimize(quov::QVDeviceInfo::deviceInfo());
}
BENCHMARK(BM_DeviceInfo);

// The record from a platform that has read nothing yet: what the first record of a
// process pays, and what any record pays for the live facts once they are stale.
static void BM_DeviceInfoFreshPlatform(benchmark::State& state) {
    for (auto _ : state) {
        auto p = std::make_shared<quov::platform::LinuxDevicePlatform>();
        p->setBundleInfo(kBundle);
        quov::platform::Context::ScopedDevicePlatform scope(quov::platform::Context::shared(), p);
        benchmark::DoNotOptimize(quov::QVDeviceInfo::deviceInfo());
    }
}
BENCHMARK(BM_DeviceInfoFreshPlatform);

// Called once per tracking URL by the macros; reads the routing table and sysfs each time.
static void BM_GetMacAddress(benchmark::State& state) {
    configureHost();
    for (auto _ : state) benchmark::DoNotOptimize(quov::QVDeviceInfo::getMacAddress());
}
BENCHMARK(BM_GetMacAddress);

// The same record with every fact answered from memory: the baseline that shows what
// the Linux sources cost on top of the rules themselves.
static void BM_DeviceInfoBaselineFake(benchmark::State& state) {
    quov::platform::Context::ScopedDevicePlatform scope(quov::platform::Context::shared(),
                                                        std::make_shared<quov::platform::FakeDevicePlatform>());
    for (auto _ : state) benchmark::DoNotOptimize(quov::QVDeviceInfo::deviceInfo());
}
BENCHMARK(BM_DeviceInfoBaselineFake);

// setupWithAppId in a fresh process, the way a host pays it once at start: each
// iteration runs quov-setup-probe and takes the setup thread's CPU time (the
// manual time); "wall_us" is the same call's wall time, waits included.
static void BM_SetupWithAppId(benchmark::State& state) {
    const std::string probe = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "quov-setup-probe";
    double wallTotal = 0;
    for (auto _ : state) {
        int out[2];
        if (::pipe2(out, O_CLOEXEC) != 0) return state.SkipWithError("pipe");
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        char* argv[] = {const_cast<char*>(probe.c_str()), nullptr};
        pid_t pid = -1;
        const int spawned = ::posix_spawn(&pid, probe.c_str(), &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(out[1]);
        std::string text;
        char buf[128];
        for (ssize_t n; (n = ::read(out[0], buf, sizeof buf)) > 0;) text.append(buf, static_cast<std::size_t>(n));
        ::close(out[0]);
        int status = 0;
        if (spawned == 0) ::waitpid(pid, &status, 0);
        long long cpu = 0, wall = 0;
        if (spawned != 0 || std::sscanf(text.c_str(), "%lld %lld", &cpu, &wall) != 2)
            return state.SkipWithError("quov-setup-probe did not run");
        state.SetIterationTime(static_cast<double>(cpu) / 1e9);
        wallTotal += static_cast<double>(wall) / 1e3;
    }
    state.counters["wall_us"] = benchmark::Counter(wallTotal, benchmark::Counter::kAvgIterations);
}
BENCHMARK(BM_SetupWithAppId)->UseManualTime()->Unit(benchmark::kMicrosecond)->Iterations(40);
