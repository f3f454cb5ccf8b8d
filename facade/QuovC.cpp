// The C interface over the C++ one. Every entry catches: no exception crosses it.
#include <quov/quov.h>

#include <quov/Log.h>
#include <quov/MainLoop.h>
#include <quov/QuovAd.h>
#include <quov/QuovFrame.h>
#include <quov/QuovHost.h>
#if QUOV_WITH_SDL
#include <quov/QuovSDL.h>
#endif

#include <chrono>
#include <map>
#include <vector>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

thread_local std::string lastError;

std::optional<std::string> text(const char* s) {
    if (!s) return std::nullopt;
    return std::string(s);
}

const char* cText(const std::optional<std::string>& s) { return s ? s->c_str() : nullptr; }

/// Runs f, turning what it throws into a status and a readable message.
template <typename F>
quov_status guarded(F&& f) {
    try {
        lastError.clear();
        f();
        return QUOV_OK;
    } catch (const std::invalid_argument& e) {
        lastError = e.what();
        return QUOV_INVALID_ARGUMENT;
    } catch (const std::exception& e) {
        lastError = e.what();
    } catch (...) {
        lastError = "unknown failure";
    }
    return QUOV_FAILED;
}

class CDelegate : public quov::QuovAdDelegate {
public:
    explicit CDelegate(const quov_delegate& d) : d_(d) {}
    void onQuovSDKAdFetchedBid(quov::QVBidModelPtr bid) override {
        if (d_.on_fetched_bid) d_.on_fetched_bid(d_.user_data, reinterpret_cast<const quov_bid*>(bid.get()));
    }
    void onQuovSDKAdLoaded() override { call(d_.on_loaded); }
    void onQuovSDKAdDisplayed() override { call(d_.on_displayed); }
    void onQuovSDKAdClicked() override { call(d_.on_clicked); }
    void onQuovSDKAdClosed() override { call(d_.on_closed); }
    void onQuovSDKAdLoadFailed(const quov::Error& error) override {
        if (!d_.on_load_failed) return;
        const quov_error e{error.domain.c_str(), error.code, cText(error.description)};
        d_.on_load_failed(d_.user_data, &e);
    }

private:
    void call(void (*f)(void*)) {
        if (f) f(d_.user_data);
    }
    quov_delegate d_;
};

// The facade holds its delegate weakly; the C host hands over a struct, so the
// adapter lives here until replaced.
std::shared_ptr<CDelegate>& currentDelegate() {
    static auto* d = new std::shared_ptr<CDelegate>();
    return *d;
}

const quov::QVBidModel& bidOf(const quov_bid* bid) { return *reinterpret_cast<const quov::QVBidModel*>(bid); }

}  // namespace

