#pragma once

#include "platform/toolkit/Painter.h"

#include <SDL.h>

#include <cstdint>
#include <memory>
#include <vector>

namespace quov::platform {

class TextureCache;

/// True for SDL's software renderer, where every pixel blended costs CPU time.
bool isSoftwareRenderer(SDL_Renderer* renderer);

/// Blends a colour over rect (clipped to the surface's clip rectangle) in place,
/// with the same integer rounding as SDL's blended fill, so the bytes come out as
/// SDL_RenderFillRect would leave them. Only 32-bit RGB888 and ARGB8888 surfaces;
/// false, with nothing drawn, for any other.
bool blendFill(SDL_Surface* surface, const SDL_Rect& rect, std::uint8_t r, std::uint8_t g, std::uint8_t b,
               std::uint8_t a);

/// What the software renderer keeps between frames: each image scaled once to
/// the pixel size it is shown at. One renderer at a time; main thread.
class SoftwareCache {
public:
    SoftwareCache() = default;
    ~SoftwareCache() { clear(); }
    SoftwareCache(const SoftwareCache&) = delete;
    SoftwareCache& operator=(const SoftwareCache&) = delete;

    /// Scaled copies go to renderer from now on. The previous renderer's textures
    /// must have been cleared or forgotten; any left are destroyed.
    void bind(SDL_Renderer* renderer);
    void endFrame();
    /// Destroys every texture; the renderer must still be alive.
    void clear();
    /// Drops every texture without destroying it: the renderer already did.
    void forget();
    /// Scalings made so far (each is one full pass over the image).
    std::size_t scalings() const { return scalings_; }

    struct Scaled {
        SDL_Texture* blended = nullptr;  // straight RGBA, blended per pixel
        SDL_Texture* opaque = nullptr;   // the window's format, copied; only when every pixel is opaque
    };
    /// The image's source rectangle scaled to w x h pixels; nothing when it cannot be made.
    Scaled scaled(const ImagePtr& image, const SDL_Rect& source, int w, int h);

private:
    struct Destroy {
        void operator()(SDL_Texture* t) const { SDL_DestroyTexture(t); }
    };
    using Texture = std::unique_ptr<SDL_Texture, Destroy>;
    struct Entry {
        std::weak_ptr<const Image> image;
        const Image* key = nullptr;
        SDL_Rect source{};
        int w = 0, h = 0;
        Texture blended, opaque;
        std::uint64_t lastUsed = 0;
    };
    std::uint32_t windowFormat() const;

    SDL_Renderer* renderer_ = nullptr;
    std::vector<Entry> entries_;
    std::uint64_t frame_ = 0;
    std::size_t scalings_ = 0;
};

/// Paints on the software renderer with the same pixels as plain SDL calls,
/// but cheaper: images come prescaled, translucent fills are blended straight
/// into the window's surface, and fills hidden under a later opaque image are skipped.
/// Collects the frame, then draws it in finish().
class SoftwarePainter : public Painter {
public:
    SoftwarePainter(SDL_Renderer* r, SoftwareCache& cache, TextureCache& textures, double sx, double sy)
        : r_(r), cache_(cache), textures_(textures), sx_(sx), sy_(sy) {}
    void fillRect(const Rect& rect, const Color& color) override;
    void drawImage(const ImagePtr& image, const Rect& source, const Rect& destination, double alpha) override;
    void finish();

private:
    struct Op {
        bool fill = true;
        SDL_Rect pixels{};  // where SDL puts it
        SDL_FRect exact{};
        std::uint8_t rgba[4]{};
        ImagePtr image;
        SDL_Rect source{};
        SoftwareCache::Scaled scaled;
    };
    SDL_FRect toPixels(const Rect& r) const;
    SDL_Surface* windowSurface() const;
    void drawFill(const Op& op, const SDL_Rect& part, SDL_Surface* surface);

    SDL_Renderer* r_;
    SoftwareCache& cache_;
    TextureCache& textures_;
    double sx_, sy_;
    std::vector<Op> ops_;
};

}  // namespace quov::platform
