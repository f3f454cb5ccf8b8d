#pragma once

#include <cstddef>
#include <cstdint>

// Each takes arbitrary bytes and must neither crash, hang nor leak. Shared by the
// libFuzzer drivers and the replay test of saved inputs.
namespace quov::fuzz {

/// Byte 0 picks the status and content type, the rest is the body; then the bids,
/// their image boxes and their click URLs' touch macros.
void bidResponse(const std::uint8_t* data, std::size_t size);
/// Header probe, then a decode under small caps.
void image(const std::uint8_t* data, std::size_t size);
/// The opener's syntax check, query encoding, touch macros and the leading-integer rule.
void url(const std::uint8_t* data, std::size_t size);
/// IMEI and OAID from the bytes (macro names included), then both passes over the rest.
void macros(const std::uint8_t* data, std::size_t size);
/// A hostile base, AppId and AppKey: an accepted base is a bare http(s) origin and
/// path, and no header carries a line break past the transport.
void request(const std::uint8_t* data, std::size_t size);

}  // namespace quov::fuzz
