#include "platform/sdl/SdlBackend.h"

#include "platform/runtime/Log.h"
#include "platform/toolkit/Painter.h"

#include <algorithm>
#include <cmath>
#include <string>

namespace quov::platform {

// ---------------------------------------------------------------- textures

namespace {
constexpr std::uint64_t kIdleFrames = 120;  // undrawn this long: let the texture go
}

void TextureCache::bind(SDL_Renderer* renderer) {
    if (renderer == renderer_) return;
    clear();
    renderer_ = renderer;
}

SDL_Texture* TextureCache::textureFor(const ImagePtr& image) {
    if (!image || !renderer_) return nullptr;
    auto it = entries_.find(image.get());
    // Same address but another image: the old one died and its slot was reused.
    if (it != entries_.end() && it->second.image.lock() != image) {
        entries_.erase(it);
        it = entries_.end();
    }
    if (it == entries_.end()) {
        Entry entry{image, nullptr, frame_};
        const auto expected = static_cast<std::size_t>(image->width) *
                              static_cast<std::size_t>(image->height) * 4;
        if (image->width > 0 && image->height > 0 && image->rgba.size() == expected) {
            SDL_Texture* t = SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_RGBA32,
                                               SDL_TEXTUREACCESS_STATIC, image->width, image->height);
            if (t && SDL_UpdateTexture(t, nullptr, image->rgba.data(), image->width * 4) == 0) {
                SDL_SetTextureBlendMode(t, SDL_BLENDMODE_BLEND);
                SDL_SetTextureScaleMode(t, SDL_ScaleModeLinear);
                entry.texture.reset(t);
                ++uploads_;
            } else {
                if (t) SDL_DestroyTexture(t);
                // Remembered as failed so it is not retried every frame.
                QVLog("Rendering: cannot upload an image of %@ x %@ pixels: %@",
                      std::to_string(image->width), std::to_string(image->height),
                      std::string(SDL_GetError()));
            }
        }
        it = entries_.emplace(image.get(), std::move(entry)).first;
    }
    it->second.lastUsed = frame_;
    return it->second.texture.get();
}

void TextureCache::endFrame() {
    ++frame_;
    std::erase_if(entries_, [this](const auto& kv) {
        return kv.second.image.expired() || frame_ - kv.second.lastUsed > kIdleFrames;
    });
}

void TextureCache::clear() { entries_.clear(); }

void TextureCache::forget() {
    for (auto& [image, entry] : entries_) (void)entry.texture.release();
    entries_.clear();
}

// ---------------------------------------------------------------- drawing

namespace {

std::uint8_t channel(double v) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0, 1.0) * 255.0));
}

class SdlPainter : public Painter {
public:
    SdlPainter(SDL_Renderer* r, TextureCache& textures, double sx, double sy)
        : r_(r), textures_(textures), sx_(sx), sy_(sy) {}

    void fillRect(const Rect& rect, const Color& c) override {
        const SDL_FRect f = toPixels(rect);
        if (f.w <= 0 || f.h <= 0) return;
        SDL_SetRenderDrawColor(r_, channel(c.red), channel(c.green), channel(c.blue), channel(c.alpha));
        SDL_RenderFillRectF(r_, &f);
    }

    void drawImage(const ImagePtr& image, const Rect& source, const Rect& destination,
                   double alpha) override {
        SDL_Texture* t = textures_.textureFor(image);
        if (!t) return;
        const SDL_FRect d = toPixels(destination);
        if (d.w <= 0 || d.h <= 0) return;
        const SDL_Rect s{static_cast<int>(std::lround(source.origin.x)),
                         static_cast<int>(std::lround(source.origin.y)),
                         std::max(1, static_cast<int>(std::lround(source.size.width))),
                         std::max(1, static_cast<int>(std::lround(source.size.height)))};
        SDL_SetTextureAlphaMod(t, channel(alpha));
        SDL_RenderCopyF(r_, t, &s, &d);
    }

private:
    SDL_FRect toPixels(const Rect& r) const {
        return {static_cast<float>(r.origin.x * sx_), static_cast<float>(r.origin.y * sy_),
                static_cast<float>(r.size.width * sx_), static_cast<float>(r.size.height * sy_)};
    }
    SDL_Renderer* r_;
    TextureCache& textures_;
    double sx_, sy_;
};

