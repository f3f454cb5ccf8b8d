#include "DemoOptions.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

namespace demo {

const char* const kUsage =
    "usage: quov-demo [--bid-server URL] [--app-id ID] [--app-key KEY] [--imei X] [--oaid Y]\n"
    "                 [--ad-id SLOT] [--headless] [--screen WxH] [--scale S]\n"
    "                 [--touch X,Y[:X2,Y2]] [--close] [--key NAME[,NAME...]]\n"
    "                 [--url-opener PROGRAM]\n"
    "                 [--screenshot FILE.png] [--timeout SECONDS]\n"
    "\n"
    "Loads one interstitial ad and prints each delegate call as a line of JSON on stdout.\n"
    "Without --bid-server it starts the sample bid server on a free loopback port.\n";

namespace {

bool parseDouble(const std::string& s, double& out) {
    if (s.empty()) return false;
    char* end = nullptr;
    errno = 0;
    double v = std::strtod(s.c_str(), &end);
    if (errno != 0 || *end != '\0' || !std::isfinite(v)) return false;
    out = v;
    return true;
}

bool parsePoint(const std::string& s, double& x, double& y) {
    auto comma = s.find(',');
    return comma != std::string::npos && parseDouble(s.substr(0, comma), x) &&
           parseDouble(s.substr(comma + 1), y);
}

}  // namespace

std::optional<std::string> parseOptions(const std::vector<std::string>& args, Options& o) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        auto value = [&](std::string& out) -> bool {
            if (i + 1 >= args.size()) return false;
            out = args[++i];
            return true;
        };
        std::string v;
        if (a == "--help" || a == "-h") {
            o.help = true;
        } else if (a == "--headless") {
            o.headless = true;
        } else if (a == "--close") {
            o.close = true;
        } else if (a == "--bid-server" || a == "--app-id" || a == "--app-key" || a == "--imei" ||
                   a == "--oaid" || a == "--ad-id" || a == "--screen" || a == "--scale" ||
                   a == "--touch" || a == "--key" || a == "--url-opener" || a == "--screenshot" || a == "--timeout") {
            if (!value(v)) return a + " needs a value";
            if (a == "--bid-server") {
                if (v.rfind("http://", 0) != 0 && v.rfind("https://", 0) != 0)
                    return "--bid-server must be an http or https URL";
                while (!v.empty() && v.back() == '/') v.pop_back();
                o.bidServer = v;
            } else if (a == "--app-id") {
                o.appId = v;
            } else if (a == "--app-key") {
                o.appKey = v;
            } else if (a == "--imei") {
                o.imei = v;
            } else if (a == "--oaid") {
                o.oaid = v;
            } else if (a == "--ad-id") {
                o.adId = v;
            } else if (a == "--screen") {
                auto x = v.find('x');
                double w = 0, h = 0;
                if (x == std::string::npos || !parseDouble(v.substr(0, x), w) ||
                    !parseDouble(v.substr(x + 1), h) || w < 1 || h < 1 || w > 16384 || h > 16384 ||
                    w != std::floor(w) || h != std::floor(h))
                    return "--screen takes WxH in whole points, e.g. 375x812";
                o.screenWidth = static_cast<int>(w);
                o.screenHeight = static_cast<int>(h);
            } else if (a == "--scale") {
                if (!parseDouble(v, o.scale) || o.scale <= 0 || o.scale > 8)
                    return "--scale takes a number between 0 and 8";
                o.scaleGiven = true;
            } else if (a == "--touch") {
                TouchPlan t;
                auto colon = v.find(':');
                if (!parsePoint(v.substr(0, colon), t.downX, t.downY))
                    return "--touch takes X,Y[:X2,Y2]";
                t.upX = t.downX;
                t.upY = t.downY;
                if (colon != std::string::npos && !parsePoint(v.substr(colon + 1), t.upX, t.upY))
                    return "--touch takes X,Y[:X2,Y2]";
                o.touch = t;
            } else if (a == "--key") {
                std::size_t start = 0;
                while (true) {
                    const auto comma = v.find(',', start);
                    const std::string name = v.substr(start, comma == std::string::npos ? comma : comma - start);
                    if (name.empty()) return "--key takes NAME[,NAME...]";
                    o.keys.push_back(name);
                    if (comma == std::string::npos) break;
                    start = comma + 1;
                }
            } else if (a == "--url-opener") {
                if (v.empty()) return "--url-opener needs a program";
                o.urlOpener = v;
            } else if (a == "--screenshot") {
                o.screenshot = v;
            } else if (a == "--timeout") {
                if (!parseDouble(v, o.timeoutSeconds) || o.timeoutSeconds <= 0)
                    return "--timeout takes a positive number of seconds";
            }
        } else {
            return "unknown argument: " + a;
        }
    }
    if ((o.touch ? 1 : 0) + (o.close ? 1 : 0) + (o.keys.empty() ? 0 : 1) > 1)
        return "--touch, --close and --key exclude each other";
    return std::nullopt;
}

}  // namespace demo
