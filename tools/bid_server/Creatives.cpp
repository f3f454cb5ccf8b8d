#include "tools/bid_server/Creatives.h"

#include <SDL.h>
#include <SDL_image.h>

#include <cmath>
#include <memory>
#include <stdexcept>

namespace quov::tools {
namespace {

struct SurfaceDeleter {
    void operator()(SDL_Surface* s) const { SDL_FreeSurface(s); }
};
using SurfacePtr = std::unique_ptr<SDL_Surface, SurfaceDeleter>;

// A write-only RWops that appends to a std::string, so encoding needs no temp file.
struct Sink {
    std::string* out;
    Sint64 pos = 0;
};

Sink* sinkOf(SDL_RWops* rw) { return static_cast<Sink*>(rw->hidden.unknown.data1); }

Sint64 SDLCALL sinkSize(SDL_RWops* rw) { return static_cast<Sint64>(sinkOf(rw)->out->size()); }

Sint64 SDLCALL sinkSeek(SDL_RWops* rw, Sint64 offset, int whence) {
    Sink* s = sinkOf(rw);
    Sint64 base = whence == RW_SEEK_SET ? 0 : whence == RW_SEEK_CUR ? s->pos : static_cast<Sint64>(s->out->size());
    Sint64 next = base + offset;
    if (next < 0) return SDL_SetError("seek before start");
    s->pos = next;
    return next;
}

size_t SDLCALL sinkRead(SDL_RWops*, void*, size_t, size_t) { return 0; }

size_t SDLCALL sinkWrite(SDL_RWops* rw, const void* data, size_t size, size_t count) {
    Sink* s = sinkOf(rw);
    size_t n = size * count;
    auto pos = static_cast<size_t>(s->pos);
    if (s->out->size() < pos + n) s->out->resize(pos + n);
    s->out->replace(pos, n, static_cast<const char*>(data), n);
    s->pos += static_cast<Sint64>(n);
    return count;
}

int SDLCALL sinkClose(SDL_RWops* rw) {
    SDL_FreeRW(rw);
    return 0;
}

std::string encode(SDL_Surface* surface, ImageFormat format) {
    std::string out;
    Sink sink{&out};
    SDL_RWops* rw = SDL_AllocRW();
    if (!rw) throw std::runtime_error(std::string("SDL_AllocRW: ") + SDL_GetError());
    rw->type = SDL_RWOPS_UNKNOWN;
    rw->size = sinkSize;
    rw->seek = sinkSeek;
    rw->read = sinkRead;
    rw->write = sinkWrite;
    rw->close = sinkClose;
    rw->hidden.unknown.data1 = &sink;
    // freedst = 1: SDL_image closes (and so frees) the RWops on every path
    int rc = format == ImageFormat::Png ? IMG_SavePNG_RW(surface, rw, 1) : IMG_SaveJPG_RW(surface, rw, 1, 90);
    if (rc != 0 || out.empty())
        throw std::runtime_error(std::string("cannot encode creative: ") + SDL_GetError());
    return out;
}

class Canvas {
public:
    Canvas(int w, int h) : surface_(SDL_CreateRGBSurfaceWithFormat(0, w, h, 24, SDL_PIXELFORMAT_RGB24)) {
        if (!surface_) throw std::runtime_error(std::string("SDL_CreateRGBSurface: ") + SDL_GetError());
    }
    SDL_Surface* get() const { return surface_.get(); }
    SurfacePtr take() { return std::move(surface_); }
    int w() const { return surface_->w; }
    int h() const { return surface_->h; }

