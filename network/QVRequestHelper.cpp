#include <quov/QVRequestHelper.h>

#include <quov/MainLoop.h>

#include "platform/Log.h"

namespace quov {

// The network layer is not built yet: every load completes with the request
// failure so that no caller waits forever and nothing pretends a bid arrived.
void QVRequestHelper::loadAdWithAdId(const std::optional<std::string>&, LoadCompletion completion) {
    MainLoop::shared().post([completion = std::move(completion)] {
        platform::QVLog("Reqeust failed, response: %@", "(null)");
        completion({}, QVError::errorWithCode(4001));
    });
}

}  // namespace quov
