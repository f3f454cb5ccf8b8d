#pragma once

#include <quov/Export.h>

#include <functional>
#include <string>

namespace quov {

/// How much a line matters. Info: the SDK's established lines, whose texts hosts
/// may match. Debug: why something failed or was refused, for whoever diagnoses it.
enum class LogLevel : int { Debug = 0, Info = 1 };

/// Receives every SDK log line with its level, Debug lines included, exactly as the
/// SDK wrote it: the text may hold anything a server sent, newlines and terminal
/// escapes included, so a handler that prints it should escape it. Called on the
/// thread that logs (the main thread for all but a few Debug lines), so it must be
/// thread-safe; it must not call back into the SDK's logging.
using LogHandler = std::function<void(LogLevel level, const std::string& line)>;

/// Installs a handler; an empty function restores the default, which writes each
/// line to standard error with control characters shown as escapes ("\n", "\x1b"),
/// so that no line can forge another or drive the terminal. The default shows Debug
/// lines only after setDebugLogging(true) or with QUOV_LOG=debug in the environment.
/// Any thread.
QUOV_EXPORT void setLogHandler(LogHandler handler);

/// Whether the default handler shows Debug lines. Any thread.
QUOV_EXPORT void setDebugLogging(bool enabled);

/// Receives the Info lines only, as one free-text line per call; the same as a
/// handler that drops Debug lines. An empty function restores the default. Any thread.
using LogSink = std::function<void(const std::string& line)>;
QUOV_EXPORT void setLogSink(LogSink sink);

}  // namespace quov
