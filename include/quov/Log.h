#pragma once

#include <quov/Export.h>

#include <functional>
#include <string>

namespace quov {

/// Receives every SDK log line (one free-text line per call, no level, no prefix).
/// Called on the thread that logs, which is the main thread for all SDK lines.
using LogSink = std::function<void(const std::string& line)>;

/// Installs a sink for the SDK's log lines; an empty function restores the
/// default, which writes each line to standard error. Any thread.
QUOV_EXPORT void setLogSink(LogSink sink);

}  // namespace quov
