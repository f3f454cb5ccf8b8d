#pragma once

#include <cstddef>
#include <cstdint>

// Each takes arbitrary bytes and must neither crash, hang nor leak.
namespace quov::fuzz {

void bidResponse(const std::uint8_t* data, std::size_t size);  // byte 0: status and content type
void image(const std::uint8_t* data, std::size_t size);
void url(const std::uint8_t* data, std::size_t size);
void macros(const std::uint8_t* data, std::size_t size);   // IMEI, OAID, then the URL
void request(const std::uint8_t* data, std::size_t size);  // base, AppId, AppKey

}  // namespace quov::fuzz
