#include "platform/runtime/Text.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace {

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();

TEST(TextTest, LeadingIntegerReadsBlanksSignDigitsAndSaturates) {
    const std::pair<std::string, std::int64_t> cases[] = {
        {"13.7", 13}, {"  \t\n\v\f\r42px", 42}, {"-4x", -4}, {"+7", 7}, {"", 0}, {"junk", 0}, {"+", 0}, {"-", 0},
        {"+-5", 0}, {"- 5", 0}, {"0x1F", 0}, {"\xc2\xa0" "5", 0}, {std::string("9\0" "9", 3), 9},
        {"9223372036854775807", kMax}, {"9223372036854775808", kMax}, {"99999999999999999999999", kMax},
        {"-9223372036854775808", kMin}, {"-9223372036854775809", kMin}, {"-99999999999999999999999", kMin},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(quov::platform::leadingInteger(text), expected) << text;
}

TEST(TextTest, SaturatingInt64TruncatesTowardZeroAndClampsTheRest) {
    const std::pair<double, std::int64_t> cases[] = {
        {153.9, 153}, {-0.7, 0}, {-153.9, -153}, {9223372036854775808.0, kMax}, {1e300, kMax}, {INFINITY, kMax},
        {-9223372036854775808.0, kMin}, {-1e300, kMin}, {-INFINITY, kMin}, {std::nan(""), 0},
    };
    for (const auto& [value, expected] : cases) EXPECT_EQ(quov::platform::saturatingInt64(value), expected) << value;
}

}  // namespace