/// The host's renderer state, put back as it was however render() leaves.
class RendererStateGuard {
public:
    explicit RendererStateGuard(SDL_Renderer* r) : r_(r) {
        SDL_GetRenderDrawColor(r, &color_[0], &color_[1], &color_[2], &color_[3]);
        SDL_GetRenderDrawBlendMode(r, &blend_);
        SDL_RenderGetScale(r, &scaleX_, &scaleY_);
        SDL_RenderGetViewport(r, &viewport_);
        clipped_ = SDL_RenderIsClipEnabled(r) == SDL_TRUE;
        SDL_RenderGetClipRect(r, &clip_);

        SDL_RenderSetScale(r, 1.0f, 1.0f);
        SDL_RenderSetViewport(r, nullptr);
        SDL_RenderSetClipRect(r, nullptr);
        SDL_SetRenderDrawBlendMode(r, SDL_BLENDMODE_BLEND);
    }
    ~RendererStateGuard() {
        // Scale first: viewport and clip are read and set in scaled units.
        SDL_RenderSetScale(r_, scaleX_, scaleY_);
        SDL_RenderSetViewport(r_, &viewport_);
        SDL_RenderSetClipRect(r_, clipped_ ? &clip_ : nullptr);
        SDL_SetRenderDrawBlendMode(r_, blend_);
        SDL_SetRenderDrawColor(r_, color_[0], color_[1], color_[2], color_[3]);
    }
    RendererStateGuard(const RendererStateGuard&) = delete;
    RendererStateGuard& operator=(const RendererStateGuard&) = delete;

private:
    SDL_Renderer* r_;
    Uint8 color_[4]{};
    SDL_BlendMode blend_ = SDL_BLENDMODE_NONE;
    float scaleX_ = 1, scaleY_ = 1;
    SDL_Rect viewport_{};
    bool clipped_ = false;
    SDL_Rect clip_{};
};

}  // namespace

// ---------------------------------------------------------------- backend

SdlBackend::SdlBackend(Application& app) : app_(app), input_(app) {}

void SdlBackend::attachWindow(SDL_Window* window) {
    if (window_ && window != window_) {
        if (auto key = app_.keyWindow()) key->cancelAllTouches();
    }
    window_ = window;
    windowId_ = window ? SDL_GetWindowID(window) : 0;
    if (!window) return;
    if (!app_.keyWindow()) app_.setKeyWindow(Window::make());
    syncScreen();
    const Uint32 flags = SDL_GetWindowFlags(window);
    if (flags & (SDL_WINDOW_MINIMIZED | SDL_WINDOW_HIDDEN))
        app_.setApplicationState(ApplicationState::Background);
    else
        app_.setApplicationState((flags & SDL_WINDOW_INPUT_FOCUS) ? ApplicationState::Active
                                                                  : ApplicationState::Inactive);
}

void SdlBackend::setUIScale(double scale) {
    if (!(std::isfinite(scale) && scale > 0)) return;
    uiScale_ = scale;
    if (window_) syncScreen();
}

void SdlBackend::syncScreen() {
    int w = 0, h = 0, pw = 0, ph = 0;
    SDL_GetWindowSize(window_, &w, &h);
    SDL_GetWindowSizeInPixels(window_, &pw, &ph);
    if (w <= 0 || h <= 0) return;
    const double pixelsPerWindowUnit = pw > 0 ? double(pw) / w : 1.0;
    app_.setMainScreen({w / uiScale_, h / uiScale_}, pixelsPerWindowUnit * uiScale_);
}

