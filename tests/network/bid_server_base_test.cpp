#include "network/BidServerBase.h"
#include "platform/Context.h"

#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace quov::network {
namespace {

TEST(BidServerBase, OnlyAbsoluteHttpUrlsAreAccepted) {
    struct Case {
        const char* in;
        std::optional<std::string> out;
    };
    const Case cases[] = {
        {"http://127.0.0.1:8080", "http://127.0.0.1:8080"},
        {"http://h/api//", "http://h/api"},
        {"ftp://h", std::nullopt},
        {"127.0.0.1:8080", std::nullopt},
        {"http://", std::nullopt},
        {"http://h/?q=1", std::nullopt},
        {"http://u:p@h", std::nullopt},
        {"http://h x", std::nullopt},
    };
    for (const Case& c : cases) EXPECT_EQ(validBidServerBase(c.in), c.out) << c.in;
}

TEST(BidServerBase, EnvironmentOverridesTheBuildAndBadValuesAreLoggedOnce) {
    test::LogCapture log;
    EXPECT_EQ(chooseBidServerBase(nullptr, "http://built.in"), "http://built.in");
    EXPECT_EQ(chooseBidServerBase("", "http://built.in"), "http://built.in");
    EXPECT_EQ(chooseBidServerBase("http://127.0.0.1:1/", "http://built.in"), "http://127.0.0.1:1");
    EXPECT_TRUE(log.lines().empty());
    for (int i = 0; i < 3; ++i) EXPECT_EQ(chooseBidServerBase("gopher://x", "http://built.in"), "http://built.in");
    EXPECT_EQ(log.lines(),
              std::vector<std::string>{"QUOV_BID_SERVER_BASE is not an http or https URL, ignored: gopher://x"});
}

TEST(BidServerBase, AnInjectedBaseWinsForItsScope) {
    auto& context = platform::Context::shared();
    {
        platform::Context::ScopedServiceBase outer(context, "http://127.0.0.1:5");
        EXPECT_EQ(bidServerBase(), "http://127.0.0.1:5");
        {
            platform::Context::ScopedServiceBase inner(context, "http://127.0.0.1:6");
            EXPECT_EQ(bidServerBase(), "http://127.0.0.1:6");
        }
        EXPECT_EQ(bidServerBase(), "http://127.0.0.1:5") << "the outer scope's base comes back";
    }
    EXPECT_NE(bidServerBase(), "http://127.0.0.1:5");
}

}  // namespace
}  // namespace quov::network
