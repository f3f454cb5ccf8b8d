#pragma once

#include <quov/Export.h>
#include <quov/QVBidModel.h>
#include <quov/QVError.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quov {

/// Called exactly once per load, on the main thread: the bids in response order
/// and an error (the error wins when present).
using LoadCompletion =
    std::function<void(std::vector<QVBidModelPtr> bids, std::optional<Error> error)>;

/// The ad network's stateless operations. Call on the main thread.
class QUOV_EXPORT QVRequestHelper {
public:
    /// Builds the bid request and sends it; returns as soon as it is started.
    /// The slot id is accepted and not transmitted.
    static void loadAdWithAdId(const std::optional<std::string>& adId, LoadCompletion completion);
    static std::string getIPAddress();  // last IPv4 of the primary interface, "" when none
};

}  // namespace quov
