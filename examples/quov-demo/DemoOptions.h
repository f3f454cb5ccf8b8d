#pragma once

#include <optional>
#include <string>
#include <vector>

namespace demo {

struct TouchPlan {
    double downX = 0, downY = 0, upX = 0, upY = 0;
};

struct Options {
    std::optional<std::string> bidServer;
    std::string appId = "demo-app";
    std::string appKey = "demo-key";
    std::optional<std::string> imei;
    std::optional<std::string> oaid;
    std::string adId = "demo-slot";
    bool headless = false;
    int screenWidth = 375;
    int screenHeight = 812;
    double scale = 3;
    bool scaleGiven = false;
    std::optional<TouchPlan> touch;
    bool close = false;
    /// Key names sent in order once the ad is shown: escape, back, enter, space,
    /// pad-a, pad-b, or any SDL key name.
    std::vector<std::string> keys;
    std::string urlOpener = "xdg-open";
    std::optional<std::string> screenshot;
    double timeoutSeconds = 30;
    bool help = false;
};

/// Parses argv; returns an error message on bad arguments.
std::optional<std::string> parseOptions(const std::vector<std::string>& args, Options& out);

extern const char* const kUsage;

}  // namespace demo