void SdlBackend::windowEvent(const SDL_WindowEvent& e) {
    switch (e.event) {
        case SDL_WINDOWEVENT_SIZE_CHANGED:
        case SDL_WINDOWEVENT_RESIZED:
            syncScreen();
            break;
        case SDL_WINDOWEVENT_MINIMIZED:
        case SDL_WINDOWEVENT_HIDDEN:
            if (auto key = app_.keyWindow()) key->cancelAllTouches();
            app_.setApplicationState(ApplicationState::Background);
            break;
        case SDL_WINDOWEVENT_RESTORED:
        case SDL_WINDOWEVENT_SHOWN:
            if (app_.applicationState() == ApplicationState::Background)
                app_.setApplicationState(ApplicationState::Inactive);
            break;
        case SDL_WINDOWEVENT_FOCUS_GAINED:
            app_.setApplicationState(ApplicationState::Active);
            break;
        case SDL_WINDOWEVENT_FOCUS_LOST:
            // A button released elsewhere never reaches us: end what we track.
            if (auto key = app_.keyWindow()) key->cancelAllTouches();
            if (app_.applicationState() == ApplicationState::Active)
                app_.setApplicationState(ApplicationState::Inactive);
            break;
        default:
            break;
    }
}

bool SdlBackend::touch(std::uint64_t id, TouchPhase phase, Point p) { return input_.touch(id, phase, p); }

std::optional<HostKey> SdlBackend::hostKey(SDL_Keycode sym) {
    switch (sym) {
        case SDLK_ESCAPE: return HostKey::Escape;
        case SDLK_AC_BACK: return HostKey::Back;
        case SDLK_RETURN:
        case SDLK_KP_ENTER: return HostKey::Enter;
        case SDLK_SPACE: return HostKey::Space;
        default: return std::nullopt;
    }
}

bool SdlBackend::sendKey(HostKey key, bool down) { return input_.key(key, down); }

bool SdlBackend::processEvent(const SDL_Event& event) {
    const auto ours = [this](std::uint32_t windowID) {
        return window_ && (windowID == windowId_ || windowID == 0);
    };
    const auto showing = [this] {
        auto key = app_.keyWindow();
        return key && key->hasVisibleContent();
    };
    const auto tracking = [this](std::uint64_t id) {
        auto key = app_.keyWindow();
        return key && key->isTracking(id);
    };
    switch (event.type) {
        case SDL_WINDOWEVENT:
            if (window_ && event.window.windowID == windowId_) windowEvent(event.window);
            return false;
        case SDL_RENDER_DEVICE_RESET:
            // The texture objects outlive the reset, their contents do not.
            releaseRenderer();
            return false;
        case SDL_APP_WILLENTERBACKGROUND:
        case SDL_APP_DIDENTERBACKGROUND:
            app_.setApplicationState(ApplicationState::Background);
            return false;
        case SDL_APP_DIDENTERFOREGROUND:
            app_.setApplicationState(ApplicationState::Active);
            return false;

        case SDL_MOUSEBUTTONDOWN:
        case SDL_MOUSEBUTTONUP: {
            const auto& b = event.button;
            if (!ours(b.windowID)) return false;
            // Touch input arrives again as finger events; other buttons do nothing.
            if (b.which == SDL_TOUCH_MOUSEID || b.button != SDL_BUTTON_LEFT)
                return showing() || tracking(kMouseTouch);
            const auto phase = event.type == SDL_MOUSEBUTTONDOWN ? TouchPhase::Began : TouchPhase::Ended;
            return touch(kMouseTouch, phase, fromWindow(b.x, b.y));
        }
        case SDL_MOUSEMOTION: {
            const auto& m = event.motion;
            if (!ours(m.windowID)) return false;
            if (m.which != SDL_TOUCH_MOUSEID && tracking(kMouseTouch))
                return touch(kMouseTouch, TouchPhase::Moved, fromWindow(m.x, m.y));
            return showing();
        }
        case SDL_KEYDOWN:
        case SDL_KEYUP: {
            if (!ours(event.key.windowID)) return false;
            const auto key = hostKey(event.key.keysym.sym);
            return key && sendKey(*key, event.type == SDL_KEYDOWN);
        }
        case SDL_CONTROLLERBUTTONDOWN:
        case SDL_CONTROLLERBUTTONUP: {
            if (!window_) return false;
            const auto button = event.cbutton.button;
            if (button != SDL_CONTROLLER_BUTTON_A && button != SDL_CONTROLLER_BUTTON_B) return false;
            return sendKey(button == SDL_CONTROLLER_BUTTON_A ? HostKey::GamepadA : HostKey::GamepadB,
                           event.type == SDL_CONTROLLERBUTTONDOWN);
        }
        case SDL_MOUSEWHEEL:
            return ours(event.wheel.windowID) && showing();

        case SDL_FINGERDOWN:
        case SDL_FINGERMOTION:
        case SDL_FINGERUP: {
            const auto& f = event.tfinger;
            if (!ours(f.windowID)) return false;
            const std::uint64_t id = (static_cast<std::uint64_t>(f.touchId) * 0x9E3779B97F4A7C15ull) ^
                                     static_cast<std::uint64_t>(f.fingerId);
            // Finger positions are fractions of the window.
            const Size s = app_.mainScreen().bounds().size;
            const Point p{f.x * s.width, f.y * s.height};
            const auto phase = event.type == SDL_FINGERDOWN   ? TouchPhase::Began
                               : event.type == SDL_FINGERUP ? TouchPhase::Ended
                                                            : TouchPhase::Moved;
            return touch(id == kMouseTouch ? id - 1 : id, phase, p);
        }
        default:
            return false;
    }
}

