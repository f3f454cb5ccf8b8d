#include "platform/toolkit/RgbaPainter.h"

#include <algorithm>
#include <cmath>
#include <cstring>

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

/// One channel of source-over: premultiplied value v over destination byte d.
std::uint8_t over(double v, std::uint8_t d, double keep) {
    return static_cast<std::uint8_t>(std::lround(std::clamp(v + d * keep, 0.0, 255.0)));
}

/// Source-over of a premultiplied colour (channels 0..255 as doubles).
void blend(std::uint8_t* d, const std::array<double, 4>& c) {
    const double keep = 1.0 - c[3] / 255.0;
    for (int i = 0; i < 4; ++i) d[i] = over(c[i], d[i], keep);
}

bool wellFormed(const ImagePtr& image) {
    return image && image->width > 0 && image->height > 0 &&
           image->rgba.size() == static_cast<std::size_t>(image->width) * static_cast<std::size_t>(image->height) * 4;
}

/// Bilinear samples of an image's source rectangle stretched over a destination, in pixels.
class Sampler {
public:
    Sampler(const Image& image, const Rect& source, const Rect& destination, double sx, double sy, double alpha)
        : image_(image), source_(source), ox_(destination.origin.x * sx), oy_(destination.origin.y * sy),
          ux_(source.size.width / (destination.size.width * sx)),
          uy_(source.size.height / (destination.size.height * sy)), alpha_(alpha) {}

    /// The premultiplied colour, alpha applied, that lands on pixel (x, y); false where nothing does.
    bool at(int x, int y, std::array<double, 4>& out) const {
        const double v = source_.origin.y + (y + 0.5 - oy_) * uy_ - 0.5;
        const int y0 = static_cast<int>(std::floor(v));
        const double fy = v - y0;
        const double u = source_.origin.x + (x + 0.5 - ox_) * ux_ - 0.5;
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
        if (acc[3] <= 0) return false;
        out = {acc[0] * alpha_, acc[1] * alpha_, acc[2] * alpha_, acc[3] * alpha_};
        return true;
    }

private:
    const std::uint8_t* texel(int x, int y) const {
        x = std::clamp(x, 0, image_.width - 1);
        y = std::clamp(y, 0, image_.height - 1);
        return &image_.rgba[(static_cast<std::size_t>(y) * image_.width + x) * 4];
    }
    const Image& image_;
    Rect source_;
    double ox_, oy_, ux_, uy_, alpha_;
};

}  // namespace

void RgbaImageCache::endFrame() {
    std::erase_if(entries_, [](const Entry& e) { return !e.used || e.image.expired(); });
    for (Entry& e : entries_) e.used = false;
}

RgbaPainter::~RgbaPainter() {
    if (cache_) cache_->endFrame();
}

void RgbaPainter::fillRect(const Rect& rect, const Color& c) {
    const double a = std::clamp(c.alpha, 0.0, 1.0) * 255.0;
    if (a <= 0) return;
    const std::array<double, 4> colour{std::clamp(c.red, 0.0, 1.0) * a, std::clamp(c.green, 0.0, 1.0) * a,
                                       std::clamp(c.blue, 0.0, 1.0) * a, a};
    const Span xs = span(rect.origin.x, rect.size.width, sx_, t_.width);
    const Span ys = span(rect.origin.y, rect.size.height, sy_, t_.height);
    if (xs.begin >= xs.end || ys.begin >= ys.end) return;
    // One colour: each channel's result depends on the byte below alone.
    const double keep = 1.0 - colour[3] / 255.0;
    std::uint8_t table[4][256];
    for (int i = 0; i < 4; ++i)
        for (int d = 0; d < 256; ++d) table[i][d] = over(colour[i], static_cast<std::uint8_t>(d), keep);
    // Under a fill there is mostly one colour (the cleared buffer): reuse the last result.
    std::uint32_t below = 0, result = 0;
    bool known = false;
    for (int y = ys.begin; y < ys.end; ++y) {
        std::uint8_t* p = t_.pixels + static_cast<std::ptrdiff_t>(y) * t_.stride + xs.begin * 4;
        for (int x = xs.begin; x < xs.end; ++x, p += 4) {
            std::uint32_t pixel;
            std::memcpy(&pixel, p, 4);
            if (!known || pixel != below) {
                below = pixel;
                known = true;
                for (int i = 0; i < 4; ++i) p[i] = table[i][p[i]];
                std::memcpy(&result, p, 4);
            } else {
                std::memcpy(p, &result, 4);
            }
        }
    }
}

