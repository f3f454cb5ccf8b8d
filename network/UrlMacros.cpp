#include "network/UrlMacros.h"

#include "platform/runtime/Text.h"

#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>

namespace quov::network {

std::string integerText(double value) {
    if (!std::isfinite(value)) return "0";
    constexpr double kFloatMax = std::numeric_limits<float>::max();
    // Past float's range the conversion below would be undefined.
    if (value >= kFloatMax) return std::to_string(std::numeric_limits<std::int64_t>::max());
    if (value <= -kFloatMax) return std::to_string(std::numeric_limits<std::int64_t>::min());
    // The server expects the coarse form: single precision first, then the integer part.
    return std::to_string(platform::saturatingInt64(static_cast<float>(value)));
}

std::string realText(double value) {
    // printf would follow the host's LC_NUMERIC (a decimal comma under setlocale).
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, value, std::chars_format::general, 16);
    return std::string(buf, r.ptr);
}

void replaceAll(std::string& text, std::string_view macro, std::string_view value) {
    if (macro.empty()) return;
    std::size_t at = text.find(macro);
    if (at == std::string::npos) return;
    // One pass into a new string: replacing in place moves the tail once per
    // occurrence, which is quadratic on a URL dense with macros.
    std::string out;
    out.reserve(text.size());
    std::size_t from = 0;
    while (at != std::string::npos) {
        out.append(text, from, at - from);
        out.append(value);
        from = at + macro.size();
        at = text.find(macro, from);
    }
    out.append(text, from, std::string::npos);
    text = std::move(out);
}

}  // namespace quov::network
