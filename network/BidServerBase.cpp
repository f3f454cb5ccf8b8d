#include "network/BidServerBase.h"

#include "platform/Context.h"
#include "platform/http/UrlSyntax.h"
#include "platform/runtime/Log.h"

#include <memory>
#include <mutex>

#ifndef QUOV_DEFAULT_BID_SERVER_BASE
#define QUOV_DEFAULT_BID_SERVER_BASE "http://127.0.0.1:8080"
#endif

namespace quov::network {
namespace {

std::mutex stateMutex;
std::string lastWarned;

}  // namespace

std::optional<std::string> validBidServerBase(std::string_view value) {
    std::string text(value);
    while (!text.empty() && text.back() == '/') text.pop_back();
    if (text.rfind("http://", 0) != 0 && text.rfind("https://", 0) != 0) return std::nullopt;
    if (text.find_first_of(" \t\r\n") != std::string::npos) return std::nullopt;
    const auto url = platform::parseURL(text);
    if (!url || !url->host || url->host->empty()) return std::nullopt;
    if (url->query || url->fragment || url->user) return std::nullopt;
    return text;
}

std::string chooseBidServerBase(const char* env, std::string_view builtIn) {
    if (env && *env) {  // set but empty reads as unset
        if (auto valid = validBidServerBase(env)) return *valid;
        bool warn = false;
        {
            std::lock_guard lock(stateMutex);
            if (lastWarned != env) {
                lastWarned = env;
                warn = true;
            }
        }
        if (warn)
            platform::QVLog("QUOV_BID_SERVER_BASE is not an http or https URL, ignored: %@", env);
    }
    std::string base(builtIn);
    while (!base.empty() && base.back() == '/') base.pop_back();
    return base;
}

std::string bidServerBase() {
    if (auto injected = platform::Context::shared().serviceBase()) return *injected;
    return chooseBidServerBase(std::getenv("QUOV_BID_SERVER_BASE"), QUOV_DEFAULT_BID_SERVER_BASE);
}

}  // namespace quov::network
