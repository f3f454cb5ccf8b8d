#include "platform/sdl/SoftwareFrame.h"

#include "platform/sdl/SdlBackend.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace quov::platform {

namespace {

constexpr std::uint64_t kIdleFrames = 120;  // undrawn this long: let the scaled copy go
// Smaller fills cost little either way; the tile path only pays off on large ones.
constexpr long kTileMinArea = 64L * 64L;

std::uint8_t channel(double v) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(v, 0.0, 1.0) * 255.0));
}

struct SurfaceDeleter {
    void operator()(SDL_Surface* s) const { SDL_FreeSurface(s); }
};
using Surface = std::unique_ptr<SDL_Surface, SurfaceDeleter>;

bool empty(const SDL_Rect& r) { return r.w <= 0 || r.h <= 0; }

// a minus b, as up to four rectangles appended to out.
void subtract(const SDL_Rect& a, const SDL_Rect& b, std::vector<SDL_Rect>& out) {
    SDL_Rect overlap;
    if (!SDL_IntersectRect(&a, &b, &overlap)) {
        out.push_back(a);
        return;
    }
    const int ax2 = a.x + a.w, ay2 = a.y + a.h, ox2 = overlap.x + overlap.w, oy2 = overlap.y + overlap.h;
    const SDL_Rect parts[] = {
        {a.x, a.y, a.w, overlap.y - a.y},                   // above
        {a.x, oy2, a.w, ay2 - oy2},                         // below
        {a.x, overlap.y, overlap.x - a.x, overlap.h},       // left
        {ox2, overlap.y, ax2 - ox2, overlap.h},             // right
    };
    for (const SDL_Rect& p : parts)
        if (!empty(p)) out.push_back(p);
}

}  // namespace

bool isSoftwareRenderer(SDL_Renderer* renderer) {
    SDL_RendererInfo info;
    return renderer && SDL_GetRendererInfo(renderer, &info) == 0 && (info.flags & SDL_RENDERER_SOFTWARE) != 0;
}

// ---------------------------------------------------------------- cache

void SoftwareCache::bind(SDL_Renderer* renderer) {
    if (renderer == renderer_) return;
    clear();
    renderer_ = renderer;
}

void SoftwareCache::endFrame() {
    ++frame_;
    std::erase_if(entries_, [this](const Entry& e) {
        return e.image.expired() || frame_ - e.lastUsed > kIdleFrames;
    });
}

void SoftwareCache::clear() {
    entries_.clear();
    tile_.reset();
}

void SoftwareCache::forget() {
    for (Entry& e : entries_) {
        (void)e.blended.release();
        (void)e.opaque.release();
    }
    entries_.clear();
    (void)tile_.release();
}

std::uint32_t SoftwareCache::windowFormat() const {
    SDL_Window* w = SDL_RenderGetWindow(renderer_);
    const std::uint32_t f = w ? SDL_GetWindowPixelFormat(w) : std::uint32_t{SDL_PIXELFORMAT_UNKNOWN};
    if (f == SDL_PIXELFORMAT_RGB888 || f == SDL_PIXELFORMAT_ARGB8888) return f;
    return SDL_PIXELFORMAT_ARGB8888;
}

