#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quov::platform {

/// Posted (object: the Application) when the interface flips between portrait
/// and landscape, or when the host reports an orientation change.
inline constexpr std::string_view UIDeviceOrientationDidChangeNotification =
    "UIDeviceOrientationDidChangeNotification";

struct Notification {
    std::string name;
    const void* object = nullptr;
};

/// Synchronous notifications on the main thread. Observers are identified by an
/// address (usually `this`) and must remove themselves before they die.
class NotificationCenter {
public:
    using Handler = std::function<void(const Notification&)>;

    /// object null: from any sender.
    void addObserver(const void* observer, Handler handler, std::string name,
                     const void* object = nullptr);
    /// Every registration of observer.
    void removeObserver(const void* observer);
    void removeObserver(const void* observer, std::string_view name);

    /// Calls the matching handlers in registration order before returning. A
    /// handler removed by an earlier one in the same post is not called; one added
    /// during the post is called from the next post on.
    void postNotificationName(std::string_view name, const void* object = nullptr);

    std::size_t observerCount() const { return entries_.size(); }

private:
    struct Entry {
        const void* observer;
        Handler handler;
        std::string name;
        const void* object;
        bool removed = false;
    };
    std::vector<std::shared_ptr<Entry>> entries_;
};

}  // namespace quov::platform
