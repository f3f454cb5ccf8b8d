#pragma once

#include <quov/Geometry.h>

#include <optional>
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

/// The identity and time macros' values, read once on the main thread (they come
/// from the facade and the device) so that filling can run on any thread later.
struct IdentityMacros {
    std::optional<std::string> imei;  // absent or empty: "__IMEI__" stays
    std::optional<std::string> oaid;  // likewise "__OAID__"
    std::string idfa;
    std::string mac;
    std::string stms;

    /// The values now. Main thread.
    static IdentityMacros capture();
    /// url with "__IMEI__", "__OAID__", "__IDFA__", "__MAC__", "__STMS__" filled in
    /// that order, each on the output of the one before. Pure; any thread.
    std::string fill(std::string url) const;
};

/// The touch macros' inputs of one click. Pure; any thread.
struct TouchMacros {
    Size adSize;
    Point down;
    double downDate = 0;
    Point up;
    double upDate = 0;

    std::string fill(std::string url) const;
};

}  // namespace quov::network