SoftwareCache::Scaled SoftwareCache::scaled(const ImagePtr& image, const SDL_Rect& source, int w, int h) {
    for (Entry& e : entries_) {
        if (e.key == image.get() && e.w == w && e.h == h && SDL_RectEquals(&e.source, &source) &&
            e.image.lock() == image) {
            e.lastUsed = frame_;
            return {e.blended.get(), e.opaque.get()};
        }
    }
    // The same stretch SDL runs on every scaled copy, here once: the pixels match.
    Surface src(SDL_CreateRGBSurfaceWithFormatFrom(const_cast<std::uint8_t*>(image->rgba.data()), image->width,
                                                   image->height, 32, image->width * 4, SDL_PIXELFORMAT_RGBA32));
    Surface dst(SDL_CreateRGBSurfaceWithFormat(0, w, h, 32, SDL_PIXELFORMAT_RGBA32));
    if (!src || !dst) return {};
    SDL_Rect from = source;
    if (SDL_SoftStretchLinear(src.get(), &from, dst.get(), nullptr) != 0) return {};
    ++scalings_;

    Entry e{image, image.get(), source, w, h, nullptr, nullptr, frame_};
    e.blended.reset(SDL_CreateTexture(renderer_, SDL_PIXELFORMAT_RGBA32, SDL_TEXTUREACCESS_STATIC, w, h));
    if (!e.blended || SDL_UpdateTexture(e.blended.get(), nullptr, dst->pixels, dst->pitch) != 0) return {};
    SDL_SetTextureBlendMode(e.blended.get(), SDL_BLENDMODE_BLEND);

    bool opaque = true;
    for (int y = 0; y < h && opaque; ++y) {
        const auto* row = static_cast<const std::uint8_t*>(dst->pixels) + static_cast<std::ptrdiff_t>(y) * dst->pitch;
        for (int x = 0; x < w; ++x)
            if (row[x * 4 + 3] != 255) {
                opaque = false;
                break;
            }
    }
    if (opaque) {
        // Every pixel covers what is below: a plain copy in the window's format gives the same result.
        Surface converted(SDL_ConvertSurfaceFormat(dst.get(), windowFormat(), 0));
        if (converted) {
            e.opaque.reset(SDL_CreateTexture(renderer_, converted->format->format, SDL_TEXTUREACCESS_STATIC, w, h));
            if (e.opaque && SDL_UpdateTexture(e.opaque.get(), nullptr, converted->pixels, converted->pitch) == 0)
                SDL_SetTextureBlendMode(e.opaque.get(), SDL_BLENDMODE_NONE);
            else
                e.opaque.reset();
        }
    }
    entries_.push_back(std::move(e));
    return {entries_.back().blended.get(), entries_.back().opaque.get()};
}

SDL_Texture* SoftwareCache::tile(std::uint8_t r, std::uint8_t g, std::uint8_t b) {
    const std::uint32_t colour = 0xff000000u | (std::uint32_t{r} << 16) | (std::uint32_t{g} << 8) | b;
    if (tile_ && tileColour_ == colour) return tile_.get();
    const std::uint32_t format = windowFormat();
    if (!tile_) {
        tile_.reset(SDL_CreateTexture(renderer_, format, SDL_TEXTUREACCESS_STATIC, kTile, kTile));
        if (!tile_) return nullptr;
        SDL_SetTextureBlendMode(tile_.get(), SDL_BLENDMODE_BLEND);
    }
    SDL_PixelFormat* pf = SDL_AllocFormat(format);
    if (!pf) return nullptr;
    const std::uint32_t pixel = SDL_MapRGBA(pf, r, g, b, 255);
    SDL_FreeFormat(pf);
    std::vector<std::uint32_t> pixels(static_cast<std::size_t>(kTile) * kTile, pixel);
    if (SDL_UpdateTexture(tile_.get(), nullptr, pixels.data(), kTile * 4) != 0) {
        tile_.reset();
        return nullptr;
    }
    tileColour_ = colour;
    return tile_.get();
}

// ---------------------------------------------------------------- painter

SDL_FRect SoftwarePainter::toPixels(const Rect& r) const {
    return {static_cast<float>(r.origin.x * sx_), static_cast<float>(r.origin.y * sy_),
            static_cast<float>(r.size.width * sx_), static_cast<float>(r.size.height * sy_)};
}

namespace {
// The software renderer truncates each float of a rectangle on its own.
SDL_Rect truncated(const SDL_FRect& f) {
    return {static_cast<int>(f.x), static_cast<int>(f.y), static_cast<int>(f.w), static_cast<int>(f.h)};
}
}  // namespace

void SoftwarePainter::fillRect(const Rect& rect, const Color& c) {
    Op op;
    op.exact = toPixels(rect);
    if (op.exact.w <= 0 || op.exact.h <= 0) return;
    op.pixels = truncated(op.exact);
    op.rgba[0] = channel(c.red);
    op.rgba[1] = channel(c.green);
    op.rgba[2] = channel(c.blue);
    op.rgba[3] = channel(c.alpha);
    ops_.push_back(std::move(op));
}

