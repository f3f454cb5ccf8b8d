#include "platform/runtime/Crypto.h"

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>
#include <uuid/uuid.h>

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

std::optional<std::vector<std::uint8_t>> hmacSha256(std::string_view key, std::string_view data) {
    unsigned char mac[EVP_MAX_MD_SIZE];
    unsigned int size = 0;
    static const unsigned char kEmpty[1] = {0};  // HMAC wants a pointer even for no key
    const void* keyData = key.empty() ? static_cast<const void*>(kEmpty) : key.data();
    if (!HMAC(EVP_sha256(), keyData, static_cast<int>(key.size()), reinterpret_cast<const unsigned char*>(data.data()),
              data.size(), mac, &size))
        return std::nullopt;
    return std::vector<std::uint8_t>(mac, mac + size);
}

void randomBytes(std::uint8_t* out, std::size_t size) {
    if (RAND_bytes(out, static_cast<int>(size)) == 1) return;
    // OpenSSL's generator could not seed; the OS source still can.
    std::random_device device;
    for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<std::uint8_t>(device());
}

std::string randomUUID() {
    uuid_t id;
    uuid_generate_random(id);
    char text[37];
    uuid_unparse_upper(id, text);
    return text;
}

}  // namespace quov::platform
