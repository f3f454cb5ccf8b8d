#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quov::network {

/// The base URL that bid requests go to ("%@/network?appid=%@" is appended),
/// resolved at each request, first match wins:
///  1. the base injected into the context (platform::Context::ScopedServiceBase:
///     tests, benchmarks);
///  2. the environment variable QUOV_BID_SERVER_BASE, when it is an http or https URL
///     (an invalid value is logged once and ignored);
///  3. the build's QUOV_BID_SERVER_BASE (CMake cache variable).
/// Trailing slashes are dropped. Main thread.
std::string bidServerBase();

/// The base an environment value stands for: the value without trailing slashes
/// when it is an absolute http or https URL with a host and no query, fragment or
/// user information; absent otherwise.
std::optional<std::string> validBidServerBase(std::string_view value);

/// The environment rule alone: env (nullptr when unset) if valid, else builtIn.
/// Logs an invalid value the first time that value is seen.
std::string chooseBidServerBase(const char* env, std::string_view builtIn);

}  // namespace quov::network
