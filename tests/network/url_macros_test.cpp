#include <quov/QVRequestHelper.h>
#include <quov/QuovAd.h>

#include "network/UrlMacros.h"
#include "support/NetworkScope.h"

#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <clocale>
#include <cstdlib>
#include <filesystem>
#include <cmath>
#include <limits>

namespace quov {
namespace {

using test::NetworkScope;

TEST(MacroNumbers, IntegerTextRoundsToFloatThenTruncates) {
    const double inf = std::numeric_limits<double>::infinity();
    const std::pair<double, const char*> cases[] = {
        {153.9, "153"}, {-0.7, "0"}, {-1.2, "-1"}, {-0.0, "0"}, {0.99999998, "1"}, {0.9999, "0"},
        {16777217.0, "16777216"},  // single precision loses the last unit
        {1e30, "9223372036854775807"}, {-1e300, "-9223372036854775808"}, {std::nan(""), "0"}, {inf, "0"},
    };
    for (const auto& [in, out] : cases) EXPECT_EQ(network::integerText(in), out) << in;
}

TEST(MacroReplace, EveryOccurrenceLeftToRightWithoutRescanningInsertedText) {
    const std::array<const char*, 4> cases[] = {  // text, macro, value, result
        {"a__M__b__M__c", "__M__", "x", "axbxc"},
        {"__M__", "__M__", "__M____M__", "__M____M__"},  // the value is not searched again
        {"____M__", "__M__", "v", "__v"},                 // leftmost match wins
        {"aaaa", "aa", "b", "bb"},                         // no overlap
    };
    for (const auto& [in, macro, value, out] : cases) {
        std::string text = in;
        network::replaceAll(text, macro, value);
        EXPECT_EQ(text, out) << in;
    }
}

TEST(Macros, IdentityPassFillsWhatIsKnownAndLeavesTheRest) {
    NetworkScope scope;
    scope.device->idfa = "6D92078A-8246-4BA4-AE5B-76104861E7DC";
    scope.device->osVersion = "13.7";  // the vendor identifier stands for the MAC
    const std::string mac = "E621E1F8C36C495A93FC0C247A3E6E5F";
    using Opt = std::optional<std::string>;  // name, IMEI, OAID, the URL, filled
    const std::vector<std::tuple<const char*, Opt, Opt, std::string, std::string>> cases = {
        {"empty imei stays", std::string(""), std::string("abc"), "http://t/?i=__IMEI__&o=__OAID__",
         "http://t/?i=__IMEI__&o=abc"},
        {"mac twice, idfa", std::string(""), std::string(""), "?a=__MAC__&b=__MAC__&d=__IDFA__",
         "?a=" + mac + "&b=" + mac + "&d=6D92078A-8246-4BA4-AE5B-76104861E7DC"},
        {"an imei holding a later macro is filled on", std::string("__MAC__"), std::string(""), "?i=__IMEI__",
         "?i=" + mac},
    };
    for (const auto& [name, imei, oaid, in, out] : cases) {
        SCOPED_TRACE(name);
        QuovAd::shared().setIMEI(imei);
        QuovAd::shared().setOAID(oaid);
        EXPECT_EQ(QVRequestHelper::formatURL(in), out);
    }
}

TEST(Macros, TimeStampIsNowInSecondsWithFraction) {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const std::string out = QVRequestHelper::formatURL("__STMS__");
    EXPECT_NEAR(std::stod(out), std::chrono::duration<double>(now).count(), 3600);
    EXPECT_EQ(out.substr(0, out.find('.')).size(), 10u) << out;
}

// Hosts often call setlocale(LC_ALL, ""): the wire texts must keep their decimal
// point under a locale whose numbers use a comma.
TEST(MacroNumbers, RealTextIgnoresTheHostsNumericLocale) {
    char dir[] = "/tmp/quov-locale-XXXXXX";
    ASSERT_NE(::mkdtemp(dir), nullptr);
    const std::string build = "localedef -i de_DE -f UTF-8 " + std::string(dir) + "/de_DE.UTF-8 >/dev/null 2>&1";
    if (std::system(build.c_str()) != 0) GTEST_SKIP() << "localedef or the de_DE source is missing";
    ::setenv("LOCPATH", dir, 1);
    const std::string saved = std::setlocale(LC_ALL, nullptr);
    ASSERT_NE(std::setlocale(LC_NUMERIC, "de_DE.UTF-8"), nullptr);
    EXPECT_EQ(QVRequestHelper::formatURL("?d=__CLICK_DOWN_TIME__&u=__CLICK_UP_TIME__", {300, 400}, {10, 20},
                                         1700000000.25, {12, 25}, 12.5),
              "?d=1700000000.25&u=12.5");
    std::setlocale(LC_ALL, saved.c_str());
    ::unsetenv("LOCPATH");
    std::filesystem::remove_all(dir);
}

TEST(TouchMacros, FollowTheTableIncludingItsAsymmetries) {
    const std::string url = "dx=__ABS_DOWN_X__&dy=__ABS_DOWN_Y__&ux=__ABS_UP_X__&uy=__ABS_UP_Y__"
                            "&rdx=__REL_DOWN_X__&rdy=__REL_DOWN_Y__&rux=__REL_UP_X__&ruy=__REL_UP_Y__"
                            "&td=__CLICK_DOWN_TIME__&tu=__CLICK_UP_TIME__";
    const std::tuple<const char*, Size, Point, double, Point, double, const char*> cases[] = {
        {"inside the ad", {300, 400}, {100.6, 200.2}, 12.5, {50, 60}, 100,
         "dx=100&dy=200&ux=100&uy=200&rdx=0&rdy=0&rux=0&ruy=0&td=12.5&tu=100"},
        {"far edge and beyond", {300, 400}, {300, -450}, 1, {-450, 9999}, 2,
         "dx=300&dy=-450&ux=300&uy=-450&rdx=1&rdy=-1&rux=-1&ruy=-1&td=1&tu=2"},
        {"up y is never used, up x divides the height", {100, 50}, {0, 0}, 0, {120, 0}, 0,
         "dx=0&dy=0&ux=0&uy=0&rdx=0&rdy=0&rux=1&ruy=2&td=0&tu=0"},
        {"zero size gives 0, times keep their fraction", {0, 0}, {10, 0}, 1700000000.25, {10, 10}, 1.5,
         "dx=10&dy=0&ux=10&uy=0&rdx=0&rdy=0&rux=0&ruy=0&td=1700000000.25&tu=1.5"},
    };
    for (const auto& [name, size, down, downTime, up, upTime, out] : cases)
        EXPECT_EQ(QVRequestHelper::formatURL(url, size, down, downTime, up, upTime), out) << name;
    EXPECT_EQ(QVRequestHelper::formatURL("?m=__MAC__&i=__IMEI__", {1, 1}, {}, 0, {}, 0), "?m=__MAC__&i=__IMEI__")
        << "the touch pass fills nothing of the identity pass";
}

}  // namespace
}  // namespace quov
