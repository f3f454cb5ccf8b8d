#include "network/BidServerBase.h"

#include "platform/Context.h"
#include "platform/http/UrlSyntax.h"

#ifndef QUOV_DEFAULT_BID_SERVER_BASE
#define QUOV_DEFAULT_BID_SERVER_BASE "http://127.0.0.1:8080"
#endif

namespace quov::network {

std::optional<std::string> bidServerBaseProblem(std::string_view value) {
    const std::string text(value);
    if (text.empty()) return "it is empty";
    // These first checks read the text as spelled, not as parseURL reads it: it is
    // pasted before "/network" as it stands, and the reader lower-cases the scheme.
    if (text.rfind("http://", 0) != 0 && text.rfind("https://", 0) != 0)
        return "it must start with http:// or https://";
    for (const char c : text)
        if (static_cast<unsigned char>(c) <= ' ' || c == 0x7f) return "it contains a blank or a control character";
    // The parser reports an empty query or fragment as none, yet either would
    // swallow the appended path.
    if (text.find_first_of("?#") != std::string::npos) return "it must not have a query or fragment";
    if (text.size() == text.find("//") + 2) return "it has no host";
    if (text.back() == '/') return "it must not end with '/'";
    const auto url = platform::parseURL(text);
    if (!url) return "it is not a valid URL";
    if (!url->host || url->host->empty()) return "it has no host";
    if (url->user) return "it must not carry user information";
    if (url->query) return "it must not have a query";
    if (url->fragment) return "it must not have a fragment";
    if (url->path && !url->path->empty() && *url->path != "/") return "it must not have a path (\"/network\" is appended)";
    return std::nullopt;
}

std::string bidServerBase() {
    if (auto base = platform::Context::shared().serviceBase()) return *base;
    return QUOV_DEFAULT_BID_SERVER_BASE;
}

}  // namespace quov::network
