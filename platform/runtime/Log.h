#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quov::platform {

/// Writes one line to the installed sink (standard error by default).
void logLine(const std::string& line);

/// How an absent value reads in a log line.
inline std::string orNull(const std::optional<std::string>& value) {
    return value ? *value : std::string("(null)");
}

/// Fills each "%@" or "%lu" of format, left to right, with the next argument.
std::string formatLine(std::string_view format, std::initializer_list<std::string_view> args);

/// logLine(formatLine(format, {args...})): keeps the log texts verbatim in the code.
template <class... Args>
void QVLog(std::string_view format, const Args&... args) {
    logLine(formatLine(format, {std::string_view(args)...}));
}

}  // namespace quov::platform
