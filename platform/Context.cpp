#include "platform/Context.h"

#include "platform/device/linux_device.h"
#include "platform/http/HttpClient.h"
#include "platform/media/ImageLoader.h"
#include "platform/opener/UrlOpener.h"
#include "platform/runtime/Crypto.h"
#include "platform/runtime/TaskWorker.h"
#include "platform/toolkit/Application.h"
#include "platform/toolkit/FrameSurface.h"

#include <cstdlib>
#include <utility>

namespace quov::platform {

Context& Context::shared() {
    static Context* context = [] {
        auto* c = new Context(MainLoop::shared());
        c->shutDownAtExit_ = true;
        return c;
    }();
    return *context;
}

Context::Context(MainLoop& loop) : loop_(loop) {}

Context::~Context() {
    // Parts built on the core go before it; then the core, in reverse of its start.
    for (auto it = partOrder_.rbegin(); it != partOrder_.rend(); ++it) parts_.erase(*it);
    shutDown();
    tasks_.reset();
    images_.reset();
    http_.reset();
    frameSurface_.reset();
    application_.reset();
    opener_.reset();
}

void Context::warmUp() {
    std::lock_guard warmLock(warmUpMutex_);
    if (warmUpStarted_) return;
    warmUpStarted_ = true;
    {
        std::lock_guard lock(mutex_);
        if (shutDown_) return;
    }
    if (shutDownAtExit_) {
        // An exit while the warm-up runs must wait for it before the crypto library
        // tears itself down: handlers run in reverse, so the library's goes in first.
        initCryptoBase();
        std::atexit([] { Context::shared().joinWarmUp(); });
    }
    warmUp_ = std::jthread([this] {
        try {
            prepareCrypto();
            http();
        } catch (...) {
            // The first real use meets the same failure and reports it.
        }
    });
}

void Context::joinWarmUp() {
    std::jthread running;
    {
        std::lock_guard lock(warmUpMutex_);
        running = std::move(warmUp_);
    }
    if (running.joinable()) running.join();
}

void Context::shutDown() {
    // Outside the lock: the warm-up takes it to install the HTTP worker.
    joinWarmUp();
    std::lock_guard lock(mutex_);
    if (shutDown_) return;
    shutDown_ = true;
    if (tasks_) tasks_->shutDown();
    if (images_) images_->shutDown();
    if (http_) http_->shutDown();
    if (opener_) opener_->shutDown();
}

std::shared_ptr<LinuxDevicePlatform> Context::linuxDevice() {
    std::lock_guard lock(mutex_);
    if (!linuxDevice_) linuxDevice_ = std::make_shared<LinuxDevicePlatform>();
    return linuxDevice_;
}

std::shared_ptr<const DevicePlatform> Context::devicePlatform() {
    {
        std::lock_guard lock(mutex_);
        if (deviceReplacement_) return deviceReplacement_;
    }
    return linuxDevice();
}

std::optional<std::string> Context::serviceBase() const {
    std::lock_guard lock(mutex_);
    return serviceBase_;
}

void Context::setServiceBase(std::optional<std::string> base) {
    std::lock_guard lock(mutex_);
    serviceBase_ = std::move(base);
}

Application& Context::application() {
    std::lock_guard lock(mutex_);
    if (!application_) {
        auto app = std::make_unique<Application>(loop_);
        connectDevicePlatform(*app, linuxDevice());
        opener_ = std::make_shared<ProgramURLOpener>("xdg-open", loop_);
        if (shutDown_) opener_->shutDown();
        app->setURLOpener(urlOpenerFor(opener_));
        application_ = std::move(app);
    }
    return *application_;
}

void Context::setURLOpenerProgram(std::string program) {
    std::lock_guard lock(mutex_);
    Application& app = application();
    opener_->setProgram(std::move(program));
    app.setURLOpener(urlOpenerFor(opener_));
}

FrameSurface& Context::frameSurface() {
    std::lock_guard lock(mutex_);
    if (!frameSurface_) frameSurface_ = std::make_unique<FrameSurface>(application());
    return *frameSurface_;
}

HttpClient& Context::http() {
    {
        std::lock_guard lock(mutex_);
        if (http_) return *http_;
    }
    // Made outside the lock: libcurl's first initialisation takes about a
    // millisecond, and the main thread must not wait for it to read the device
    // platform while the warm-up pays it. A client that lost the race is dropped.
    auto client = std::make_unique<HttpClient>(loop_);
    std::lock_guard lock(mutex_);
    if (!http_) {
        http_ = std::move(client);
        // Registered after the client's construction set up libcurl and OpenSSL,
        // so it runs before their own exit handlers.
        if (shutDownAtExit_) std::atexit([] { Context::shared().shutDown(); });
        if (shutDown_) http_->shutDown();
    }
    return *http_;
}

ImageLoader& Context::images() {
    std::lock_guard lock(mutex_);
    if (!images_) {
        images_ = std::make_unique<ImageLoader>(http(), loop_);
        if (shutDown_) images_->shutDown();
    }
    return *images_;
}

TaskWorker& Context::tasks() {
    std::lock_guard lock(mutex_);
    if (!tasks_) {
        tasks_ = std::make_unique<TaskWorker>();
        if (shutDown_) tasks_->shutDown();
    }
    return *tasks_;
}

Context::ScopedDevicePlatform::ScopedDevicePlatform(Context& context,
                                                    std::shared_ptr<const DevicePlatform> platform)
    : context_(context) {
    std::lock_guard lock(context_.mutex_);
    previous_ = std::exchange(context_.deviceReplacement_, std::move(platform));
}

Context::ScopedDevicePlatform::~ScopedDevicePlatform() {
    std::lock_guard lock(context_.mutex_);
    context_.deviceReplacement_ = std::move(previous_);
}

Context::ScopedServiceBase::ScopedServiceBase(Context& context, std::optional<std::string> base)
    : context_(context) {
    std::lock_guard lock(context_.mutex_);
    previous_ = std::exchange(context_.serviceBase_, std::move(base));
}

Context::ScopedServiceBase::~ScopedServiceBase() {
    std::lock_guard lock(context_.mutex_);
    context_.serviceBase_ = std::move(previous_);
}

}  // namespace quov::platform
