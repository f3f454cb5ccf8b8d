#include <quov/QVDeviceInfo.h>

#include "platform/Context.h"
#include "platform/device/DevicePlatform.h"

#include <optional>
#include <string_view>

namespace quov {
namespace {

struct ModelName {
    std::string_view identifier;
    std::string_view name;
};

// Row order matters only for cost; the irregular names are kept exactly as they ship.
constexpr ModelName kModels[] = {
    {"iPhone1,1", "iPhone 1G"},
    {"iPhone1,2", "iPhone 3G"},
    {"iPhone2,1", "iPhone 3GS"},
    {"iPhone3,1", "iPhone 4"},
    {"iPhone3,2", "Verizon iPhone 4"},
    {"iPhone4,1", "iPhone 4S"},
    {"iPhone5,1", "iPhone 5"}, {"iPhone5,2", "iPhone 5"},
    {"iPhone5,3", "iPhone 5C"}, {"iPhone5,4", "iPhone 5C"},
    {"iPhone6,1", "iPhone 5S"}, {"iPhone6,2", "iPhone 5S"},
    {"iPhone7,1", "iPhone 6 Plus"},
    {"iPhone7,2", "iPhone 6"},
    {"iPhone8,1", "iPhone 6s"},
    {"iPhone8,2", "iPhone 6s Plus"},
    {"iPhone8,4", "iPhone SE"},
    {"iPhone9,1", "iPhone 7"},
    {"iPhone9,2", "iPhone 7 Plus"},
    {"iPhone9,3", "iPhone 7"},
    {"iPhone9,4", "iPhone 7 Plus"},
    {"iPhone10,1", "iPhone 8"}, {"iPhone10,2", "iPhone 8"},
    {"iPhone10,4", "iPhone 8"}, {"iPhone10,5", "iPhone 8"},
    {"iPhone10,3", "iPhone X"}, {"iPhone10,6", "iPhone X"},
    {"iPhone11,8", "iPhone XR"},
    {"iPhone11,2", "iPhone XS"},
    {"iPhone11,4", "iPhone XS Max"}, {"iPhone11,6", "iPhone XS Max"},
    {"iPhone12,1", "iPhone 11"},
    {"iPhone12,3", "iPhone 11 Pro"},
    {"iPhone12,5", "iPhone 11 Pro Max"},
    {"iPhone12,8", "iPhone SE (2nd generation)"},
    {"iPad1,1", "iPad"},
    {"iPad2,1", "iPad 2 (WiFi)"},
    {"iPad2,2", "iPad 2 (GSM)"},
    {"iPad2,3", "iPad 2 (CDMA)"},
    {"iPad2,4", "iPad 2 (32nm)"},
    {"iPad2,5", "iPad mini (WiFi)"},
    {"iPad2,6", "iPad mini (GSM)"},
    {"iPad2,7", "iPad mini (CDMA)"},
    {"iPad4,4", "iPad mini 2"}, {"iPad4,5", "iPad mini 2"}, {"iPad4,6", "iPad mini 2"},
    {"iPad4,7", "iPad mini 3"}, {"iPad4,8", "iPad mini 3"},
    {"iPad5,1", "iPad mini 4"}, {"iPad5,2", "iPad mini 4"},
    {"iPad3,1", "iPad 3(WiFi)"},
    {"iPad3,2", "iPad 3(CDMA)"},
    {"iPad3,3", "iPad 3(4G)"},
    {"iPad3,4", "iPad 4 (WiFi)"},
    {"iPad3,5", "iPad 4 (4G)"},
    {"iPad3,6", "iPad 4 (CDMA)"},
    {"iPad4,1", "iPad Air"}, {"iPad4,2", "iPad Air"}, {"iPad4,3", "iPad Air"},
    {"iPad5,3", "iPad Air 2"}, {"iPad5,4", "iPad Air 2"},
    {"iPad6,3", "iPad Pro (9.7-inch)"}, {"iPad6,4", "iPad Pro (9.7-inch)"},
    {"iPad6,7", "iPad Pro (12.9-inch)"}, {"iPad6,8", "iPad Pro (12.9-inch)"},
    {"iPad6,11", "iPad (5th generation)"}, {"iPad6,12", "iPad (5th generation)"},
    {"iPad7,1", "iPad Pro (12.9-inch, 2nd generation)"}, {"iPad7,2", "iPad Pro (12.9-inch, 2nd generation)"},
    {"iPad7,3", "iPad Pro (10.5-inch)"}, {"iPad7,4", "iPad Pro (10.5-inch)"},
    {"iPad7,5", "iPad (6th generation)"}, {"iPad7,6", "iPad (6th generation)"},
    {"i386", "Simulator"}, {"x86_64", "Simulator"},
};

bool isSimulator(const std::string& machine) { return machine == "i386" || machine == "x86_64"; }

bool scaleIsTwo(const platform::DevicePlatform& p) {
    return p.screenAnswersDisplayLink() && p.screenScale() == 2.0;
}

}  // namespace

std::string QVDeviceInfo::deviceTypeDetail() {
    std::string machine = platform::Context::shared().devicePlatform()->machineIdentifier();
    for (const auto& row : kModels)
        if (row.identifier == machine) return std::string(row.name);
    return machine;
}

std::string QVDeviceInfo::cpuArchitectures() { return platform::Context::shared().devicePlatform()->machineIdentifier(); }

bool QVDeviceInfo::iPhoneX() {
    auto p = platform::Context::shared().devicePlatform();
    std::string machine = p->machineIdentifier();
    if (!isSimulator(machine)) return machine == "iPhone10,3" || machine == "iPhone10,6";
    Size b = p->screenBounds();
    return (b.width == 375.0 && b.height == 812.0) || (b.width == 812.0 && b.height == 375.0);
}

std::string QVDeviceInfo::getDeviceDisplayMetrics() {
    auto p = platform::Context::shared().devicePlatform();
    if (auto idiom = p->userInterfaceIdiom(); idiom && *idiom != platform::kIdiomPhone) {
        // Inverted on purpose: the scale-2.0 tablet reports the smaller text.
        return scaleIsTwo(*p) ? "1024*768" : "2048*1536";
    }
    // The phone candidates are worked out and then dropped: the server has only ever
    // seen the scale-based answer, and changing it would change what it receives.
    std::optional<std::string> candidate;
    if (p->screensAnswerCurrentMode()) {
        Size mode = p->screenCurrentModeSize();
        if (mode.width == 640.0 && mode.height == 1136.0) candidate = "1136*640";
    }
    if (iPhoneX() || deviceTypeDetail() == "iPhone XS") candidate = "2436*1125";
    if (deviceTypeDetail() == "iPhone XR") candidate = "1792*828";
    if (deviceTypeDetail() == "iPhone XS Max") candidate = "1242*2688";
    (void)candidate;
    return scaleIsTwo(*p) ? "960*640" : "480*320";
}

}  // namespace quov
