// Every test binary run is a host that has set its bundle information before setup,
// as a real Linux host must; tests that need a different bundle install a fake
// device platform or change it and restore it.
#include <quov/QuovHost.h>

#include <gtest/gtest.h>

namespace {

class HostBundleEnvironment : public ::testing::Environment {
public:
    void SetUp() override {
        quov::QuovHost::setBundleInfo({{"CFBundleShortVersionString", "1.0"},
                                       {"CFBundleIdentifier", "com.quov.tests"},
                                       {"CFBundleName", "quov-tests"}});
    }
};

[[maybe_unused]] ::testing::Environment* const registered =
    ::testing::AddGlobalTestEnvironment(new HostBundleEnvironment);

}  // namespace
