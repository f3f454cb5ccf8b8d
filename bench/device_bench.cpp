#include <quov/QVDeviceInfo.h>
#include <quov/QuovHost.h>

#include "platform/device/linux_device.h"
#include "tests/support/fake_device.h"
#include "platform/Context.h"

#include <benchmark/benchmark.h>

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
