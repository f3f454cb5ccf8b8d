#include "platform/toolkit/NotificationCenter.h"

#include <algorithm>

namespace quov::platform {

void NotificationCenter::addObserver(const void* observer, Handler handler, std::string name,
                                     const void* object) {
    if (!handler) return;
    entries_.push_back(std::make_shared<Entry>(
        Entry{observer, std::move(handler), std::move(name), object}));
}

void NotificationCenter::removeObserver(const void* observer) {
    std::erase_if(entries_, [observer](const auto& e) {
        if (e->observer != observer) return false;
        e->removed = true;
        return true;
    });
}

void NotificationCenter::removeObserver(const void* observer, std::string_view name) {
    std::erase_if(entries_, [observer, name](const auto& e) {
        if (e->observer != observer || e->name != name) return false;
        e->removed = true;
        return true;
    });
}

void NotificationCenter::postNotificationName(std::string_view name, const void* object) {
    const Notification note{std::string(name), object};
    const auto snapshot = entries_;
    for (const auto& e : snapshot) {
        if (e->removed || e->name != name || (e->object && e->object != object)) continue;
        const Handler handler = e->handler;  // the entry may be removed inside
        handler(note);
    }
}

}  // namespace quov::platform
