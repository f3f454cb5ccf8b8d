#pragma once

#include <quov/QVRequestHelper.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace quov::network {

/// Percent-encodes every byte outside the URL-query set (letters, digits and
/// - . _ ~ ! $ & ' ( ) * + , ; = : @ / ?) as %XX, upper-case. '%' itself is
/// outside the set, so escapes already present are encoded again.
std::string percentEncodeQuery(std::string_view text);

/// The tracking chain behind QVRequestHelper::getURLWithRetry: up to attempts
/// GETs of url, counted in pendingTrackingRequests until its last callback.
void startTracking(const std::string& url, std::uint64_t attempts, TrackingSuccess success,
                   TrackingFailure failure);

/// Lists of addresses at least this long in all are filled and sent through
/// startTrackingFilled; shorter ones, the usual, start at once as they always did.
inline constexpr std::size_t kFillOffMainBytes = 16 * 1024;

/// startTracking for an address still to be made: makeUrl (pure, run once on the
/// task worker) yields the url; its every attempt is encoded there too, and logged
/// and sent on the main thread, so an address of megabytes costs a drain only a
/// copy. Addresses started one after another are sent in that order. Main thread.
void startTrackingFilled(std::function<std::string()> makeUrl, std::uint64_t attempts, TrackingSuccess success,
                         TrackingFailure failure);

/// Tracking calls (getURLWithRetry) whose final callback has not yet run,
/// retries still to come included. Any thread.
std::size_t pendingTrackingRequests();

/// The time-out of each tracking attempt (default 60 s, as for the bid). A tracker
/// that stalls holds flush() for up to three of these. Any thread.
void setTrackingTimeout(std::chrono::milliseconds timeout);

}  // namespace quov::network
