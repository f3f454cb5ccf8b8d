#include <quov/QuovHost.h>

#include "network/BidServerBase.h"
#include "platform/opener/UrlOpener.h"
#include "platform/device/linux_device.h"

#include <stdexcept>

namespace quov {

void QuovHost::setBundleInfo(std::map<std::string, std::string> info) {
    platform::LinuxDevicePlatform::shared()->setBundleInfo(std::move(info));
}

void QuovHost::setAdvertisingIdentifier(std::optional<std::string> identifier, bool trackingEnabled) {
    platform::LinuxDevicePlatform::shared()->setAdvertisingIdentifier(std::move(identifier), trackingEnabled);
}

void QuovHost::setCarrierName(std::optional<std::string> name) {
    platform::LinuxDevicePlatform::shared()->setCarrierName(std::move(name));
}

void QuovHost::setMainScreen(const MainScreen& screen) {
    platform::LinuxDevicePlatform::shared()->setMainScreen(screen);
}

void QuovHost::setApplicationState(ApplicationState state) {
    platform::LinuxDevicePlatform::shared()->setApplicationState(state);
}

std::vector<std::string> QuovHost::allowURLSchemes(const std::vector<std::string>& schemes) {
    return platform::setAllowedURLSchemes(schemes);
}

}  // namespace quov

namespace quov {

void QuovHost::setBidServerBase(std::optional<std::string> base) {
    if (base) {
        if (auto problem = network::bidServerBaseProblem(*base))
            throw std::invalid_argument("QuovHost::setBidServerBase(\"" + *base + "\"): " + *problem);
    }
    network::setBidServerBaseOverride(std::move(base));
}

}  // namespace quov
