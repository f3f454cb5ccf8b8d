#include "platform/toolkit/FrameSurface.h"

#include <cmath>
#include <cstring>

namespace quov::platform {

void FrameSurface::attach(int w, int h, double scale) {
    if (w <= 0 || h <= 0 || !(std::isfinite(scale) && scale > 0)) return;
    const Size before = app_.mainScreen().bounds().size;
    surfaceChanged_ = surfaceChanged_ || scale != scale_ || before != Size{w / scale, h / scale};
    scale_ = scale;
    if (!app_.keyWindow()) app_.setKeyWindow(Window::make());
    app_.setMainScreen({w / scale, h / scale}, scale);
}

bool FrameSurface::pointer(std::uint64_t id, TouchPhase phase, double x, double y) {
    if (!std::isfinite(x) || !std::isfinite(y)) return false;
    return input_.touch(id, phase, {x / scale_, y / scale_});
}

DisplayList FrameSurface::record(int width, int height) {
    DisplayList list;
    auto key = app_.keyWindow();
    if (!key || !key->hasVisibleContent()) return list;
    key->layoutIfNeeded();
    // Points scaled to the buffer's pixels, so the list changes with the buffer size.
    const Size points = app_.mainScreen().bounds().size;
    struct Scaled : Painter {
        DisplayList& out;
        double sx, sy;
        Scaled(DisplayList& o, double x, double y) : out(o), sx(x), sy(y) {}
        Rect px(const Rect& r) const {
            return {{r.origin.x * sx, r.origin.y * sy}, {r.size.width * sx, r.size.height * sy}};
        }
        void fillRect(const Rect& r, const Color& c) override { out.fillRect(px(r), c); }
        void drawImage(const ImagePtr& i, const Rect& s, const Rect& d, double a) override {
            out.drawImage(i, s, px(d), a);
        }
    } scaled(list, width / points.width, height / points.height);
    drawViewTree(*key, scaled);
    return list;
}

bool FrameSurface::needsDisplay() {
    if (!lastDrawn_) {
        const Size points = app_.mainScreen().bounds().size;
        return !record(static_cast<int>(std::lround(points.width * scale_)),
                       static_cast<int>(std::lround(points.height * scale_)))
                    .empty();
    }
    return surfaceChanged_ || !(record(lastWidth_, lastHeight_) == *lastDrawn_);
}

bool FrameSurface::draw(const RgbaTarget& t) {
    if (!t.pixels || t.width <= 0 || t.height <= 0 || t.stride < t.width * 4) return false;
    for (int y = 0; y < t.height; ++y)
        std::memset(t.pixels + static_cast<std::ptrdiff_t>(y) * t.stride, 0, static_cast<std::size_t>(t.width) * 4);
    DisplayList list = record(t.width, t.height);
    RgbaPainter painter(t, 1, 1, &images_);
    list.replay(painter);
    lastDrawn_ = std::move(list);
    lastWidth_ = t.width;
    lastHeight_ = t.height;
    surfaceChanged_ = false;
    return true;
}

}  // namespace quov::platform
