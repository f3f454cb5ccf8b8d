#include "platform/sdl/SoftwareFrame.h"

#include "platform/sdl/SdlBackend.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace quov::platform {

namespace {

constexpr std::uint64_t kIdleFrames = 120;  // undrawn this long: let the scaled copy go

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

// Per byte of a pixel run: dst * mul / 255 (floored) + add. A whole number of pixels
// repeated, so any 64-byte stretch of a row starts on a pixel.
struct BlendPattern {
    std::uint8_t mul[64], add[64];
};

// floor(x / 255) as (x * 0x8081) >> 23, exact for every 16-bit x: a high-half multiply
// and a shift. Over a fixed count of bytes the compiler turns it into vector code.
template <int N>
inline void blendBytes(std::uint8_t* __restrict p, const BlendPattern& k) {
    for (int i = 0; i < N; ++i) {
        const auto x = static_cast<std::uint16_t>(k.mul[i] * p[i]);
        const auto high = static_cast<std::uint16_t>((std::uint32_t{x} * 0x8081u) >> 16);
        p[i] = static_cast<std::uint8_t>((high >> 7) + k.add[i]);
    }
}

}  // namespace

bool blendFill(SDL_Surface* surface, const SDL_Rect& rect, std::uint8_t r, std::uint8_t g, std::uint8_t b,
               std::uint8_t a) {
    if (!surface || !surface->format || surface->format->BytesPerPixel != 4) return false;
    const std::uint32_t format = surface->format->format;
    if (format != SDL_PIXELFORMAT_RGB888 && format != SDL_PIXELFORMAT_ARGB8888) return false;
    SDL_Rect area;
    if (!SDL_IntersectRect(&rect, &surface->clip_rect, &area)) return true;

    // SDL premultiplies the colour, then per channel: dst * (255 - a) / 255 + colour.
    // Alpha, where the format has it, blends the same way with a itself; an RGB888
    // pixel's spare byte comes out zero.
    const auto mul255 = [a](std::uint8_t c) { return static_cast<std::uint32_t>(c * a / 255); };
    const std::uint32_t inverse = 255u - a;
    const bool alpha = format == SDL_PIXELFORMAT_ARGB8888;
    const std::uint32_t mulPixel = inverse * 0x010101u | (alpha ? inverse << 24 : 0u);
    const std::uint32_t addPixel = mul255(r) << 16 | mul255(g) << 8 | mul255(b) | (alpha ? std::uint32_t{a} << 24 : 0u);
    BlendPattern k;
    for (int i = 0; i < 64; i += 4) {
        std::memcpy(k.mul + i, &mulPixel, 4);
        std::memcpy(k.add + i, &addPixel, 4);
    }

    if (SDL_MUSTLOCK(surface) && SDL_LockSurface(surface) != 0) return false;
    const int bytes = area.w * 4;
    for (int y = area.y; y < area.y + area.h; ++y) {
        auto* p = static_cast<std::uint8_t*>(surface->pixels) + static_cast<std::ptrdiff_t>(y) * surface->pitch +
                  static_cast<std::ptrdiff_t>(area.x) * 4;
        int i = 0;
        for (; i + 64 <= bytes; i += 64) blendBytes<64>(p + i, k);
        for (; i < bytes; i += 4) blendBytes<4>(p + i, k);
    }
    if (SDL_MUSTLOCK(surface)) SDL_UnlockSurface(surface);
    return true;
}

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

void SoftwareCache::clear() { entries_.clear(); }

void SoftwareCache::forget() {
    for (Entry& e : entries_) {
        (void)e.blended.release();
        (void)e.opaque.release();
    }
    entries_.clear();
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

SDL_Surface* SoftwarePainter::windowSurface() const {
    // Only where the renderer draws straight into the window's surface, one to one.
    SDL_Window* window = SDL_RenderGetWindow(r_);
    if (!window || SDL_GetRenderTarget(r_) || SDL_RenderIsClipEnabled(r_)) return nullptr;
    float scaleX = 0, scaleY = 0;
    SDL_RenderGetScale(r_, &scaleX, &scaleY);
    int logicalW = 0, logicalH = 0;
    SDL_RenderGetLogicalSize(r_, &logicalW, &logicalH);
    if (scaleX != 1.0f || scaleY != 1.0f || logicalW != 0 || logicalH != 0) return nullptr;
    // Queued drawing lands first, and the surface is the one SDL draws into now.
    if (SDL_RenderFlush(r_) != 0) return nullptr;
    SDL_Surface* surface = SDL_GetWindowSurface(window);
    if (!surface) return nullptr;
    SDL_Rect viewport;
    SDL_RenderGetViewport(r_, &viewport);
    int ow = 0, oh = 0;
    if (SDL_GetRendererOutputSize(r_, &ow, &oh) != 0 || ow != surface->w || oh != surface->h) return nullptr;
    if (viewport.x != 0 || viewport.y != 0 || viewport.w != surface->w || viewport.h != surface->h) return nullptr;
    const std::uint32_t format = surface->format->format;
    return format == SDL_PIXELFORMAT_RGB888 || format == SDL_PIXELFORMAT_ARGB8888 ? surface : nullptr;
}

void SoftwarePainter::drawFill(const Op& op, const SDL_Rect& part, SDL_Surface* surface) {
    const std::uint8_t a = op.rgba[3];
    // SDL's own blended fill divides per channel: exact but slow on a full screen.
    if (surface && a > 0 && a < 255 && SDL_RenderFlush(r_) == 0 &&
        blendFill(surface, part, op.rgba[0], op.rgba[1], op.rgba[2], a))
        return;
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
    SDL_Surface* surface = nullptr;
    bool surfaceChecked = false;
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
            if (!surfaceChecked && !parts.empty()) {
                surface = windowSurface();
                surfaceChecked = true;
            }
            for (const SDL_Rect& p : parts) drawFill(op, p, surface);
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
