#include <quov/QuovHost.h>

#include "network/BidServerBase.h"
#include "platform/Context.h"
#include "platform/device/linux_device.h"
#include "platform/opener/UrlOpener.h"

#include <stdexcept>

namespace quov {

void QuovHost::setBundleInfo(std::map<std::string, std::string> info) {
    platform::Context::shared().linuxDevice()->setBundleInfo(std::move(info));
}

void QuovHost::setAdvertisingIdentifier(std::optional<std::string> identifier, bool trackingEnabled) {
    platform::Context::shared().linuxDevice()->setAdvertisingIdentifier(std::move(identifier), trackingEnabled);
}

void QuovHost::setCarrierName(std::optional<std::string> name) {
    platform::Context::shared().linuxDevice()->setCarrierName(std::move(name));
}

void QuovHost::setMainScreen(const MainScreen& screen) {
    platform::Context::shared().linuxDevice()->setMainScreen(screen);
}

void QuovHost::setApplicationState(ApplicationState state) {
    platform::Context::shared().linuxDevice()->setApplicationState(state);
}

std::vector<std::string> QuovHost::allowURLSchemes(const std::vector<std::string>& schemes) {
    return platform::setAllowedURLSchemes(schemes);
}

void QuovHost::setURLOpenerProgram(std::string program) {
    platform::Context::shared().setURLOpenerProgram(std::move(program));
}

}  // namespace quov

namespace quov {

void QuovHost::setBidServerBase(std::optional<std::string> base) {
    if (base) {
        if (auto problem = network::bidServerBaseProblem(*base))
            throw std::invalid_argument("QuovHost::setBidServerBase(\"" + *base + "\"): " + *problem);
    }
    platform::Context::shared().setServiceBase(std::move(base));
}

}  // namespace quov
