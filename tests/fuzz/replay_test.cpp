// Every saved fuzz input (the seed corpus and each input that once broke something)
// runs through its target in the ordinary suite, so a fixed fault stays fixed.
#include "fuzz/FuzzTargets.h"

#include <quov/QuovAd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

namespace {

namespace fs = std::filesystem;

void replay(const std::string& name, void (*target)(const std::uint8_t*, std::size_t)) {
    std::size_t inputs = 0;
    for (const fs::path& dir : {fs::path(QUOV_TEST_SOURCE_DIR) / "fuzz" / "corpus" / name,
                               fs::path(QUOV_TEST_SOURCE_DIR) / "tests" / "fuzzing-failures" / name}) {
        if (!fs::is_directory(dir)) continue;
        for (const auto& entry : fs::directory_iterator(dir)) {
            if (!entry.is_regular_file()) continue;
            std::ifstream in(entry.path(), std::ios::binary);
            const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
            SCOPED_TRACE(entry.path().string());
            target(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
            ++inputs;
        }
    }
    EXPECT_GT(inputs, 0u) << "no saved inputs for " << name;
}

TEST(FuzzReplay, BidResponse) { replay("bid_response", quov::fuzz::bidResponse); }
TEST(FuzzReplay, Image) { replay("image", quov::fuzz::image); }
TEST(FuzzReplay, Url) { replay("url", quov::fuzz::url); }
TEST(FuzzReplay, Macros) {
    const auto imei = quov::QuovAd::shared().IMEI(), oaid = quov::QuovAd::shared().OAID();
    replay("macros", quov::fuzz::macros);
    quov::QuovAd::shared().setIMEI(imei);
    quov::QuovAd::shared().setOAID(oaid);
}
TEST(FuzzReplay, Request) { replay("request", quov::fuzz::request); }

}  // namespace
