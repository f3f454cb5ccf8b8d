#pragma once

#include <cstddef>
#include <cstdint>

namespace quov::fuzz {

// Each takes arbitrary bytes and must neither crash nor hang nor leak, whatever
// they hold. Shared by the libFuzzer drivers and by the replay test of saved inputs.

/// A bid server's answer: byte 0 picks the status and content type, the rest is the
/// body; then the bids, their image boxes and their click URLs' touch macros.
void bidResponse(const std::uint8_t* data, std::size_t size);

/// Downloaded image bytes: header probe, then a decode under small caps.
void image(const std::uint8_t* data, std::size_t size);

/// A URL from the network: the opener's syntax check, query percent-encoding, the
/// touch macros with sizes and points taken from the bytes, the leading-integer rule.
void url(const std::uint8_t* data, std::size_t size);

/// Host and server values in macro filling: IMEI and OAID taken from the bytes
/// (macro names in them included), then both passes over the rest as the URL.
void macros(const std::uint8_t* data, std::size_t size);

/// The bid request's address and headers from a hostile base, AppId and AppKey:
/// an accepted base is a bare http(s) origin and path, and no header carries a
/// line break past the transport.
void request(const std::uint8_t* data, std::size_t size);

}  // namespace quov::fuzz
