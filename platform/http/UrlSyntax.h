#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quov::platform {

/// The longest URL downloaded or handed to another program: far beyond any real
/// landing page or image address, well below the kernel's argument limits.
inline constexpr std::size_t kMaxURLBytes = 32 * 1024;

/// The lower-cased scheme of `text` when it reads as an absolute URL, else nothing.
/// Strict on purpose, because what passes goes to a downloader or to another program:
/// only the characters a URL may carry (no whitespace, controls or raw non-ASCII),
/// well-formed percent escapes, a scheme of at least two characters (one letter would
/// read as a drive letter) and something after its colon; http and https also need
/// "//" and a host. Pure and thread-safe.
std::optional<std::string> absoluteURLScheme(std::string_view text);

/// Whether text has the shape of a URL scheme as absoluteURLScheme accepts one: a
/// letter, then letters, digits, '+', '-' or '.', two characters at least.
bool isURLScheme(std::string_view text);

/// The parts of an absolute URL as the HTTP transport reads it; each absent when
/// the URL has none, except port: the one a connection goes to, the scheme's
/// default when none is written. Empty queries and fragments read as none.
struct URLParts {
    std::optional<std::string> scheme, user, host, port, path, query, fragment;
};

/// text parsed the way the transport will read it; absent when it does not parse.
/// The one reader of a URL's parts (absoluteURLScheme judges shape only, see its
/// definition). Any thread.
std::optional<URLParts> parseURL(const std::string& text);

}  // namespace quov::platform
