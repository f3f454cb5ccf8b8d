// The SHA-256 block functions are marked deprecated in favour of the provider
// calls; they are kept for their cheap first use (see hmacSha256).
#define OPENSSL_SUPPRESS_DEPRECATED
#include "platform/runtime/Crypto.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <sys/random.h>
#include <uuid/uuid.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <random>
#include <stdexcept>

namespace quov::platform {

std::optional<Md5Digest> md5(std::string_view data) {
    prepareCrypto();
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (!EVP_Digest(data.data(), data.size(), digest, &size, EVP_md5(), nullptr) || size != 16) return std::nullopt;
    Md5Digest out;
    std::copy(digest, digest + 16, out.begin());
    return out;
}

struct Md5Stream::Impl {
    struct Free {
        void operator()(EVP_MD_CTX* c) const { EVP_MD_CTX_free(c); }
    };
    std::unique_ptr<EVP_MD_CTX, Free> ctx{EVP_MD_CTX_new()};
};

Md5Stream::Md5Stream() : impl_(std::make_unique<Impl>()) {
    prepareCrypto();
    if (!impl_->ctx || !EVP_DigestInit_ex(impl_->ctx.get(), EVP_md5(), nullptr))
        throw std::runtime_error("MD5 is unavailable in this OpenSSL");
}

Md5Stream::~Md5Stream() = default;

void Md5Stream::update(const void* data, std::size_t size) { EVP_DigestUpdate(impl_->ctx.get(), data, size); }

Md5Digest Md5Stream::finish() {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    if (!EVP_DigestFinal_ex(impl_->ctx.get(), digest, &size) || size != 16)
        throw std::runtime_error("MD5 is unavailable in this OpenSSL");
    Md5Digest out;
    std::copy(digest, digest + 16, out.begin());
    return out;
}

std::optional<std::vector<std::uint8_t>> hmacSha256(std::string_view key, std::string_view data) {
    // The library's SHA-256 block functions, wrapped in HMAC here: its HMAC and
    // EVP calls fetch through the provider machinery, whose first use costs about
    // a millisecond, and setup derives the vendor identifier on the host's thread.
    constexpr std::size_t kBlock = SHA256_CBLOCK;
    unsigned char block[kBlock] = {};
    if (key.size() > kBlock)
        SHA256(reinterpret_cast<const unsigned char*>(key.data()), key.size(), block);
    else if (!key.empty())
        std::memcpy(block, key.data(), key.size());
    unsigned char pad[kBlock], inner[SHA256_DIGEST_LENGTH], mac[SHA256_DIGEST_LENGTH];
    SHA256_CTX ctx;
    for (std::size_t i = 0; i < kBlock; ++i) pad[i] = block[i] ^ 0x36;
    if (!SHA256_Init(&ctx) || !SHA256_Update(&ctx, pad, kBlock) || !SHA256_Update(&ctx, data.data(), data.size()) ||
        !SHA256_Final(inner, &ctx))
        return std::nullopt;
    for (std::size_t i = 0; i < kBlock; ++i) pad[i] = block[i] ^ 0x5c;
    if (!SHA256_Init(&ctx) || !SHA256_Update(&ctx, pad, kBlock) || !SHA256_Update(&ctx, inner, sizeof inner) ||
        !SHA256_Final(mac, &ctx))
        return std::nullopt;
    return std::vector<std::uint8_t>(mac, mac + sizeof mac);
}

void randomBytes(std::uint8_t* out, std::size_t size) {
    while (size > 0) {
        const ssize_t n = ::getrandom(out, size, 0);
        if (n > 0) {
            out += n;
            size -= static_cast<std::size_t>(n);
            continue;
        }
        if (n < 0 && errno == EINTR) continue;
        break;  // a kernel or sandbox without the call
    }
    if (size == 0) return;
    std::random_device device;
    for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<std::uint8_t>(device());
}

std::string randomUUID() {
    uuid_t id;
    randomBytes(id, sizeof id);
    id[6] = static_cast<std::uint8_t>((id[6] & 0x0F) | 0x40);  // version 4
    id[8] = static_cast<std::uint8_t>((id[8] & 0x3F) | 0x80);  // the RFC 4122 variant
    char text[37];
    uuid_unparse_upper(id, text);
    return text;
}

void initCryptoBase() {
    // No flag at all returns before the exit handler is registered; this one is
    // the cheapest that gets there (tens of microseconds, no configuration).
    OPENSSL_init_crypto(OPENSSL_INIT_ATFORK, nullptr);
}

void prepareCrypto() {
    // Configuration, providers and the digest fetches MD5 and the HMAC need, paid
    // once. A caller that arrives while another thread pays waits for it instead of
    // starting the same work on its own thread.
    static std::once_flag once;
    std::call_once(once, [] {
        OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
        EVP_MD_free(EVP_MD_fetch(nullptr, "MD5", nullptr));
        EVP_MD_free(EVP_MD_fetch(nullptr, "SHA256", nullptr));
    });
}

}  // namespace quov::platform
