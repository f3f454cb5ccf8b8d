#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quov::platform {

using Md5Digest = std::array<std::uint8_t, 16>;

/// MD5 of data; absent when the crypto library offers no MD5 (a FIPS build). Any thread.
std::optional<Md5Digest> md5(std::string_view data);

/// MD5 fed in pieces. Any thread, one owner.
class Md5Stream {
public:
    Md5Stream();  // throws std::runtime_error when MD5 is unavailable
    ~Md5Stream();
    Md5Stream(const Md5Stream&) = delete;
    Md5Stream& operator=(const Md5Stream&) = delete;

    void update(const void* data, std::size_t size);
    /// Throws std::runtime_error when the digest cannot be made.
    Md5Digest finish();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

/// HMAC-SHA-256 of data under key; absent on failure. Cheap on a cold start: it
/// needs none of the crypto library's costly first-use work. Any thread.
std::optional<std::vector<std::uint8_t>> hmacSha256(std::string_view key, std::string_view data);

/// Fills out with cryptographically strong random bytes from getrandom(2) (the
/// standard library's source where the call is missing). No file is opened. Any thread.
void randomBytes(std::uint8_t* out, std::size_t size);

/// A new random UUID, upper-case 8-4-4-4-12. Any thread.
std::string randomUUID();

/// The crypto library's cheap base initialisation, which registers its exit
/// handler: an exit handler registered after this runs before the library's.
void initCryptoBase();

/// Does the crypto library's costly first-use work (configuration, providers).
/// Slow (about a millisecond); meant for a thread other than the host's. Any thread.
void prepareCrypto();

}  // namespace quov::platform
