#pragma once

#include <quov/MainLoop.h>

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <typeindex>
#include <vector>

namespace quov::platform {

class Application;
class DevicePlatform;
class FrameSurface;
class HttpClient;
class ImageLoader;
class LinuxDevicePlatform;
class ProgramURLOpener;
class TaskWorker;

/// The one wiring point: creates and owns the platform pieces the SDK runs on.
///
/// Start: each piece is made on first use, after what it needs: the device
/// platform, then the Application (with the URL opener and the device platform
/// connected), the HTTP worker, the image loader on it, the task worker for CPU
/// work, and last the parts registered from outside the core (the SDL backend).
/// Shutdown (shutDown(), or the destructor) runs the other way: registered parts
/// go first, then the task worker, the image loader, the HTTP worker and the URL
/// opener's worker are stopped and joined, in that order. Stopped workers are
/// kept, so a late send fails once instead of reaching freed memory.
///
/// The accessors are safe from any thread; the pieces keep their own threading
/// rules (the Application belongs on the main thread).
class Context {
public:
    /// The process's context, on MainLoop::shared(). Never destroyed: a host's
    /// static destructor may still flush. Shut down at exit, before libcurl's and
    /// OpenSSL's own exit handlers tear down what the HTTP worker uses.
    static Context& shared();

    explicit Context(MainLoop& loop);
    ~Context();
    Context(const Context&) = delete;
    Context& operator=(const Context&) = delete;

    MainLoop& mainLoop() const { return loop_; }
    HttpClient& http();
    ImageLoader& images();
    /// CPU work off the main thread (parsing large answers).
    TaskWorker& tasks();
    Application& application();
    /// The host-rendered surface on application().
    FrameSurface& frameSurface();
    /// Runs program to open URLs from now on (see ProgramURLOpener), in place of
    /// whatever opener application() had.
    void setURLOpenerProgram(std::string program);

    /// The Linux platform that the host configures (bundle, identifiers, screen).
    std::shared_ptr<LinuxDevicePlatform> linuxDevice();
    /// What every device query goes through: the replacement in force, else linuxDevice().
    std::shared_ptr<const DevicePlatform> devicePlatform();
    /// The base URL of the service requests go to, when one was set or injected.
    std::optional<std::string> serviceBase() const;
    /// Sets (nullopt: clears) that base until changed; not validated here. Any thread.
    void setServiceBase(std::optional<std::string> base);

    /// Starts, once, a thread that does the first-use work the main thread would
    /// otherwise pay at the first ad load: the crypto library's and libcurl's
    /// initialisation, the HTTP worker. Returns at once; a first real use that races
    /// it stays correct, as every piece is made once under its own guard. Any thread.
    void warmUp();

    /// Stops the workers in the stated order (after the warm-up ends). Idempotent;
    /// main thread or exit.
    void shutDown();

    /// Replaces the device platform for the guard's lifetime (tests, benchmarks).
    class ScopedDevicePlatform {
    public:
        ScopedDevicePlatform(Context& context, std::shared_ptr<const DevicePlatform> platform);
        ~ScopedDevicePlatform();
        ScopedDevicePlatform(const ScopedDevicePlatform&) = delete;
        ScopedDevicePlatform& operator=(const ScopedDevicePlatform&) = delete;

    private:
        Context& context_;
        std::shared_ptr<const DevicePlatform> previous_;
    };

    /// Points service requests at base for the guard's lifetime; nullopt removes an
    /// injected base for that time.
    class ScopedServiceBase {
    public:
        ScopedServiceBase(Context& context, std::optional<std::string> base);
        ~ScopedServiceBase();
        ScopedServiceBase(const ScopedServiceBase&) = delete;
        ScopedServiceBase& operator=(const ScopedServiceBase&) = delete;

    private:
        Context& context_;
        std::optional<std::string> previous_;
    };

    /// A piece built outside the core (the SDL backend registers itself this way,
    /// so the core does not depend on it). Destroyed first at shutdown.
    struct Part {
        virtual ~Part() = default;
    };
    /// The part of type T, made with T(*this) on first use. Main thread.
    template <class T>
    T& part() {
        std::lock_guard lock(mutex_);
        auto& slot = parts_[std::type_index(typeid(T))];
        if (!slot) {
            slot = std::make_unique<T>(*this);
            partOrder_.push_back(std::type_index(typeid(T)));
        }
        return static_cast<T&>(*slot);
    }

private:
    void joinWarmUp();

    MainLoop& loop_;
    mutable std::recursive_mutex mutex_;
    std::mutex warmUpMutex_;  // guards the two below; taken before mutex_, never inside it
    bool warmUpStarted_ = false;
    std::jthread warmUp_;
    bool shutDown_ = false;
    bool shutDownAtExit_ = false;
    std::shared_ptr<LinuxDevicePlatform> linuxDevice_;
    std::shared_ptr<const DevicePlatform> deviceReplacement_;
    std::optional<std::string> serviceBase_;
    std::shared_ptr<ProgramURLOpener> opener_;  // shared with application_'s opener
    std::unique_ptr<Application> application_;
    std::unique_ptr<FrameSurface> frameSurface_;
    std::unique_ptr<HttpClient> http_;
    std::unique_ptr<ImageLoader> images_;
    std::unique_ptr<TaskWorker> tasks_;
    std::map<std::type_index, std::unique_ptr<Part>> parts_;
    std::vector<std::type_index> partOrder_;
};

}  // namespace quov::platform
