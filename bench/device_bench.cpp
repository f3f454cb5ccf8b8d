#include <quov/QVDeviceInfo.h>
#include <quov/QuovHost.h>

#include "tests/support/fake_device.h"
#include "platform/Context.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

void configureHost() {
    quov::QuovHost::setBundleInfo({{"CFBundleShortVersionString", "1.0"},
                                   {"CFBundleIdentifier", "com.quov.bench"},
                                   {"CFBundleName", "quov-bench"}});
}

}  // namespace

// The whole record on the real Linux platform: built at setup and on every ad request.
static void BM_DeviceInfo(benchmark::State& state) {
    configureHost();
    for (auto _ : state) benchmark::DoNotOptimize(quov::QVDeviceInfo::deviceInfo());
}
BENCHMARK(BM_DeviceInfo);

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
