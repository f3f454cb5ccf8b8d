// Every test binary is a host that set its bundle information before setup, as a real
// Linux host must; tests that need another bundle install a fake device platform.
#include <quov/QuovHost.h>

#include <gtest/gtest.h>

namespace {

struct HostBundleEnvironment : ::testing::Environment {
    void SetUp() override {
        quov::QuovHost::setBundleInfo({{"CFBundleShortVersionString", "1.0"},
                                       {"CFBundleIdentifier", "com.quov.tests"},
                                       {"CFBundleName", "quov-tests"}});
    }
};

[[maybe_unused]] ::testing::Environment* const registered = ::testing::AddGlobalTestEnvironment(new HostBundleEnvironment);

}  // namespace
