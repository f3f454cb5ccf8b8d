#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quov::network {

/// The base URL that bid requests go to ("%@/network?appid=%@" is appended): the one
/// set on the context (QuovHost::setBidServerBase, or a test's scoped base), else the
/// build's QUOV_BID_SERVER_BASE (CMake cache variable). The environment is never read.
/// Any thread.
std::string bidServerBase();

/// Why value cannot be a bid server base, or nullopt when it can: an http or https
/// URL with a host (and optionally a port), no trailing slash, and no path, query,
/// fragment or user information.
std::optional<std::string> bidServerBaseProblem(std::string_view value);

}  // namespace quov::network