void SoftwarePainter::drawImage(const ImagePtr& image, const Rect& source, const Rect& destination,
                                double alpha) {
    if (!image) return;
    Op op;
    op.fill = false;
    op.exact = toPixels(destination);
    if (op.exact.w <= 0 || op.exact.h <= 0) return;
    op.pixels = truncated(op.exact);
    op.image = image;
    op.source = {static_cast<int>(std::lround(source.origin.x)), static_cast<int>(std::lround(source.origin.y)),
                 std::max(1, static_cast<int>(std::lround(source.size.width))),
                 std::max(1, static_cast<int>(std::lround(source.size.height)))};
    op.rgba[3] = channel(alpha);
    const bool wellFormed =
        image->width > 0 && image->height > 0 &&
        image->rgba.size() == static_cast<std::size_t>(image->width) * static_cast<std::size_t>(image->height) * 4;
    const bool inside = op.source.x >= 0 && op.source.y >= 0 && op.source.x + op.source.w <= image->width &&
                        op.source.y + op.source.h <= image->height;
    const bool scaling = op.pixels.w != op.source.w || op.pixels.h != op.source.h;
    int ow = 0, oh = 0;
    SDL_GetRendererOutputSize(r_, &ow, &oh);
    // A copy far larger than the output would cost more memory than it saves time.
    const bool reasonable = static_cast<long>(op.pixels.w) * op.pixels.h <= 4L * ow * oh;
    if (wellFormed && inside && scaling && !empty(op.pixels) && reasonable)
        op.scaled = cache_.scaled(image, op.source, op.pixels.w, op.pixels.h);
    ops_.push_back(std::move(op));
}

void SoftwarePainter::drawFill(const Op& op, const SDL_Rect& part) {
    const std::uint8_t a = op.rgba[3];
    if (a > 0 && a < 255 && static_cast<long>(part.w) * part.h >= kTileMinArea) {
        if (SDL_Texture* t = cache_.tile(op.rgba[0], op.rgba[1], op.rgba[2])) {
            SDL_SetTextureAlphaMod(t, a);
            for (int y = part.y; y < part.y + part.h; y += SoftwareCache::kTile)
                for (int x = part.x; x < part.x + part.w; x += SoftwareCache::kTile) {
                    const SDL_Rect s{0, 0, std::min(SoftwareCache::kTile, part.x + part.w - x),
                                     std::min(SoftwareCache::kTile, part.y + part.h - y)};
                    const SDL_Rect d{x, y, s.w, s.h};
                    SDL_RenderCopy(r_, t, &s, &d);
                }
            return;
        }
    }
    SDL_SetRenderDrawColor(r_, op.rgba[0], op.rgba[1], op.rgba[2], a);
    SDL_RenderFillRect(r_, &part);
}

void SoftwarePainter::finish() {
    // Opaque images drawn later hide whatever a fill would put under them.
    std::vector<SDL_Rect> covers(ops_.size());
    std::vector<bool> covering(ops_.size(), false);
    for (std::size_t i = 0; i < ops_.size(); ++i) {
        const Op& op = ops_[i];
        covering[i] = !op.fill && op.scaled.opaque && op.rgba[3] == 255;
        covers[i] = op.pixels;
    }
    std::vector<SDL_Rect> parts, next;
    for (std::size_t i = 0; i < ops_.size(); ++i) {
        const Op& op = ops_[i];
        if (op.fill) {
            if (empty(op.pixels)) {
                // Whatever SDL makes of a sliver, it makes the same as before.
                SDL_SetRenderDrawColor(r_, op.rgba[0], op.rgba[1], op.rgba[2], op.rgba[3]);
                SDL_RenderFillRectF(r_, &op.exact);
                continue;
            }
            parts.assign(1, op.pixels);
            for (std::size_t j = i + 1; j < ops_.size() && !parts.empty(); ++j) {
                if (!covering[j]) continue;
                next.clear();
                for (const SDL_Rect& p : parts) subtract(p, covers[j], next);
                parts.swap(next);
            }
            for (const SDL_Rect& p : parts) drawFill(op, p);
        } else if (op.scaled.opaque && op.rgba[3] == 255) {
            SDL_RenderCopy(r_, op.scaled.opaque, nullptr, &op.pixels);
        } else if (op.scaled.blended) {
            SDL_SetTextureAlphaMod(op.scaled.blended, op.rgba[3]);
            SDL_RenderCopy(r_, op.scaled.blended, nullptr, &op.pixels);
        } else if (SDL_Texture* t = textures_.textureFor(op.image)) {
            SDL_SetTextureAlphaMod(t, op.rgba[3]);
            SDL_RenderCopyF(r_, t, &op.source, &op.exact);
        }
    }
    ops_.clear();
}

}  // namespace quov::platform
