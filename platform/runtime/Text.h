#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace quov::platform {

/// A-Z to a-z, every other byte as it is: locale-independent, for protocol text
/// (schemes, hosts, media types, language tags).
constexpr char asciiLower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

inline std::string asciiLower(std::string_view text) {
    std::string out(text);
    for (char& c : out) c = asciiLower(c);
    return out;
}

/// The leading decimal integer of text after blanks (space, \t \n \v \f \r) and
/// one optional sign, saturating at the 64-bit range: "13.7" -> 13, " -4x" -> -4,
/// "junk", "+" and "" -> 0. Locale-independent, unlike strtoll under setlocale.
constexpr std::int64_t leadingInteger(std::string_view text) {
    std::size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) ++i;
    bool negative = false;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
    // Accumulated negatively: the minimum has no positive twin.
    constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
    std::int64_t v = 0;
    for (; i < text.size() && text[i] >= '0' && text[i] <= '9'; ++i) {
        const int digit = text[i] - '0';
        if (v < (kMin + digit) / 10) return negative ? kMin : std::numeric_limits<std::int64_t>::max();
        v = v * 10 - digit;
    }
    if (negative) return v;
    return v == kMin ? std::numeric_limits<std::int64_t>::max() : -v;
}

/// A double's integer part toward zero, saturating at the 64-bit range; NaN -> 0.
constexpr std::int64_t saturatingInt64(double d) {
    if (d != d) return 0;
    // 2^63 is exactly representable; anything at or past it saturates.
    if (d >= 9223372036854775808.0) return std::numeric_limits<std::int64_t>::max();
    if (d <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(d);
}

}  // namespace quov::platform
