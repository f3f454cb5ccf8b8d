#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

namespace quov::platform {

/// A fixed block of pixel bytes. Unlike a vector it never zero-fills what is about to be
/// overwritten, and it can adopt a block someone else allocated (a decoder's own pixels)
/// together with whatever frees it.
class PixelBytes {
public:
    using Release = void (*)(void* owner);

    PixelBytes() = default;
    /// `size` bytes, left uninitialised.
    explicit PixelBytes(std::size_t size) : PixelBytes(size ? new std::uint8_t[size] : nullptr, size) {}
    /// Takes `bytes`; `release(owner)` frees them when the buffer goes.
    PixelBytes(std::uint8_t* bytes, std::size_t size, void* owner, Release release) noexcept
        : data_(bytes), size_(size), owner_(owner, release) {}

    PixelBytes(PixelBytes&& other) noexcept
        : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)),
          owner_(std::move(other.owner_)) {}
    PixelBytes& operator=(PixelBytes&& other) noexcept {
        owner_ = std::move(other.owner_);
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
        return *this;
    }
    PixelBytes(const PixelBytes& other) : PixelBytes(other.size_) {
        if (size_) std::memcpy(data_, other.data_, size_);
    }
    PixelBytes& operator=(const PixelBytes& other) {
        if (this != &other) *this = PixelBytes(other);
        return *this;
    }

    /// Keeps the first min(size, n) bytes; bytes beyond them read as zero.
    void resize(std::size_t n) {
        PixelBytes grown(n);
        const std::size_t kept = n < size_ ? n : size_;
        if (kept) std::memcpy(grown.data_, data_, kept);
        if (n > kept) std::memset(grown.data_ + kept, 0, n - kept);
        *this = std::move(grown);
    }

    std::uint8_t* data() noexcept { return data_; }
    const std::uint8_t* data() const noexcept { return data_; }
    std::size_t size() const noexcept { return size_; }
    bool empty() const noexcept { return size_ == 0; }
    std::uint8_t& operator[](std::size_t i) noexcept { return data_[i]; }
    const std::uint8_t& operator[](std::size_t i) const noexcept { return data_[i]; }
    std::uint8_t* begin() noexcept { return data_; }
    std::uint8_t* end() noexcept { return data_ + size_; }
    const std::uint8_t* begin() const noexcept { return data_; }
    const std::uint8_t* end() const noexcept { return data_ + size_; }

private:
    PixelBytes(std::uint8_t* owned, std::size_t size) noexcept
        : PixelBytes(owned, size, owned, [](void* p) { delete[] static_cast<std::uint8_t*>(p); }) {}

    std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
    std::unique_ptr<void, Release> owner_{nullptr, nullptr};
};

/// Decoded pixels, 8-bit RGBA, rows top to bottom, no padding. Immutable once made;
/// shared between the image cache and the views that show it.
struct Image {
    int width = 0;
    int height = 0;
    PixelBytes rgba;  // width * height * 4 bytes
};

using ImagePtr = std::shared_ptr<const Image>;

}  // namespace quov::platform
