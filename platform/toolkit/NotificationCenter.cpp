#include "platform/toolkit/NotificationCenter.h"

#include <algorithm>

namespace quov::platform {

// The center keeps the only strong reference: an ended entry is marked, and
// dropped at the next add or post, so a post's snapshot never dangles.
void NotificationCenter::Subscription::reset() {
    if (auto entry = entry_.lock()) entry->removed = true;
    entry_.reset();
}

NotificationCenter::Subscription NotificationCenter::addObserver(Handler handler, std::string name,
                                                                 const void* object) {
    if (!handler) return {};
    std::erase_if(entries_, [](const auto& e) { return e->removed; });
    auto entry = std::make_shared<Entry>(Entry{std::move(handler), std::move(name), object});
    entries_.push_back(entry);
    return Subscription(entry);
}

void NotificationCenter::postNotificationName(std::string_view name, const void* object) {
    std::erase_if(entries_, [](const auto& e) { return e->removed; });
    const Notification note{std::string(name), object};
    const auto snapshot = entries_;
    for (const auto& e : snapshot) {
        if (e->removed || e->name != name || (e->object && e->object != object)) continue;
        const Handler handler = e->handler;  // the entry may be ended inside
        handler(note);
    }
}

std::size_t NotificationCenter::observerCount() const {
    return static_cast<std::size_t>(
        std::count_if(entries_.begin(), entries_.end(), [](const auto& e) { return !e->removed; }));
}

}  // namespace quov::platform
