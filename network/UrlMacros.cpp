#include "network/UrlMacros.h"

#include <quov/QVDeviceInfo.h>
#include <quov/QVRequestHelper.h>
#include <quov/QuovAd.h>

#include "platform/runtime/Text.h"

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>

namespace quov {
namespace network {

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

}  // namespace network

std::string QVRequestHelper::formatURL(const std::string& url) {
    std::string out = url;
    const QuovAd& ad = QuovAd::shared();
    // An empty (or absent) identifier leaves its macro for the server to see.
    if (const auto& imei = ad.IMEI(); imei && !imei->empty()) network::replaceAll(out, "__IMEI__", *imei);
    if (const auto& oaid = ad.OAID(); oaid && !oaid->empty()) network::replaceAll(out, "__OAID__", *oaid);
    network::replaceAll(out, "__IDFA__", QVDeviceInfo::getIDFA());
    network::replaceAll(out, "__MAC__", QVDeviceInfo::getMacAddress());
    const double now =
        std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
    network::replaceAll(out, "__STMS__", network::realText(now));
    return out;
}

std::string QVRequestHelper::formatURL(const std::string& url, Size adSize, Point down, double downDate,
                                       Point up, double upDate) {
    using network::integerText;
    std::string out = url;
    network::replaceAll(out, "__ABS_DOWN_X__", integerText(down.x));
    network::replaceAll(out, "__ABS_DOWN_Y__", integerText(down.y));
    // The "up" absolute macros carry the down point, and REL_UP_Y divides the
    // lift's x: the server was built against exactly these values.
    network::replaceAll(out, "__ABS_UP_X__", integerText(down.x));
    network::replaceAll(out, "__ABS_UP_Y__", integerText(down.y));
    network::replaceAll(out, "__REL_DOWN_X__", integerText(down.x / adSize.width));
    network::replaceAll(out, "__REL_DOWN_Y__", integerText(down.y / adSize.height));
    network::replaceAll(out, "__REL_UP_X__", integerText(up.x / adSize.width));
    network::replaceAll(out, "__REL_UP_Y__", integerText(up.x / adSize.height));
    network::replaceAll(out, "__CLICK_DOWN_TIME__", network::realText(downDate));
    network::replaceAll(out, "__CLICK_UP_TIME__", network::realText(upDate));
    return out;
}

}  // namespace quov
