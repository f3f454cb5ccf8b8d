// One first setup in a fresh process, as a host does it: prints the calling
// thread's CPU time and the wall time that setupWithAppId took, in nanoseconds.
#include <quov/QuovAd.h>
#include <quov/QuovHost.h>

#include <time.h>

#include <cstdio>

namespace {

long long nanos(clockid_t clock) {
    timespec t{};
    ::clock_gettime(clock, &t);
    return t.tv_sec * 1000000000LL + t.tv_nsec;
}

}  // namespace

int main() {
    quov::QuovHost::setBundleInfo({{"CFBundleShortVersionString", "1.0"},
                                   {"CFBundleIdentifier", "com.quov.bench"},
                                   {"CFBundleName", "quov-bench"}});
    quov::QuovAd& ad = quov::QuovAd::shared();
    const long long cpu0 = nanos(CLOCK_THREAD_CPUTIME_ID), wall0 = nanos(CLOCK_MONOTONIC);
    ad.setupWithAppId(std::string("bench-app"), std::string("bench-key"));
    const long long cpu1 = nanos(CLOCK_THREAD_CPUTIME_ID), wall1 = nanos(CLOCK_MONOTONIC);
    std::printf("%lld %lld\n", cpu1 - cpu0, wall1 - wall0);
    return 0;
}
