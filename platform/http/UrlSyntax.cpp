#include "platform/http/UrlSyntax.h"
#include "platform/runtime/Text.h"

#include <curl/curl.h>

#include <memory>

namespace quov::platform {
namespace {

bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isHex(char c) { return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

// Unreserved, gen-delims and sub-delims; '%' is checked with its two digits.
bool isURLChar(char c) {
    if (isAlpha(c) || isDigit(c)) return true;
    switch (c) {
        case '-': case '.': case '_': case '~':
        case ':': case '/': case '?': case '#': case '[': case ']': case '@':
        case '!': case '$': case '&': case '\'': case '(': case ')':
        case '*': case '+': case ',': case ';': case '=':
            return true;
        default:
            return false;
    }
}

}  // namespace

bool isURLScheme(std::string_view text) {
    if (text.size() < 2 || !isAlpha(text[0])) return false;
    for (const char c : text)
        if (!isAlpha(c) && !isDigit(c) && c != '+' && c != '-' && c != '.') return false;
    return true;
}

// Not built on parseURL on purpose: the transport reads only its own schemes, with
// "//" after them, and refuses hosts and ports the opener program may still read,
// while a host's deep link ("myapp:open?id=1") is handed on as written.
std::optional<std::string> absoluteURLScheme(std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '%') {
            if (i + 2 >= text.size() || !isHex(text[i + 1]) || !isHex(text[i + 2]))
                return std::nullopt;
            i += 2;
        } else if (!isURLChar(c)) {
            return std::nullopt;
        }
    }

    const std::size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon + 1 == text.size() || !isURLScheme(text.substr(0, colon)))
        return std::nullopt;
    const std::string scheme = asciiLower(text.substr(0, colon));

    if (scheme == "http" || scheme == "https") {
        const std::string_view rest = text.substr(colon + 1);
        if (rest.substr(0, 2) != "//") return std::nullopt;
        const std::string_view authority = rest.substr(2, rest.find_first_of("/?#", 2) - 2);
        const std::size_t at = authority.rfind('@');
        const std::string_view hostPort =
            at == std::string_view::npos ? authority : authority.substr(at + 1);
        if (hostPort.empty() || hostPort[0] == ':') return std::nullopt;
    }
    return scheme;
}

namespace {

struct UrlDeleter {
    void operator()(CURLU* u) const { curl_url_cleanup(u); }
};

std::optional<std::string> part(CURLU* url, CURLUPart which, unsigned flags = 0) {
    char* value = nullptr;
    if (curl_url_get(url, which, &value, flags) != CURLUE_OK || !value) return std::nullopt;
    std::string out(value);
    curl_free(value);
    return out;
}

}  // namespace

std::optional<URLParts> parseURL(const std::string& text) {
    std::unique_ptr<CURLU, UrlDeleter> url(curl_url());
    if (!url || curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) return std::nullopt;
    URLParts parts;
    parts.scheme = part(url.get(), CURLUPART_SCHEME);
    parts.user = part(url.get(), CURLUPART_USER);
    parts.host = part(url.get(), CURLUPART_HOST);
    parts.port = part(url.get(), CURLUPART_PORT, CURLU_DEFAULT_PORT);
    parts.path = part(url.get(), CURLUPART_PATH);
    parts.query = part(url.get(), CURLUPART_QUERY);
    parts.fragment = part(url.get(), CURLUPART_FRAGMENT);
    return parts;
}

}  // namespace quov::platform