const RgbaImageCache::Entry* RgbaPainter::sampled(const ImagePtr& image, const Rect& source,
                                                  const Rect& destination, double alpha) {
    using Entry = RgbaImageCache::Entry;
    using Kind = RgbaImageCache::Kind;
    for (Entry& e : cache_->entries_) {
        if (e.key == image.get() && e.source == source && e.destination == destination && e.sx == sx_ &&
            e.sy == sy_ && e.alpha == alpha && e.width == t_.width && e.height == t_.height &&
            e.image.lock() == image) {
            e.used = true;
            return &e;
        }
    }
    Entry e;
    e.image = image;
    e.key = image.get();
    e.source = source;
    e.destination = destination;
    e.sx = sx_;
    e.sy = sy_;
    e.alpha = alpha;
    e.width = t_.width;
    e.height = t_.height;
    const Span xs = span(destination.origin.x, destination.size.width, sx_, t_.width);
    const Span ys = span(destination.origin.y, destination.size.height, sy_, t_.height);
    e.x0 = xs.begin, e.x1 = std::max(xs.begin, xs.end), e.y0 = ys.begin, e.y1 = std::max(ys.begin, ys.end);
    const std::size_t count = static_cast<std::size_t>(e.x1 - e.x0) * static_cast<std::size_t>(e.y1 - e.y0);
    e.kinds.resize(count, Kind::Skip);
    e.fixed.resize(count, 0);
    const Sampler sampler(*image, source, destination, sx_, sy_, alpha);
    std::array<double, 4> c;
    std::size_t i = 0;
    for (int y = e.y0; y < e.y1; ++y)
        for (int x = e.x0; x < e.x1; ++x, ++i) {
            if (!sampler.at(x, y, c)) continue;
            // The result only rises with the byte below: equal over 0 and over 255, equal over all.
            std::uint8_t low[4] = {0, 0, 0, 0}, high[4] = {255, 255, 255, 255};
            blend(low, c);
            blend(high, c);
            if (std::equal(low, low + 4, high)) {
                e.kinds[i] = Kind::Fixed;
                std::memcpy(&e.fixed[i], low, 4);
            } else {
                e.kinds[i] = Kind::Blend;
                e.blends.push_back(c);
            }
        }
    ++cache_->samplings_;
    cache_->entries_.push_back(std::move(e));
    return &cache_->entries_.back();
}

void RgbaPainter::drawImage(const ImagePtr& image, const Rect& source, const Rect& destination,
                            double alpha) {
    if (!wellFormed(image)) return;
    alpha = std::clamp(alpha, 0.0, 1.0);
    if (alpha <= 0 || destination.size.width <= 0 || destination.size.height <= 0) return;
    if (!cache_) {
        const Span xs = span(destination.origin.x, destination.size.width, sx_, t_.width);
        const Span ys = span(destination.origin.y, destination.size.height, sy_, t_.height);
        const Sampler sampler(*image, source, destination, sx_, sy_, alpha);
        std::array<double, 4> c;
        for (int y = ys.begin; y < ys.end; ++y) {
            std::uint8_t* row = t_.pixels + static_cast<std::ptrdiff_t>(y) * t_.stride;
            for (int x = xs.begin; x < xs.end; ++x)
                if (sampler.at(x, y, c)) blend(row + x * 4, c);
        }
        return;
    }
    using Kind = RgbaImageCache::Kind;
    const RgbaImageCache::Entry& e = *sampled(image, source, destination, alpha);
    const int w = e.x1 - e.x0;
    std::size_t next = 0;
    for (int y = e.y0; y < e.y1; ++y) {
        std::uint8_t* row = t_.pixels + static_cast<std::ptrdiff_t>(y) * t_.stride + e.x0 * 4;
        const std::size_t first = static_cast<std::size_t>(y - e.y0) * static_cast<std::size_t>(w);
        for (int x = 0; x < w;) {
            const Kind kind = e.kinds[first + x];
            if (kind == Kind::Fixed) {
                int end = x + 1;
                while (end < w && e.kinds[first + end] == Kind::Fixed) ++end;
                std::memcpy(row + x * 4, &e.fixed[first + x], static_cast<std::size_t>(end - x) * 4);
                x = end;
                continue;
            }
            if (kind == Kind::Blend) blend(row + x * 4, e.blends[next++]);
            ++x;
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
