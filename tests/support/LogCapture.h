#pragma once

#include <quov/Log.h>

#include <mutex>
#include <string>
#include <vector>

namespace quov::test {

/// Captures every SDK log line while alive; restores standard error after.
class LogCapture {
public:
    LogCapture() {
        setLogSink([this](const std::string& line) {
            std::lock_guard lock(mutex_);
            lines_.push_back(line);
        });
    }
    ~LogCapture() { setLogSink({}); }

    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }
    std::vector<std::string> linesStartingWith(const std::string& prefix) const {
        auto out = lines();
        std::erase_if(out, [&](const std::string& l) { return l.rfind(prefix, 0) != 0; });
        return out;
    }
    void clear() {
        std::lock_guard lock(mutex_);
        lines_.clear();
    }

private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

}  // namespace quov::test