extern "C" {

const char* quov_last_error_message(void) { return lastError.c_str(); }

const char* quov_bid_identifier(const quov_bid* bid) { return bid ? cText(bidOf(bid).identifier()) : nullptr; }
const char* quov_bid_deep_link_url(const quov_bid* bid) { return bid ? cText(bidOf(bid).deepLinkURL()) : nullptr; }
const char* quov_bid_click_url(const quov_bid* bid) { return bid ? cText(bidOf(bid).clickURL()) : nullptr; }
const char* quov_bid_image_url(const quov_bid* bid) {
    if (!bid || bidOf(bid).images().empty()) return nullptr;
    return cText(bidOf(bid).images().front().url());
}

quov_status quov_setup(const char* app_id, const char* app_key) {
    return guarded([&] { quov::QuovAd::shared().setupWithAppId(text(app_id), text(app_key)); });
}
void quov_set_imei(const char* imei) { guarded([&] { quov::QuovAd::shared().setIMEI(text(imei)); }); }
void quov_set_oaid(const char* oaid) { guarded([&] { quov::QuovAd::shared().setOAID(text(oaid)); }); }
void quov_set_delegate(const quov_delegate* delegate) {
    guarded([&] {
        auto& current = currentDelegate();
        current = delegate ? std::make_shared<CDelegate>(*delegate) : nullptr;
        quov::QuovAd::shared().setDelegate(current);
    });
}
quov_status quov_load_ad(const char* ad_id) {
    return guarded([&] { quov::QuovAd::shared().loadAdWithAdId(text(ad_id)); });
}
const char* quov_app_id(void) { return cText(quov::QuovAd::shared().AppId()); }
const char* quov_app_key(void) { return cText(quov::QuovAd::shared().AppKey()); }
const char* quov_imei(void) { return cText(quov::QuovAd::shared().IMEI()); }
const char* quov_oaid(void) { return cText(quov::QuovAd::shared().OAID()); }
int quov_flush(int timeout_ms) {
    bool done = false;
    guarded([&] { done = quov::QuovAd::shared().flush(std::chrono::milliseconds(timeout_ms)); });
    return done ? 1 : 0;
}

void quov_host_set_bundle_info(const char* const* keys, const char* const* values, size_t count) {
    guarded([&] {
        std::map<std::string, std::string> info;
        for (size_t i = 0; keys && values && i < count; ++i)
            if (keys[i] && values[i]) info[keys[i]] = values[i];
        quov::QuovHost::setBundleInfo(std::move(info));
    });
}
void quov_host_set_advertising_identifier(const char* identifier, int tracking_enabled) {
    guarded([&] { quov::QuovHost::setAdvertisingIdentifier(text(identifier), tracking_enabled != 0); });
}
quov_status quov_host_set_bid_server_base(const char* base) {
    return guarded([&] { quov::QuovHost::setBidServerBase(text(base)); });
}
size_t quov_host_allow_url_schemes(const char* const* schemes, size_t count) {
    size_t refused = 0;
    guarded([&] {
        std::vector<std::string> list;
        for (size_t i = 0; schemes && i < count; ++i)
            if (schemes[i]) list.emplace_back(schemes[i]);
        refused = quov::QuovHost::allowURLSchemes(list).size();
    });
    return refused;
}
void quov_set_load_timeout(int timeout_ms) {
    guarded([&] { quov::QuovAd::shared().setLoadTimeout(std::chrono::milliseconds(timeout_ms)); });
}
void quov_set_preload_before_show(int on) {
    guarded([&] { quov::QuovAd::shared().setPreloadBeforeShow(on != 0); });
}
int quov_is_ad_ready(void) {
    int ready = 0;
    guarded([&] { ready = quov::QuovAd::shared().isAdReady() ? 1 : 0; });
    return ready;
}
int quov_show_ad(void) {
    int shown = 0;
    guarded([&] { shown = quov::QuovAd::shared().showAd() ? 1 : 0; });
    return shown;
}
void quov_set_fit_ad_to_screen(int on) {
    guarded([&] { quov::QuovAd::shared().setFitAdToScreen(on != 0); });
}
void quov_set_log_handler(void (*handler)(void*, quov_log_level, const char*), void* user_data) {
    guarded([&] {
        if (!handler) return quov::setLogHandler(nullptr);
        quov::setLogHandler([handler, user_data](quov::LogLevel level, const std::string& line) {
            handler(user_data, level == quov::LogLevel::Debug ? QUOV_LOG_DEBUG : QUOV_LOG_INFO, line.c_str());
        });
    });
}
void quov_set_debug_logging(int on) { guarded([&] { quov::setDebugLogging(on != 0); }); }
void quov_host_set_carrier_name(const char* name) {
    guarded([&] { quov::QuovHost::setCarrierName(text(name)); });
}
void quov_host_set_main_screen(double width, double height, double scale) {
    guarded([&] { quov::QuovHost::setMainScreen({{width, height}, scale, std::nullopt}); });
}
static bool validState(quov_application_state s) { return s >= QUOV_STATE_ACTIVE && s <= QUOV_STATE_BACKGROUND; }
void quov_host_set_application_state(quov_application_state state) {
    if (!validState(state)) return;
    guarded([&] { quov::QuovHost::setApplicationState(static_cast<quov::ApplicationState>(state)); });
}
void quov_host_set_url_opener_program(const char* program) {
    if (!program) return;
    guarded([&] { quov::QuovHost::setURLOpenerProgram(program); });
}

size_t quov_main_loop_drain(void) {
    size_t ran = 0;
    guarded([&] { ran = quov::MainLoop::shared().drain(); });
    return ran;
}
int quov_main_loop_fd(void) { return quov::MainLoop::shared().fd(); }
size_t quov_main_loop_pending(void) { return quov::MainLoop::shared().pending(); }
int quov_main_loop_run_until(int (*done)(void*), void* user_data, int timeout_ms) {
    if (!done) return 0;
    bool result = false;
    guarded([&] {
        result = quov::MainLoop::shared().runUntil([&] { return done(user_data) != 0; },
                                                   std::chrono::milliseconds(timeout_ms));
    });
    return result ? 1 : 0;
}

#if QUOV_WITH_SDL
void quov_sdl_attach_window(struct SDL_Window* window) { guarded([&] { quov::sdl::attachWindow(window); }); }
int quov_sdl_process_event(const union SDL_Event* event) {
    bool taken = false;
    if (event) guarded([&] { taken = quov::sdl::processEvent(*event); });
    return taken ? 1 : 0;
}
void quov_sdl_render(struct SDL_Renderer* renderer) { guarded([&] { quov::sdl::render(renderer); }); }
void quov_sdl_release_renderer(void) { guarded([] { quov::sdl::releaseRenderer(); }); }
void quov_sdl_set_ui_scale(double scale) { guarded([&] { quov::sdl::setUIScale(scale); }); }
void quov_sdl_orientation_did_change(void) { guarded([] { quov::sdl::orientationDidChange(); }); }
int quov_sdl_find_element(const char* label, double frame[4]) {
    if (!label || !frame) return 0;
    std::optional<quov::Rect> found;
    guarded([&] { found = quov::sdl::findElement(label); });
    if (!found) return 0;
    frame[0] = found->origin.x;
    frame[1] = found->origin.y;
    frame[2] = found->size.width;
    frame[3] = found->size.height;
    return 1;
}
int quov_sdl_is_loading_content(void) { return quov::sdl::isLoadingContent() ? 1 : 0; }
#else
// The SDL entry points stay in a build without the SDL backend, so one host binary
// loads against either library; they only report that the backend is missing.
namespace {
void noSdl() { lastError = "built without the SDL backend (QUOV_WITH_SDL=OFF)"; }
}  // namespace
void quov_sdl_attach_window(struct SDL_Window*) { noSdl(); }
int quov_sdl_process_event(const union SDL_Event*) {
    noSdl();
    return 0;
}
void quov_sdl_render(struct SDL_Renderer*) { noSdl(); }
void quov_sdl_release_renderer(void) { noSdl(); }
void quov_sdl_set_ui_scale(double) { noSdl(); }
void quov_sdl_orientation_did_change(void) { noSdl(); }
int quov_sdl_find_element(const char*, double*) {
    noSdl();
    return 0;
}
int quov_sdl_is_loading_content(void) {
    noSdl();
    return 0;
}
#endif

void quov_frame_attach_surface(int width, int height, double scale) {
    guarded([&] { quov::frame::attachSurface(width, height, scale); });
}
int quov_frame_pointer(uint64_t id, quov_pointer_phase phase, double x, double y) {
    bool taken = false;
    guarded([&] { taken = quov::frame::pointer(id, static_cast<quov::frame::PointerPhase>(phase), x, y); });
    return taken ? 1 : 0;
}
int quov_frame_key(quov_key key, int down) {
    bool taken = false;
    guarded([&] { taken = quov::frame::key(static_cast<quov::frame::Key>(key), down != 0); });
    return taken ? 1 : 0;
}
void quov_frame_set_application_state(quov_application_state state) {
    if (!validState(state)) return;
    guarded([&] { quov::frame::setApplicationState(static_cast<quov::ApplicationState>(state)); });
}
int quov_frame_needs_display(void) {
    bool needs = false;
    guarded([&] { needs = quov::frame::needsDisplay(); });
    return needs ? 1 : 0;
}
int quov_frame_draw(uint8_t* pixels, int width, int height, int stride) {
    bool drawn = false;
    guarded([&] { drawn = quov::frame::draw(pixels, width, height, stride); });
    return drawn ? 1 : 0;
}

}  // extern "C"
