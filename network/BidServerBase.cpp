#include "network/BidServerBase.h"

#include "platform/runtime/Log.h"

#include <curl/curl.h>

#include <memory>
#include <mutex>

#ifndef QUOV_DEFAULT_BID_SERVER_BASE
#define QUOV_DEFAULT_BID_SERVER_BASE "http://127.0.0.1:8080"
#endif

namespace quov::network {
namespace {

std::mutex stateMutex;
std::optional<std::string> overrideBase;
std::string lastWarned;

struct UrlDeleter {
    void operator()(CURLU* u) const { curl_url_cleanup(u); }
};

// A part of the parsed URL, absent when the URL has none.
std::optional<std::string> part(CURLU* url, CURLUPart which) {
    char* value = nullptr;
    if (curl_url_get(url, which, &value, 0) != CURLUE_OK || !value) return std::nullopt;
    std::string out(value);
    curl_free(value);
    return out;
}

}  // namespace

std::optional<std::string> validBidServerBase(std::string_view value) {
    std::string text(value);
    while (!text.empty() && text.back() == '/') text.pop_back();
    if (text.rfind("http://", 0) != 0 && text.rfind("https://", 0) != 0) return std::nullopt;
    // Every control byte, NUL included: the URL parser below would stop at a NUL
    // and vouch for only the part before it. Any '?' or '#': the parser reports an
    // empty query or fragment as none, yet one would swallow the appended path.
    for (const unsigned char c : text)
        if (c <= ' ' || c == 0x7f || c == '?' || c == '#') return std::nullopt;
    std::unique_ptr<CURLU, UrlDeleter> url(curl_url());
    if (!url || curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return std::nullopt;
    const auto host = part(url.get(), CURLUPART_HOST);
    if (!host || host->empty()) return std::nullopt;
    if (part(url.get(), CURLUPART_QUERY) || part(url.get(), CURLUPART_FRAGMENT) ||
        part(url.get(), CURLUPART_USER))
        return std::nullopt;
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
    {
        std::lock_guard lock(stateMutex);
        if (overrideBase) return *overrideBase;
    }
    return chooseBidServerBase(std::getenv("QUOV_BID_SERVER_BASE"), QUOV_DEFAULT_BID_SERVER_BASE);
}

void setBidServerBaseOverride(std::optional<std::string> base) {
    std::lock_guard lock(stateMutex);
    overrideBase = std::move(base);
}

}  // namespace quov::network
