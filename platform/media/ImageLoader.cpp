#include "platform/media/ImageLoader.h"

#include "platform/http/UrlSyntax.h"
#include "platform/media/ImageDecoder.h"
#include "platform/runtime/Log.h"

#include <condition_variable>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

namespace quov::platform {
namespace {

bool downloadable(const std::optional<std::string>& url) {
    if (!url || url->empty() || url->size() > kMaxURLBytes) return false;
    const auto scheme = absoluteURLScheme(*url);
    return scheme && (*scheme == "http" || *scheme == "https");
}

}  // namespace

// Everything but the decode queue is touched on the main thread only: load() is called
// there and every network or decode result is posted back there. Posted tasks reach
// this state through weak pointers, so a loader may go while answers are on the way.
struct ImageLoader::Impl {
    struct State {
        State(HttpClient& h, MainLoop& l, std::size_t bytes) : http(h), loop(l), capacity(bytes) {}

        HttpClient& http;
        MainLoop& loop;
        const ImageLimits limits;
        const std::size_t capacity;

        // Most recently used first.
        std::list<std::pair<std::string, ImagePtr>> lru;
        std::unordered_map<std::string, decltype(lru)::iterator> cached;
        std::size_t used = 0;
        std::size_t pending = 0;  // loads whose completion has not run
        std::unordered_map<std::string, std::vector<Completion>> waiting;

        // Decode queue, shared with the worker.
        std::mutex mutex;
        std::condition_variable wake;
        std::deque<std::pair<std::string, std::string>> jobs;  // url, encoded bytes
        bool stopping = false;
        std::jthread worker;

        void decodeJobs(std::weak_ptr<State> self) {
            for (;;) {
                std::pair<std::string, std::string> job;
                {
                    std::unique_lock lock(mutex);
                    wake.wait(lock, [this] { return stopping || !jobs.empty(); });
                    if (stopping) break;
                    job = std::move(jobs.front());
                    jobs.pop_front();
                }
                ImagePtr image;
                try {
                    image = decodeImage(job.second, limits);
                } catch (...) {
                    // Out of memory on a hostile image: that load fails, the worker goes on.
                }
                if (!image) QVDebug("Image refused: %@ is not a PNG, JPEG or WebP within the size limits, or is broken", job.first);
                loop.post([self, url = std::move(job.first), image = std::move(image)] {
                    if (auto live = self.lock()) live->finish(url, image);
                });
            }
            releaseDecoderThreadState();
        }

        void remember(const std::string& url, const ImagePtr& image) {
            const std::size_t size = image->rgba.size();
            if (size > capacity) return;  // would push out everything else for one image
            while (used + size > capacity && !lru.empty()) {
                used -= lru.back().second->rgba.size();
                cached.erase(lru.back().first);
                lru.pop_back();
            }
            lru.emplace_front(url, image);
            cached[url] = lru.begin();
            used += size;
        }

        void finish(const std::string& url, const ImagePtr& image) {
            if (image) remember(url, image);
            auto it = waiting.find(url);
            if (it == waiting.end()) return;
            auto completions = std::move(it->second);
            waiting.erase(it);  // before the calls, which may load the same URL again
            for (auto& completion : completions)
                if (completion) completion(image);
        }
    };

    std::shared_ptr<State> state;
};

ImageLoader::ImageLoader(HttpClient& http, MainLoop& loop, std::size_t cacheBytes)
    : impl_(new Impl{std::make_shared<Impl::State>(http, loop, cacheBytes)}) {
    // Joined by the destructor before the state can go, so it may use it directly.
    Impl::State* state = impl_->state.get();
    try {
        state->worker = std::jthread([state, weak = std::weak_ptr(impl_->state)] {
            state->decodeJobs(weak);
        });
    } catch (...) {
        delete impl_;
        throw;
    }
}

ImageLoader::~ImageLoader() {
    shutDown();
    delete impl_;
}

void ImageLoader::shutDown() {
    auto& s = *impl_->state;
    {
        std::lock_guard lock(s.mutex);
        s.stopping = true;
        s.jobs.clear();
    }
    s.wake.notify_all();
    if (s.worker.joinable()) s.worker.join();
    // Every caller still gets its one answer.
    auto waiting = std::move(s.waiting);
    s.waiting.clear();
    for (auto& [url, completions] : waiting)
        for (auto& completion : completions)
            s.loop.post([completion = std::move(completion)] {
                if (completion) completion(nullptr);
            });
}

std::size_t ImageLoader::pendingLoads() const { return impl_->state->pending; }

void ImageLoader::load(const std::optional<std::string>& url, Completion completion) {
    auto& s = *impl_->state;
    ++s.pending;
    completion = [counted = std::weak_ptr<Impl::State>(impl_->state),
                  completion = std::move(completion)](ImagePtr image) {
        if (auto state = counted.lock()) --state->pending;
        if (completion) completion(std::move(image));
    };
    if (!downloadable(url)) {
        QVDebug("Image refused: %@ is not an http or https URL", orNull(url));
        s.loop.post([completion = std::move(completion)] {
            if (completion) completion(nullptr);
        });
        return;
    }
    if (auto hit = s.cached.find(*url); hit != s.cached.end()) {
        s.lru.splice(s.lru.begin(), s.lru, hit->second);
        s.loop.post([completion = std::move(completion), image = hit->second->second] {
            if (completion) completion(image);
        });
        return;
    }
    auto [entry, first] = s.waiting.try_emplace(*url);
    entry->second.push_back(std::move(completion));
    if (!first) return;  // joins the download already under way

    HttpRequest request;
    request.lane = "image";
    request.url = *url;
    request.headers = {{"Accept", "image/png,image/jpeg,image/webp;q=0.9,*/*;q=0.5"}};
    request.timeout = std::chrono::seconds(30);
    request.maxBodyBytes = s.limits.maxBytes;
    std::weak_ptr<Impl::State> weak = impl_->state;
    s.http.send(std::move(request), [weak, key = *url](HttpResponse response) {
        auto state = weak.lock();
        if (!state) return;
        if (!response.transportOk || response.status < 200 || response.status > 299 ||
            response.body.empty()) {
            QVDebug("Image failed: %@, HTTP status %@, transport: %@", key, std::to_string(response.status),
                    response.transportOk ? std::string("ok") : response.errorText);
            state->finish(key, nullptr);
            return;
        }
        {
            std::lock_guard lock(state->mutex);
            if (!state->stopping) {
                state->jobs.emplace_back(key, std::move(response.body));
                state->wake.notify_one();
                return;
            }
        }
        state->finish(key, nullptr);  // nobody left to decode it
    });
}

}  // namespace quov::platform
