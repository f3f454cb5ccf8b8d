#include "network/UrlMacros.h"

#include <quov/QVDeviceInfo.h>
#include <quov/QuovAd.h>

#include "platform/runtime/Text.h"

#include <charconv>
#include <chrono>
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

IdentityMacros IdentityMacros::capture() {
    IdentityMacros values;
    const QuovAd& ad = QuovAd::shared();
    values.imei = ad.IMEI();
    values.oaid = ad.OAID();
    values.idfa = QVDeviceInfo::getIDFA();
    values.mac = QVDeviceInfo::getMacAddress();
    const double now =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    values.stms = realText(now);
    return values;
}

std::string IdentityMacros::fill(std::string url) const {
    // An empty (or absent) identifier leaves its macro for the server to see.
    if (imei && !imei->empty()) replaceAll(url, "__IMEI__", *imei);
    if (oaid && !oaid->empty()) replaceAll(url, "__OAID__", *oaid);
    replaceAll(url, "__IDFA__", idfa);
    replaceAll(url, "__MAC__", mac);
    replaceAll(url, "__STMS__", stms);
    return url;
}

std::string TouchMacros::fill(std::string url) const {
    replaceAll(url, "__ABS_DOWN_X__", integerText(down.x));
    replaceAll(url, "__ABS_DOWN_Y__", integerText(down.y));
    // The "up" absolute macros carry the down point, and REL_UP_Y divides the
    // lift's x: the server was built against exactly these values.
    replaceAll(url, "__ABS_UP_X__", integerText(down.x));
    replaceAll(url, "__ABS_UP_Y__", integerText(down.y));
    replaceAll(url, "__REL_DOWN_X__", integerText(down.x / adSize.width));
    replaceAll(url, "__REL_DOWN_Y__", integerText(down.y / adSize.height));
    replaceAll(url, "__REL_UP_X__", integerText(up.x / adSize.width));
    replaceAll(url, "__REL_UP_Y__", integerText(up.x / adSize.height));
    replaceAll(url, "__CLICK_DOWN_TIME__", realText(downDate));
    replaceAll(url, "__CLICK_UP_TIME__", realText(upDate));
    return url;
}

}  // namespace quov::network
