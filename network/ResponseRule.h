#pragma once

#include <quov/QVError.h>

#include "platform/http/HttpClient.h"

#include <nlohmann/json.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace quov::network {

/// Domain of the errors the response rule makes; the code says which check failed.
inline constexpr const char* kHttpErrorDomain = "quov.http";
enum HttpErrorCode : std::int64_t {
    kHttpTransport = 1,    // no complete answer (refused, timed out, too large, bad URL)
    kHttpStatus = 2,       // status outside 200..299
    kHttpContentType = 3,  // a body that is not declared as JSON
    kHttpJson = 4,         // a body declared as JSON that does not parse
};

/// What one answer means to a caller that expects JSON.
struct JsonOutcome {
    bool ok = false;
    /// On success: the parsed body, or absent for an empty (or single-space) body.
    std::optional<nlohmann::json> body;
    /// On failure: why.
    Error error;
    /// On a status or content-type failure: the answer's body when it is valid UTF-8.
    std::optional<std::string> responseText;
};

/// The one rule for bid and tracking answers: transport error, then status
/// 200..299, then empty or " " (success, no body), then a JSON content type
/// (application/json, text/json, text/javascript) and a body that parses.
/// With a callback, the body is parsed through it (nlohmann's parser callback: a
/// value it answers false for is left out of the document).
JsonOutcome evaluateJsonResponse(const platform::HttpResponse& response,
                                 const nlohmann::json::parser_callback_t& callback = nullptr);

/// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view bytes);

}  // namespace quov::network
