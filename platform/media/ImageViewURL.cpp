#include "platform/media/ImageViewURL.h"

#include <cstdint>
#include <map>

namespace quov::platform {
namespace {

// The newest request per view, so a slow earlier image cannot replace a newer one.
// Main thread only; entries of views that are gone are pruned on each call.
using Requests = std::map<std::weak_ptr<ImageView>, std::uint64_t,
                          std::owner_less<std::weak_ptr<ImageView>>>;

Requests& requests() {
    static Requests* map = new Requests;  // outlives late answers at exit
    return *map;
}

}  // namespace

void setImageWithURL(std::weak_ptr<ImageView> view, const std::optional<std::string>& url,
                     ImageLoader& loader) {
    auto target = view.lock();
    if (!target) return;
    target->setImage(nullptr);

    static std::uint64_t counter = 0;
    auto& latest = requests();
    for (auto it = latest.begin(); it != latest.end();)
        it = it->first.expired() ? latest.erase(it) : std::next(it);
    const std::uint64_t ticket = ++counter;
    latest[view] = ticket;

    loader.load(url, [view, ticket](ImagePtr image) {
        auto& pending = requests();
        const auto it = pending.find(view);
        if (it == pending.end() || it->second != ticket) return;
        pending.erase(it);
        if (auto shown = view.lock()) shown->setImage(std::move(image));
    });
}

}  // namespace quov::platform
