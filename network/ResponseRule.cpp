#include "network/ResponseRule.h"
#include "platform/runtime/Text.h"

#include <algorithm>
#include <cctype>

namespace quov::network {
namespace {

Error httpError(HttpErrorCode code, std::string description) {
    return Error{kHttpErrorDomain, code, "Request failed: " + std::move(description)};
}

// The media type alone: parameters cut off, blanks trimmed, lower case.
std::string mediaType(std::string_view contentType) {
    contentType = contentType.substr(0, contentType.find(';'));
    while (!contentType.empty() && std::isspace(static_cast<unsigned char>(contentType.front())))
        contentType.remove_prefix(1);
    while (!contentType.empty() && std::isspace(static_cast<unsigned char>(contentType.back())))
        contentType.remove_suffix(1);
    return platform::asciiLower(contentType);
}

std::optional<std::string> textOf(const std::string& body) {
    if (!isValidUtf8(body)) return std::nullopt;
    return body;
}

}  // namespace

bool isValidUtf8(std::string_view s) {
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    const auto* end = p + s.size();
    while (p < end) {
        const unsigned char c = *p;
        if (c < 0x80) {
            ++p;
            continue;
        }
        int extra;
        unsigned min;
        unsigned cp;
        if ((c & 0xE0) == 0xC0) {
            extra = 1, min = 0x80, cp = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            extra = 2, min = 0x800, cp = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            extra = 3, min = 0x10000, cp = c & 0x07;
        } else {
            return false;
        }
        if (end - p <= extra) return false;
        for (int i = 1; i <= extra; ++i) {
            if ((p[i] & 0xC0) != 0x80) return false;
            cp = (cp << 6) | (p[i] & 0x3F);
        }
        if (cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
        p += extra + 1;
    }
    return true;
}

JsonOutcome evaluateJsonResponse(const platform::HttpResponse& r, const nlohmann::json::parser_callback_t& callback) {
    JsonOutcome out;
    if (!r.transportOk) {
        out.error = httpError(kHttpTransport, r.errorText.empty() ? "no answer" : r.errorText);
        return out;
    }
    if (r.status < 200 || r.status > 299) {
        out.error = httpError(kHttpStatus, "unacceptable status code " + std::to_string(r.status));
        out.responseText = textOf(r.body);
        return out;
    }
    if (r.body.empty() || r.body == " ") {
        out.ok = true;
        return out;
    }
    const std::string type = mediaType(r.contentType);
    if (type != "application/json" && type != "text/json" && type != "text/javascript") {
        out.error = httpError(kHttpContentType,
                              "unacceptable content-type: " + (type.empty() ? "(none)" : type));
        out.responseText = textOf(r.body);
        return out;
    }
    nlohmann::json parsed = nlohmann::json::parse(r.body, callback, /*allow_exceptions=*/false);
    if (parsed.is_discarded()) {
        out.error = httpError(kHttpJson, "the body is not valid JSON");
        return out;
    }
    out.ok = true;
    out.body = std::move(parsed);
    return out;
}

}  // namespace quov::network
