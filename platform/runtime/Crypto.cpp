#include "platform/runtime/Crypto.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <sys/random.h>
#include <uuid/uuid.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <random>
#include <stdexcept>

namespace quov::platform {

std::optional<Md5Digest> md5(std::string_view data) {
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

namespace {

// SHA-256 of our own: the crypto library's digests go through its provider
// machinery, whose first use costs about a millisecond, and the vendor
// identifier is derived on the host's thread while setup builds its record.
class Sha256 {
public:
    void update(const std::uint8_t* data, std::size_t size) {
        total_ += size;
        while (size > 0) {
            const std::size_t take = std::min(size, sizeof block_ - used_);
            std::memcpy(block_ + used_, data, take);
            used_ += take;
            data += take;
            size -= take;
            if (used_ == sizeof block_) {
                compress();
                used_ = 0;
            }
        }
    }

    std::array<std::uint8_t, 32> finish() {
        const std::uint64_t bits = total_ * 8;
        const std::uint8_t pad = 0x80;
        update(&pad, 1);
        const std::uint8_t zero = 0;
        while (used_ != 56) update(&zero, 1);
        std::uint8_t length[8];
        for (int i = 0; i < 8; ++i) length[i] = static_cast<std::uint8_t>(bits >> (56 - 8 * i));
        update(length, 8);
        std::array<std::uint8_t, 32> out;
        for (int i = 0; i < 8; ++i)
            for (int j = 0; j < 4; ++j) out[4 * i + j] = static_cast<std::uint8_t>(state_[i] >> (24 - 8 * j));
        return out;
    }

private:
    static std::uint32_t rotr(std::uint32_t x, int n) { return (x >> n) | (x << (32 - n)); }

    void compress() {
        static constexpr std::uint32_t k[64] = {
            0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
            0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
            0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
            0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
            0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
            0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
            0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
            0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};
        std::uint32_t w[64];
        for (int i = 0; i < 16; ++i)
            w[i] = std::uint32_t{block_[4 * i]} << 24 | std::uint32_t{block_[4 * i + 1]} << 16 |
                   std::uint32_t{block_[4 * i + 2]} << 8 | std::uint32_t{block_[4 * i + 3]};
        for (int i = 16; i < 64; ++i) {
            const std::uint32_t s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
            const std::uint32_t s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
            w[i] = w[i - 16] + s0 + w[i - 7] + s1;
        }
        std::uint32_t a = state_[0], b = state_[1], c = state_[2], d = state_[3];
        std::uint32_t e = state_[4], f = state_[5], g = state_[6], h = state_[7];
        for (int i = 0; i < 64; ++i) {
            const std::uint32_t t1 = h + (rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25)) + ((e & f) ^ (~e & g)) + k[i] + w[i];
            const std::uint32_t t2 = (rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22)) + ((a & b) ^ (a & c) ^ (b & c));
            h = g;
            g = f;
            f = e;
            e = d + t1;
            d = c;
            c = b;
            b = a;
            a = t1 + t2;
        }
        state_[0] += a;
        state_[1] += b;
        state_[2] += c;
        state_[3] += d;
        state_[4] += e;
        state_[5] += f;
        state_[6] += g;
        state_[7] += h;
    }

    std::uint32_t state_[8] = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                               0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
    std::uint8_t block_[64] = {};
    std::size_t used_ = 0;
    std::uint64_t total_ = 0;
};

const std::uint8_t* bytes(std::string_view s) { return reinterpret_cast<const std::uint8_t*>(s.data()); }

}  // namespace

std::optional<std::vector<std::uint8_t>> hmacSha256(std::string_view key, std::string_view data) {
    std::uint8_t block[64] = {};
    if (key.size() > sizeof block) {
        Sha256 hashed;
        hashed.update(bytes(key), key.size());
        const auto digest = hashed.finish();
        std::memcpy(block, digest.data(), digest.size());
    } else {
        std::memcpy(block, key.data(), key.size());
    }
    std::uint8_t pad[64];
    Sha256 inner;
    for (std::size_t i = 0; i < sizeof pad; ++i) pad[i] = block[i] ^ 0x36;
    inner.update(pad, sizeof pad);
    inner.update(bytes(data), data.size());
    const auto innerDigest = inner.finish();
    Sha256 outer;
    for (std::size_t i = 0; i < sizeof pad; ++i) pad[i] = block[i] ^ 0x5c;
    outer.update(pad, sizeof pad);
    outer.update(innerDigest.data(), innerDigest.size());
    const auto mac = outer.finish();
    return std::vector<std::uint8_t>(mac.begin(), mac.end());
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
    // Configuration, providers and the digest fetch MD5 needs, paid once here
    // instead of by the first caller.
    OPENSSL_init_crypto(OPENSSL_INIT_LOAD_CONFIG, nullptr);
    EVP_MD_free(EVP_MD_fetch(nullptr, "MD5", nullptr));
}

}  // namespace quov::platform
