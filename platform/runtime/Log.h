#pragma once

#include <quov/Log.h>

#include <optional>
#include <string>
#include <string_view>

namespace quov::platform {

/// Writes one Info line to the installed handler (standard error by default).
void logLine(const std::string& line);

/// Writes one Debug line.
void logDebug(const std::string& line);

/// Whether a Debug line would go anywhere: a host handler, or the default with
/// debug output on. Lets callers skip building a line nobody reads.
bool debugLogWanted();

/// The line as the default handler prints it: bytes below 0x20, DEL and the C1
/// controls (U+0080..U+009F) as visible escapes ("\n", "\r", "\t", "\x1b", "\u009b").
std::string escapeControls(std::string_view line);

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

/// The Debug counterpart of QVLog; formats nothing when nobody reads Debug lines.
template <class... Args>
void QVDebug(std::string_view format, const Args&... args) {
    if (debugLogWanted()) logDebug(formatLine(format, {std::string_view(args)...}));
}

}  // namespace quov::platform
