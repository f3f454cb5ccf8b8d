#pragma once

#include <quov/MainLoop.h>
#include <quov/QuovAd.h>

#include "platform/Context.h"
#include "tests/support/fake_device.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quov::test {

/// Installs a scriptable device platform and a bid server base; at its end puts them
/// and the shared facade's configuration back as they were.
class NetworkScope {
public:
    explicit NetworkScope(std::optional<std::string> bidServerBase = std::nullopt)
        : device(std::make_shared<platform::FakeDevicePlatform>()),
          deviceScope_(platform::Context::shared(), device),
          baseScope_(platform::Context::shared(), std::move(bidServerBase)),
          appId_(QuovAd::shared().AppId()),
          appKey_(QuovAd::shared().AppKey()),
          imei_(QuovAd::shared().IMEI()),
          oaid_(QuovAd::shared().OAID()),
          delegate_(QuovAd::shared().delegate()) {}
    ~NetworkScope() {
        // Let the SDK's own requests end before the device and base go away.
        QuovAd& ad = QuovAd::shared();
        ad.flush(std::chrono::seconds(20));
        if (ad.AppId() != appId_ || ad.AppKey() != appKey_) ad.setupWithAppId(appId_, appKey_);
        ad.setIMEI(imei_), ad.setOAID(oaid_), ad.setDelegate(delegate_);
    }

    /// Runs the shared main loop until done() or 20 s; true when done.
    static bool runUntil(const std::function<bool()>& done) {
        return MainLoop::shared().runUntil(done, std::chrono::seconds(20));
    }

    std::shared_ptr<platform::FakeDevicePlatform> device;

private:
    platform::Context::ScopedDevicePlatform deviceScope_;
    platform::Context::ScopedServiceBase baseScope_;
    std::optional<std::string> appId_, appKey_, imei_, oaid_;
    std::weak_ptr<QuovAdDelegate> delegate_;
};

}  // namespace quov::test
