#include "platform/runtime/Log.h"

#include <quov/Log.h>

#include <cstdio>
#include <mutex>

namespace quov {
namespace {
std::mutex& sinkMutex() {
    static std::mutex m;
    return m;
}
LogSink& sink() {
    static LogSink s;
    return s;
}
}  // namespace

void setLogSink(LogSink s) {
    std::lock_guard lock(sinkMutex());
    sink() = std::move(s);
}

namespace platform {

void logLine(const std::string& line) {
    LogSink current;
    {
        std::lock_guard lock(sinkMutex());
        current = sink();
    }
    if (current) {
        current(line);
        return;
    }
    std::string out = line;
    out += '\n';
    std::fwrite(out.data(), 1, out.size(), stderr);
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
