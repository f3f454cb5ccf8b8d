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

TEST(FuzzReplay, EverySavedInputRunsThroughItsTarget) {
    const auto imei = quov::QuovAd::shared().IMEI(), oaid = quov::QuovAd::shared().OAID();
    using namespace quov::fuzz;
    using Target = void (*)(const std::uint8_t*, std::size_t);
    const std::pair<const char*, Target> targets[] = {
        {"bid_response", bidResponse}, {"image", image}, {"url", url}, {"macros", macros}, {"request", request}};
    for (const auto& [name, target] : targets) {
        std::size_t inputs = 0;
        for (const char* root : {"fuzz/corpus/", "tests/fuzzing-failures/"}) {
            const fs::path dir = fs::path(QUOV_TEST_SOURCE_DIR) / root / name;
            for (const auto& entry : fs::is_directory(dir) ? fs::directory_iterator(dir) : fs::directory_iterator()) {
                std::ifstream in(entry.path(), std::ios::binary);
                const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
                SCOPED_TRACE(entry.path().string());
                target(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
                ++inputs;
            }
        }
        EXPECT_GT(inputs, 0u) << "no saved inputs for " << name;
    }
    quov::QuovAd::shared().setIMEI(imei);
    quov::QuovAd::shared().setOAID(oaid);
}

}  // namespace
