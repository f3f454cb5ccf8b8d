#include "platform/runtime/Log.h"

#include <quov/Log.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string_view>

namespace quov {
namespace {

std::mutex& handlerMutex() {
    static std::mutex m;
    return m;
}
LogHandler& handler() {
    static LogHandler h;
    return h;
}
std::atomic<bool>& debugEnabled() {
    static std::atomic<bool> enabled = [] {
        const char* v = std::getenv("QUOV_LOG");
        return v && std::string_view(v) == "debug";
    }();
    return enabled;
}

LogHandler currentHandler() {
    std::lock_guard lock(handlerMutex());
    return handler();
}

void write(LogLevel level, const std::string& line) {
    if (LogHandler h = currentHandler()) {
        h(level, line);
        return;
    }
    if (level == LogLevel::Debug && !debugEnabled().load()) return;
    std::string out = platform::escapeControls(line);
    out += '\n';
    std::fwrite(out.data(), 1, out.size(), stderr);
}

}  // namespace

void setLogHandler(LogHandler h) {
    std::lock_guard lock(handlerMutex());
    handler() = std::move(h);
}

void setDebugLogging(bool enabled) { debugEnabled().store(enabled); }

void setLogSink(LogSink s) {
    if (!s) {
        setLogHandler({});
        return;
    }
    setLogHandler([s = std::move(s)](LogLevel level, const std::string& line) {
        if (level == LogLevel::Info) s(line);
    });
}

namespace platform {

void logLine(const std::string& line) { write(LogLevel::Info, line); }

void logDebug(const std::string& line) { write(LogLevel::Debug, line); }

bool debugLogWanted() { return debugEnabled().load() || static_cast<bool>(currentHandler()); }

std::string escapeControls(std::string_view line) {
    static constexpr char kHex[] = "0123456789abcdef";
    std::string out;
    out.reserve(line.size());
    for (std::size_t i = 0; i < line.size(); ++i) {
        const auto c = static_cast<unsigned char>(line[i]);
        if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7f) {
            out += "\\x";
            out += kHex[c >> 4];
            out += kHex[c & 15];
        } else if (c == 0xc2 && i + 1 < line.size() && static_cast<unsigned char>(line[i + 1]) >= 0x80 &&
                   static_cast<unsigned char>(line[i + 1]) <= 0x9f) {
            // C1 controls: some terminals take U+009B as an escape sequence's start.
            const auto c1 = static_cast<unsigned char>(line[++i]);
            out += "\\u00";
            out += kHex[c1 >> 4];
            out += kHex[c1 & 15];
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

std::string formatLine(std::string_view format, std::initializer_list<std::string_view> args) {
    std::string out;
    out.reserve(format.size() + 32);
    auto next = args.begin();
    for (std::size_t i = 0; i < format.size(); ++i) {
        if (format[i] == '%' && next != args.end()) {
            if (format.substr(i, 2) == "%@") {
                out += *next++;
                i += 1;
                continue;
            }
            if (format.substr(i, 3) == "%lu") {
                out += *next++;
                i += 2;
                continue;
            }
        }
        out += format[i];
    }
    return out;
}

}  // namespace platform
}  // namespace quov
