#pragma once

#include "platform/toolkit/Application.h"
#include "platform/toolkit/Image.h"
#include "platform/toolkit/HostInput.h"
#include "platform/toolkit/KeyInput.h"
#include "platform/sdl/SoftwareFrame.h"

#include <SDL.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <unordered_map>

namespace quov::platform {

/// Textures of the images on screen, for one renderer. Uploads happen on the
/// main thread when an image is first drawn; a texture goes when its image is
/// gone or has not been drawn for a while.
class TextureCache {
public:
    TextureCache() = default;
    ~TextureCache() { clear(); }
    TextureCache(const TextureCache&) = delete;
    TextureCache& operator=(const TextureCache&) = delete;

    /// Uploads go to renderer from now on. The previous renderer's textures must
    /// have been cleared or forgotten; any left are destroyed.
    void bind(SDL_Renderer* renderer);
    /// The image's texture, uploaded if needed; null if it cannot be made.
    SDL_Texture* textureFor(const ImagePtr& image);
    void endFrame();
    /// Destroys every texture; the renderer must still be alive.
    void clear();
    /// Drops every texture without destroying it: the renderer already did.
    void forget();
    std::size_t size() const { return entries_.size(); }
    std::size_t uploads() const { return uploads_; }

private:
    struct Destroy {
        void operator()(SDL_Texture* t) const { SDL_DestroyTexture(t); }
    };
    struct Entry {
        std::weak_ptr<const Image> image;
        std::unique_ptr<SDL_Texture, Destroy> texture;
        std::uint64_t lastUsed = 0;
    };
    SDL_Renderer* renderer_ = nullptr;
    std::unordered_map<const Image*, Entry> entries_;
    std::uint64_t frame_ = 0;
    std::size_t uploads_ = 0;
};

/// Renders an Application's key window into a host's SDL_Renderer and feeds it the
/// host's SDL input. The host keeps its loop: it passes events, drains the main
/// loop and calls render() after its own frame. Main thread.
class SdlBackend {
public:
    explicit SdlBackend(Application& app);
    /// Gives up the renderer's textures as releaseRenderer() does.
    ~SdlBackend() { releaseRenderer(); }
    SdlBackend(const SdlBackend&) = delete;
    SdlBackend& operator=(const SdlBackend&) = delete;

    /// The window's size in points becomes the main screen, and the application
    /// gets a key window if it has none. Null detaches (the key window stays).
    void attachWindow(SDL_Window* window);
    SDL_Window* window() const { return window_; }

    /// Returns whether the SDK consumed the event: mouse and touch input while an
    /// SDK view is on screen (or a touch it is tracking); Escape, Back, Enter, keypad
    /// Enter, Space and gamepad A and B while an ad is on screen (and the release of
    /// a press it took). Other keys pass. Window events of the
    /// attached window update the screen and the state and are never consumed.
    bool processEvent(const SDL_Event& event);

    /// Draws the key window's views over what the host drew, restoring draw
    /// colour, blend mode, scale, viewport and clip. Skips while the window is
    /// minimised or hidden, and when nothing is on screen. Another renderer than
    /// last time first gets the previous one's textures released.
    void render(SDL_Renderer* renderer);

    /// Gives up the textures made on the current renderer: destroyed while it is
    /// alive, forgotten when SDL has already freed them with it. A renderer on a
    /// window is alive while that window still has it; one without a window is
    /// taken to be alive, so the host calls this before SDL_DestroyRenderer.
    void releaseRenderer();

    /// Window coordinates per point (positive, default 1).
    void setUIScale(double scale);
    double uiScale() const { return uiScale_; }

    const TextureCache& textures() const { return textures_; }
    const SoftwareCache& softwareCache() const { return software_; }

    /// Touch identifier of the mouse (fingers use theirs, hashed with the device).
    static constexpr std::uint64_t kMouseTouch = ~std::uint64_t{0};

private:
    void syncScreen();
    void windowEvent(const SDL_WindowEvent& e);
    bool touch(std::uint64_t id, TouchPhase phase, Point p);
    bool sendKey(HostKey key, bool down);
    static std::optional<HostKey> hostKey(SDL_Keycode sym);
    Point fromWindow(double x, double y) const { return {x / uiScale_, y / uiScale_}; }
    bool rendererAlive() const;

    Application& app_;
    HostInput input_;  // the same input rules as a host's own surface
    SDL_Window* window_ = nullptr;
    std::uint32_t windowId_ = 0;
    double uiScale_ = 1.0;
    SDL_Renderer* renderer_ = nullptr;  // the one the caches hold textures of
    std::uint32_t rendererWindowId_ = 0;  // its window's, 0 when it has none
    TextureCache textures_;
    SoftwareCache software_;
};

}  // namespace quov::platform
