#pragma once

#include <string>
#include <string_view>

namespace quov::network {

/// A macro value's integer text: rounded to single precision, then truncated
/// toward zero ("153.9" -> "153", -0.7 -> "0", 0.99999998 -> "1"). Not-a-number
/// and infinities (a zero ad size) give "0"; values past the 64-bit range saturate.
std::string integerText(double value);

/// A macro value's real text: the shortest %.16g form ("12.5", "100").
std::string realText(double value);

/// Every non-overlapping occurrence of macro, left to right; the inserted text
/// is not searched again.
void replaceAll(std::string& text, std::string_view macro, std::string_view value);

}  // namespace quov::network
