#pragma once

#include <quov/Export.h>

#include <cstdint>
#include <optional>
#include <string>

namespace quov {

/// An error the SDK reports to the host: a domain, a code and an optional
/// human-readable description. A plain value; copy it freely.
struct QUOV_EXPORT Error {
    std::string domain;
    std::int64_t code = 0;
    std::optional<std::string> description;

    /// One line for logs: Error Domain=<domain> Code=<code> "<description>"
    /// (the quoted part only when there is a description).
    std::string describe() const;

    friend bool operator==(const Error&, const Error&) = default;
};

/// The SDK's error factory.
class QUOV_EXPORT QVError {
public:
    /// Domain of every factory error; the leading blank is part of it.
    static constexpr const char* kDomain = " QuovADSDK Error";

    /// An error with kDomain, the code unchanged and the code's description
    /// (3002, 4001, 4002 have their own; every other code the generic one).
    static Error errorWithCode(std::int64_t code);
};

}  // namespace quov
