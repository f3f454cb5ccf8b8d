#pragma once

#include <quov/MainLoop.h>

#include "platform/http/HttpClient.h"
#include "platform/toolkit/Image.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

namespace quov::platform {

/// Downloads and decodes images off the main thread, with an in-memory cache by URL
/// (bounded in bytes, least recently used out) and coalescing of concurrent loads.
class ImageLoader {
public:
    /// Called once on the main loop: the image, or null when the URL is absent or
    /// malformed, the download fails, or the data is not a decodable image within caps.
    using Completion = std::function<void(ImagePtr image)>;

    ImageLoader(HttpClient& http, MainLoop& loop, std::size_t cacheBytes = 32u << 20);
    ~ImageLoader();  // shutDown(), then frees the cache

    /// Stops and joins the decode worker; every load waiting, and every later one,
    /// completes with null. Idempotent; main thread.
    void shutDown();
    ImageLoader(const ImageLoader&) = delete;
    ImageLoader& operator=(const ImageLoader&) = delete;

    /// Main thread. Never blocks on I/O or decoding.
    void load(const std::optional<std::string>& url, Completion completion);

    /// Loads whose completion has not run yet. Main thread.
    std::size_t pendingLoads() const;

private:
    struct Impl;
    Impl* impl_;
};

}  // namespace quov::platform
