#include "platform/media/SurfaceImage.h"

#include <SDL.h>

namespace quov::platform {
namespace {

struct SurfaceFree {
    void operator()(SDL_Surface* s) const { SDL_FreeSurface(s); }
};
using Surface = std::unique_ptr<SDL_Surface, SurfaceFree>;

std::size_t rgbaBytes(const SDL_Surface& s) {
    return static_cast<std::size_t>(s.w) * static_cast<std::size_t>(s.h) * 4;
}

// Pixels the surface owns (not borrowed), directly addressable, in RGBA without row padding.
bool adoptable(const SDL_Surface& s) {
    return s.format->format == SDL_PIXELFORMAT_RGBA32 && s.pitch == s.w * 4 && !SDL_MUSTLOCK(&s) &&
           !(s.flags & SDL_PREALLOC) && s.pixels;
}

ImagePtr adopt(Surface surface) {
    auto image = std::make_shared<Image>();
    image->width = surface->w;
    image->height = surface->h;
    const std::size_t size = rgbaBytes(*surface);
    auto* pixels = static_cast<std::uint8_t*>(surface->pixels);
    image->rgba = PixelBytes(pixels, size, surface.release(),
                              [](void* s) { SDL_FreeSurface(static_cast<SDL_Surface*>(s)); });
    return image;
}

}  // namespace

ImagePtr imageFromSurface(SDL_Surface* raw) {
    Surface surface(raw);
    if (!surface || surface->w <= 0 || surface->h <= 0) return nullptr;
    if (adoptable(*surface)) return adopt(std::move(surface));

    // A blit without blending converts any format, palettes included, into the image's
    // own storage in one pass. A colour key would leave keyed pixels unwritten there, so
    // that case goes through SDL's conversion, which turns the key into alpha.
    if (!SDL_HasColorKey(surface.get())) {
        auto image = std::make_shared<Image>();
        image->width = surface->w;
        image->height = surface->h;
        image->rgba = PixelBytes(rgbaBytes(*surface));
        Surface target(SDL_CreateRGBSurfaceWithFormatFrom(image->rgba.data(), surface->w, surface->h, 32,
                                                          surface->w * 4, SDL_PIXELFORMAT_RGBA32));
        if (target && SDL_SetSurfaceBlendMode(surface.get(), SDL_BLENDMODE_NONE) == 0 &&
            SDL_BlitSurface(surface.get(), nullptr, target.get(), nullptr) == 0)
            return image;
    }
    Surface converted(SDL_ConvertSurfaceFormat(surface.get(), SDL_PIXELFORMAT_RGBA32, 0));
    surface.reset();
    if (!converted || !adoptable(*converted)) return nullptr;
    return adopt(std::move(converted));
}

}  // namespace quov::platform
