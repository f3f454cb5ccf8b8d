#pragma once

#include <quov/Export.h>
#include <quov/Geometry.h>
#include <quov/QVBidModel.h>
#include <quov/QVError.h>

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quov {

/// Called exactly once per load, on the main thread: the bids in response order
/// and an error (the error wins when present).
using LoadCompletion =
    std::function<void(std::vector<QVBidModelPtr> bids, std::optional<Error> error)>;

/// Success of a tracking request, on the main thread: the parsed JSON answer, or
/// nullptr when the answer had no body. The pointer is valid during the call only.
using TrackingSuccess = std::function<void(const nlohmann::json* body)>;
/// Failure of a tracking request after its last attempt, on the main thread.
using TrackingFailure = std::function<void(const Error& error)>;

/// The ad network's stateless operations. Call on the main thread.
class QUOV_EXPORT QVRequestHelper {
public:
    /// Builds the bid request from a fresh device record and the shared facade's
    /// AppId, AppKey, IMEI and OAID, and POSTs it; returns as soon as it is started.
    /// The slot id is accepted and not transmitted. The completion runs once, later,
    /// on the main thread. Throws std::invalid_argument when the device record cannot
    /// be built (see QVDeviceInfo::deviceInfo).
    static void loadAdWithAdId(const std::optional<std::string>& adId, LoadCompletion completion);

    /// GETs url (percent-encoded here, as a whole, so existing escapes are encoded
    /// again) with up to retryTimes attempts, at least one, one right after the
    /// other. Success means status 200..299 and an empty body or JSON. Exactly one
    /// of the callbacks runs, once, on the main thread; empty callbacks are allowed.
    /// Never blocks. QuovAd::flush() waits for these.
    static void getURLWithRetry(const std::string& url, std::uint64_t retryTimes,
                                TrackingSuccess success, TrackingFailure failure);

    /// length characters drawn uniformly and independently from [a-zA-Z0-9]
    /// (a cryptographic source, no modulo bias). Any thread.
    static std::string randomStringWithLength(std::uint64_t length);

    /// Fills the identity and time macros (__IMEI__, __OAID__, __IDFA__, __MAC__,
    /// __STMS__) from the shared facade and the device. An empty or absent IMEI/OAID
    /// leaves its macro in place. Does not encode. Main thread.
    static std::string formatURL(const std::string& url);

    /// Fills the touch macros of a click URL (normally the result of the one-argument
    /// form). Size and points in the ad image's points; times in seconds since 1970.
    /// Relative macros are the integer part of the fraction; a zero width or height
    /// makes them "0". Pure; any thread.
    static std::string formatURL(const std::string& url, Size adSize, Point touchDownPoint,
                                 double touchDownDate, Point touchUpPoint, double touchUpDate);

    static std::string getIPAddress();  // last IPv4 of the primary interface, "" when none
};

}  // namespace quov
