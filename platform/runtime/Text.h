#pragma once

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

}  // namespace quov::platform
