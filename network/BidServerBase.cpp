#include "network/BidServerBase.h"

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

std::optional<std::string> bidServerBaseProblem(std::string_view value) {
    const std::string text(value);
    if (text.empty()) return "it is empty";
    if (text.rfind("http://", 0) != 0 && text.rfind("https://", 0) != 0)
        return "it must start with http:// or https://";
    for (const char c : text)
        if (static_cast<unsigned char>(c) <= ' ' || c == 0x7f) return "it contains a blank or a control character";
    if (text.size() == text.find("//") + 2) return "it has no host";
    if (text.back() == '/') return "it must not end with '/'";
    std::unique_ptr<CURLU, UrlDeleter> url(curl_url());
    if (!url) return "no memory to parse it";
    if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return "it is not a valid URL";
    const auto host = part(url.get(), CURLUPART_HOST);
    if (!host || host->empty()) return "it has no host";
    if (part(url.get(), CURLUPART_USER)) return "it must not carry user information";
    if (part(url.get(), CURLUPART_QUERY)) return "it must not have a query";
    if (part(url.get(), CURLUPART_FRAGMENT)) return "it must not have a fragment";
    const auto path = part(url.get(), CURLUPART_PATH);
    if (path && !path->empty() && *path != "/") return "it must not have a path (\"/network\" is appended)";
    return std::nullopt;
}

std::string bidServerBase() {
    std::lock_guard lock(stateMutex);
    if (overrideBase) return *overrideBase;
    return QUOV_DEFAULT_BID_SERVER_BASE;
}

void setBidServerBaseOverride(std::optional<std::string> base) {
    std::lock_guard lock(stateMutex);
    overrideBase = std::move(base);
}

}  // namespace quov::network
