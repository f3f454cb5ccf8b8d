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

/// Synchronous notifications on the main thread. Each registration lasts as long
/// as the Subscription it returned, which its observer keeps as a member: an
/// observer can neither outlive its registration nor forget to end it.
class NotificationCenter {
    struct Entry;

public:
    using Handler = std::function<void(const Notification&)>;

    /// One registration; ends when destroyed, reset or assigned over, also while a
    /// post runs. Safe to outlive the center. Move-only; main thread.
    class Subscription {
    public:
        Subscription() = default;
        ~Subscription() { reset(); }
        Subscription(Subscription&&) noexcept = default;
        Subscription& operator=(Subscription&& other) noexcept {
            if (this != &other) {
                reset();
                entry_ = std::move(other.entry_);
            }
            return *this;
        }
        Subscription(const Subscription&) = delete;
        Subscription& operator=(const Subscription&) = delete;

        void reset();
        /// Whether it still receives: registered, and neither ended nor orphaned.
        bool active() const { return !entry_.expired(); }

    private:
        friend class NotificationCenter;
        explicit Subscription(std::weak_ptr<Entry> entry) : entry_(std::move(entry)) {}
        std::weak_ptr<Entry> entry_;
    };

    NotificationCenter() = default;
    NotificationCenter(const NotificationCenter&) = delete;
    NotificationCenter& operator=(const NotificationCenter&) = delete;

    /// object null: from any sender. An empty handler registers nothing.
    [[nodiscard]] Subscription addObserver(Handler handler, std::string name, const void* object = nullptr);

    /// Calls the matching handlers in registration order before returning. A
    /// handler ended by an earlier one in the same post is not called; one added
    /// during the post is called from the next post on.
    void postNotificationName(std::string_view name, const void* object = nullptr);

    std::size_t observerCount() const;

private:
    struct Entry {
        Handler handler;
        std::string name;
        const void* object;
        bool removed = false;
    };
    std::vector<std::shared_ptr<Entry>> entries_;
};

}  // namespace quov::platform
