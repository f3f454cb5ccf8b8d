#pragma once

#include <optional>
#include <string>

namespace quov::platform {
class DevicePlatform;
}

namespace quov::device {

/// The walk both IP operations share: the dotted text of every IPv4 entry of the
/// primary interface, the last one in list order winning; nothing when there is none.
std::optional<std::string> primaryIPv4(const platform::DevicePlatform& platform);

}  // namespace quov::device
