// Draws the SDK's close icon: a dark disc with a white x, anti-aliased by
// supersampling, saved as PNG. Runs at build time; needs no display.
//   quov-make-close-icon <output.png> [size-in-pixels]
#include <SDL.h>
#include <SDL_image.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

double distanceToSegment(double px, double py, double ax, double ay, double bx, double by) {
    const double vx = bx - ax, vy = by - ay;
    const double t = std::clamp(((px - ax) * vx + (py - ay) * vy) / (vx * vx + vy * vy), 0.0, 1.0);
    return std::hypot(px - (ax + t * vx), py - (ay + t * vy));
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::fprintf(stderr, "usage: %s <output.png> [size]\n", argv[0]);
        return 2;
    }
    const int size = argc > 2 ? std::atoi(argv[2]) : 120;
    if (size < 8 || size > 2048) {
        std::fprintf(stderr, "size must be 8..2048\n");
        return 2;
    }
    SDL_Surface* s = SDL_CreateRGBSurfaceWithFormat(0, size, size, 32, SDL_PIXELFORMAT_RGBA32);
    if (!s) {
        std::fprintf(stderr, "surface: %s\n", SDL_GetError());
        return 1;
    }
    const double n = size, c = n / 2, radius = n / 2 - 0.5;
    const double arm = 0.2 * n, halfStroke = 0.05 * n;
    const double disc[3] = {38, 38, 42};
    const double discAlpha = 0.92;
    constexpr int kSamples = 4;  // per axis

    SDL_LockSurface(s);
    for (int y = 0; y < size; ++y) {
        auto* row = static_cast<std::uint8_t*>(s->pixels) + static_cast<std::ptrdiff_t>(y) * s->pitch;
        for (int x = 0; x < size; ++x) {
            double r = 0, g = 0, b = 0, a = 0;  // premultiplied sums
            for (int sy = 0; sy < kSamples; ++sy)
                for (int sx = 0; sx < kSamples; ++sx) {
                    const double px = x + (sx + 0.5) / kSamples, py = y + (sy + 0.5) / kSamples;
                    if (std::hypot(px - c, py - c) > radius) continue;
                    const bool onX =
                        distanceToSegment(px, py, c - arm, c - arm, c + arm, c + arm) <= halfStroke ||
                        distanceToSegment(px, py, c - arm, c + arm, c + arm, c - arm) <= halfStroke;
                    if (onX) {
                        r += 255; g += 255; b += 255; a += 1;
                    } else {
                        r += disc[0] * discAlpha; g += disc[1] * discAlpha;
                        b += disc[2] * discAlpha; a += discAlpha;
                    }
                }
            const double count = kSamples * kSamples;
            std::uint8_t* p = row + static_cast<std::ptrdiff_t>(x) * 4;
            if (a <= 0) {
                p[0] = p[1] = p[2] = p[3] = 0;
                continue;
            }
            p[0] = static_cast<std::uint8_t>(std::lround(r / a));
            p[1] = static_cast<std::uint8_t>(std::lround(g / a));
            p[2] = static_cast<std::uint8_t>(std::lround(b / a));
            p[3] = static_cast<std::uint8_t>(std::lround(255 * a / count));
        }
    }
    SDL_UnlockSurface(s);
    const int rc = IMG_SavePNG(s, argv[1]);
    if (rc != 0) std::fprintf(stderr, "save %s: %s\n", argv[1], IMG_GetError());
    SDL_FreeSurface(s);
    return rc == 0 ? 0 : 1;
}