void SdlBackend::render(SDL_Renderer* renderer) {
    if (!renderer) return;
    // The same address on a window that no longer has it: a new renderer where a
    // freed one was, whose textures went with it.
    if (renderer != renderer_ || !rendererAlive()) {
        releaseRenderer();
        renderer_ = renderer;
        SDL_Window* window = SDL_RenderGetWindow(renderer);
        rendererWindowId_ = window ? SDL_GetWindowID(window) : 0;
        textures_.bind(renderer);
        software_.bind(renderer);
    }
    auto key = app_.keyWindow();
    if (!key || !key->hasVisibleContent()) {
        textures_.endFrame();
        software_.endFrame();
        return;
    }
    if (window_ && (SDL_GetWindowFlags(window_) & (SDL_WINDOW_MINIMIZED | SDL_WINDOW_HIDDEN))) return;
    int ow = 0, oh = 0;
    if (SDL_GetRendererOutputSize(renderer, &ow, &oh) != 0 || ow <= 0 || oh <= 0) return;
    key->layoutIfNeeded();
    const Size points = app_.mainScreen().bounds().size;
    {
        RendererStateGuard guard(renderer);
        const double sx = ow / points.width, sy = oh / points.height;
        if (isSoftwareRenderer(renderer)) {
            SoftwarePainter painter(renderer, software_, textures_, sx, sy);
            drawViewTree(*key, painter);
            painter.finish();
        } else {
            SdlPainter painter(renderer, textures_, sx, sy);
            drawViewTree(*key, painter);
        }
    }
    textures_.endFrame();
    software_.endFrame();
}

bool SdlBackend::rendererAlive() const {
    if (!renderer_ || rendererWindowId_ == 0) return true;
    // SDL destroys a window's renderer with the window, and no pointer test is safe
    // on a freed renderer; window ids are never reused, so ask the window.
    SDL_Window* window = SDL_GetWindowFromID(rendererWindowId_);
    return window && SDL_GetRenderer(window) == renderer_;
}

void SdlBackend::releaseRenderer() {
    if (rendererAlive()) {
        textures_.clear();
        software_.clear();
    } else {
        textures_.forget();
        software_.forget();
    }
    textures_.bind(nullptr);
    software_.bind(nullptr);
    renderer_ = nullptr;
    rendererWindowId_ = 0;
}

}  // namespace quov::platform