    void rect(int x, int y, int w, int h, Rgb c) {
        SDL_Rect r{x, y, w, h};
        SDL_FillRect(surface_.get(), &r, SDL_MapRGB(surface_->format, c.r, c.g, c.b));
    }
    void disc(int cx, int cy, int radius, Rgb c) {
        for (int dy = -radius; dy <= radius; ++dy) {
            int half = static_cast<int>(std::sqrt(double(radius) * radius - double(dy) * dy));
            rect(cx - half, cy + dy, 2 * half + 1, 1, c);
        }
    }
    // A right-pointing "play" triangle inside the box (x, y, size, size).
    void playArrow(int x, int y, int size, Rgb c) {
        for (int row = 0; row < size; ++row) {
            int len = size / 2 - std::abs(row - size / 2);
            rect(x, y + row, len * 2, 1, c);
        }
    }

private:
    SurfacePtr surface_;
};

// Blocky "A" and "D" letters built from bars; u is the stroke width.
void drawAD(Canvas& c, int x, int y, int u, Rgb ink) {
    const int h = 7 * u;
    // A
    c.rect(x, y + u, u, h - u, ink);
    c.rect(x + 3 * u, y + u, u, h - u, ink);
    c.rect(x + u, y, 2 * u, u, ink);
    c.rect(x + u, y + 3 * u, 2 * u, u, ink);
    // D
    int dx = x + 5 * u;
    c.rect(dx, y, u, h, ink);
    c.rect(dx + u, y, 2 * u, u, ink);
    c.rect(dx + u, y + h - u, 2 * u, u, ink);
    c.rect(dx + 3 * u, y + u, u, h - 2 * u, ink);
}

struct Palette {
    Rgb background, frame, stripeA, stripeB, disc, ink, button;
};

SurfacePtr draw(int w, int h, const Palette& p) {
    Canvas c(w, h);
    const int m = std::min(w, h);
    const int frame = m / 40;
    c.rect(0, 0, w, h, p.frame);
    c.rect(frame, frame, w - 2 * frame, h - 2 * frame, p.background);

    // checker band along the top
    const int cell = m / 12;
    for (int col = 0; frame + col * cell < w - frame; ++col) {
        int cw = std::min(cell, w - frame - (frame + col * cell));
        c.rect(frame + col * cell, frame, cw, cell, col % 2 ? p.stripeA : p.stripeB);
        c.rect(frame + col * cell, frame + cell, cw, cell, col % 2 ? p.stripeB : p.stripeA);
    }

    // the disc with "AD" in its middle; its radius keeps (w/10, h/2) on the background
    const int radius = std::min(w * 3 / 10, h * 3 / 10);
    c.disc(w / 2, h / 2, radius, p.disc);
    const int u = radius / 6;
    drawAD(c, w / 2 - 9 * u / 2, h / 2 - 7 * u / 2, u, p.ink);

    // a call-to-action bar with a play arrow near the bottom
    const int barH = m / 8;
    const int barW = w * 6 / 10;
    const int barY = h - frame - barH - m / 16;
    c.rect((w - barW) / 2, barY, barW, barH, p.button);
    c.playArrow(w / 2 - barH / 4, barY + barH / 4, barH / 2, p.frame);

    return c.take();
}

}  // namespace

std::vector<Creative> makeCreatives() {
    // bold, clearly different palettes so a screenshot shows which creative it got
    const Palette portrait{{30, 64, 175}, {255, 255, 255}, {250, 204, 21}, {17, 24, 39},
                           {250, 204, 21}, {17, 24, 39}, {22, 163, 74}};
    const Palette landscape{{194, 65, 12}, {255, 255, 255}, {56, 189, 248}, {17, 24, 39},
                            {56, 189, 248}, {17, 24, 39}, {126, 34, 206}};
    struct Shape {
        Orientation orientation;
        const char* stem;
        int w, h;
        const Palette* palette;
    };
    const Shape shapes[] = {{Orientation::Portrait, "portrait", 600, 900, &portrait},
                            {Orientation::Landscape, "landscape", 900, 600, &landscape}};

    std::vector<Creative> out;
    for (const auto& s : shapes) {
        SurfacePtr surface = draw(s.w, s.h, *s.palette);
        for (ImageFormat f : {ImageFormat::Png, ImageFormat::Jpeg}) {
            Creative c;
            c.name = std::string(s.stem) + (f == ImageFormat::Png ? ".png" : ".jpg");
            c.contentType = f == ImageFormat::Png ? "image/png" : "image/jpeg";
            c.orientation = s.orientation;
            c.format = f;
            c.width = s.w;
            c.height = s.h;
            c.background = s.palette->background;
            c.bytes = encode(surface.get(), f);
            out.push_back(std::move(c));
        }
    }
    return out;
}

}  // namespace quov::tools
