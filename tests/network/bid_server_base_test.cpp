#include <quov/QuovHost.h>

#include "network/BidServerBase.h"
#include "platform/Context.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>

namespace quov {
namespace {

/// Puts the build's base back however a case ends.
struct RestoreBase {
    ~RestoreBase() { QuovHost::setBidServerBase(std::nullopt); }
};

TEST(BidServerBase, HostValuesAreCheckedAndRefusalsSayWhy) {
    RestoreBase restore;
    const std::string builtIn = network::bidServerBase();
    struct Case {
        const char* in;
        const char* problem;  // nullptr: accepted as it stands
    };
    const Case cases[] = {
        {"http://127.0.0.1:8080", nullptr},
        {"https://ads.example.com", nullptr},
        {"http://[::1]:9000", nullptr},
        {"HTTP://h", "http:// or https://"},
        {"", "empty"},
        {"ftp://h", "http:// or https://"},
        {"127.0.0.1:8080", "http:// or https://"},
        {"http://", "no host"},
        {"http://h/", "end with '/'"},
        {"http://h/api", "path"},
        {"http://h?q=1", "query"},
        {"http://h#top", "fragment"},
        {"http://u:p@h", "user information"},
        {"http://h x", "blank"},
        {"http://h:99999", "not a valid URL"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.in);
        QuovHost::setBidServerBase("http://127.0.0.1:1");
        if (!c.problem) {
            QuovHost::setBidServerBase(std::string(c.in));
            EXPECT_EQ(network::bidServerBase(), c.in);
            continue;
        }
        try {
            QuovHost::setBidServerBase(std::string(c.in));
            ADD_FAILURE() << "accepted";
        } catch (const std::invalid_argument& e) {
            const std::string what = e.what();
            EXPECT_NE(what.find("QuovHost::setBidServerBase"), std::string::npos) << what;
            EXPECT_NE(what.find(c.problem), std::string::npos) << what;
        }
        EXPECT_EQ(network::bidServerBase(), "http://127.0.0.1:1") << "a refused value changes nothing";
    }
    QuovHost::setBidServerBase(std::nullopt);
    EXPECT_EQ(network::bidServerBase(), builtIn);
}

TEST(BidServerBase, AnInjectedBaseWinsForItsScope) {
    auto& context = platform::Context::shared();
    {
        platform::Context::ScopedServiceBase outer(context, "http://127.0.0.1:5");
        EXPECT_EQ(network::bidServerBase(), "http://127.0.0.1:5");
        {
            platform::Context::ScopedServiceBase inner(context, "http://127.0.0.1:6");
            EXPECT_EQ(network::bidServerBase(), "http://127.0.0.1:6");
        }
        EXPECT_EQ(network::bidServerBase(), "http://127.0.0.1:5") << "the outer scope's base comes back";
    }
    EXPECT_NE(network::bidServerBase(), "http://127.0.0.1:5");
}

}  // namespace
}  // namespace quov
