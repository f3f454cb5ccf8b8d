#include "platform/toolkit/RgbaPainter.h"

#include <algorithm>
#include <cmath>

namespace quov::platform {

namespace {

struct Span {
    int begin = 0, end = 0;  // pixels whose centres fall inside
};

Span span(double from, double length, double scale, int limit) {
    const double a = from * scale, b = (from + length) * scale;
    return {std::clamp(static_cast<int>(std::ceil(a - 0.5)), 0, limit),
            std::clamp(static_cast<int>(std::ceil(b - 0.5)), 0, limit)};
}

/// Source-over of a premultiplied colour (channels 0..255 as doubles).
void blend(std::uint8_t* d, double r, double g, double b, double a) {
    const double keep = 1.0 - a / 255.0;
    d[0] = static_cast<std::uint8_t>(std::lround(std::clamp(r + d[0] * keep, 0.0, 255.0)));
    d[1] = static_cast<std::uint8_t>(std::lround(std::clamp(g + d[1] * keep, 0.0, 255.0)));
    d[2] = static_cast<std::uint8_t>(std::lround(std::clamp(b + d[2] * keep, 0.0, 255.0)));
    d[3] = static_cast<std::uint8_t>(std::lround(std::clamp(a + d[3] * keep, 0.0, 255.0)));
}

}  // namespace

void RgbaPainter::fillRect(const Rect& rect, const Color& c) {
    const double a = std::clamp(c.alpha, 0.0, 1.0) * 255.0;
    if (a <= 0) return;
    const double r = std::clamp(c.red, 0.0, 1.0) * a, g = std::clamp(c.green, 0.0, 1.0) * a,
                 b = std::clamp(c.blue, 0.0, 1.0) * a;
    const Span xs = span(rect.origin.x, rect.size.width, sx_, t_.width);
    const Span ys = span(rect.origin.y, rect.size.height, sy_, t_.height);
    for (int y = ys.begin; y < ys.end; ++y) {
        std::uint8_t* row = t_.pixels + static_cast<std::ptrdiff_t>(y) * t_.stride;
        for (int x = xs.begin; x < xs.end; ++x) blend(row + x * 4, r, g, b, a);
    }
}

void RgbaPainter::drawImage(const ImagePtr& image, const Rect& source, const Rect& destination,
                            double alpha) {
    if (!image || image->width <= 0 || image->height <= 0 ||
        image->rgba.size() != static_cast<std::size_t>(image->width) * static_cast<std::size_t>(image->height) * 4)
        return;
    alpha = std::clamp(alpha, 0.0, 1.0);
    if (alpha <= 0 || destination.size.width <= 0 || destination.size.height <= 0) return;
    const Span xs = span(destination.origin.x, destination.size.width, sx_, t_.width);
    const Span ys = span(destination.origin.y, destination.size.height, sy_, t_.height);
    const double ux = source.size.width / (destination.size.width * sx_);
    const double uy = source.size.height / (destination.size.height * sy_);
    const auto texel = [&](int x, int y) {
        x = std::clamp(x, 0, image->width - 1);
        y = std::clamp(y, 0, image->height - 1);
        return &image->rgba[(static_cast<std::size_t>(y) * image->width + x) * 4];
    };
    for (int y = ys.begin; y < ys.end; ++y) {
        const double v = source.origin.y + (y + 0.5 - destination.origin.y * sy_) * uy - 0.5;
        const int y0 = static_cast<int>(std::floor(v));
        const double fy = v - y0;
        std::uint8_t* row = t_.pixels + static_cast<std::ptrdiff_t>(y) * t_.stride;
        for (int x = xs.begin; x < xs.end; ++x) {
            const double u = source.origin.x + (x + 0.5 - destination.origin.x * sx_) * ux - 0.5;
            const int x0 = static_cast<int>(std::floor(u));
            const double fx = u - x0;
            double acc[4] = {0, 0, 0, 0};
            const std::pair<const std::uint8_t*, double> taps[] = {
                {texel(x0, y0), (1 - fx) * (1 - fy)}, {texel(x0 + 1, y0), fx * (1 - fy)},
                {texel(x0, y0 + 1), (1 - fx) * fy}, {texel(x0 + 1, y0 + 1), fx * fy}};
            for (const auto& [p, w] : taps) {
                const double pa = p[3] * w;  // decoded images are straight alpha
                acc[0] += p[0] * pa / 255.0;
                acc[1] += p[1] * pa / 255.0;
                acc[2] += p[2] * pa / 255.0;
                acc[3] += pa;
            }
            if (acc[3] <= 0) continue;
            blend(row + x * 4, acc[0] * alpha, acc[1] * alpha, acc[2] * alpha, acc[3] * alpha);
        }
    }
}

void DisplayList::replay(Painter& painter) const {
    for (const Op& op : ops_) {
        if (const auto* f = std::get_if<Fill>(&op))
            painter.fillRect(f->rect, f->color);
        else if (const auto* p = std::get_if<Picture>(&op))
            painter.drawImage(p->image, p->source, p->destination, p->alpha);
    }
}

}  // namespace quov::platform
