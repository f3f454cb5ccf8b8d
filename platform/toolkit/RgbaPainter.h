#pragma once

#include "platform/toolkit/Painter.h"

#include <cstdint>
#include <variant>
#include <vector>

namespace quov::platform {

/// A host-owned pixel buffer: premultiplied RGBA, 8 bits a channel, rows top to
/// bottom, stride bytes apart.
struct RgbaTarget {
    std::uint8_t* pixels = nullptr;
    int width = 0;
    int height = 0;
    int stride = 0;
};

/// Draws into an RgbaTarget in software: source-over blending of premultiplied
/// colour, rectangles by pixel centres, images sampled bilinearly.
class RgbaPainter : public Painter {
public:
    /// scaleX, scaleY: pixels per point.
    RgbaPainter(const RgbaTarget& target, double scaleX, double scaleY)
        : t_(target), sx_(scaleX), sy_(scaleY) {}
    void fillRect(const Rect& rect, const Color& color) override;
    void drawImage(const ImagePtr& image, const Rect& source, const Rect& destination, double alpha) override;

private:
    RgbaTarget t_;
    double sx_, sy_;
};

/// What a view tree draws, as a list: replayed into any painter, and compared
/// with the list last drawn to tell whether anything changed.
class DisplayList : public Painter {
public:
    struct Fill {
        Rect rect;
        Color color;
        friend bool operator==(const Fill&, const Fill&) = default;
    };
    struct Picture {
        ImagePtr image;  // held: a freed image's address cannot come back as a false match
        Rect source, destination;
        double alpha = 1;
        friend bool operator==(const Picture&, const Picture&) = default;
    };
    using Op = std::variant<Fill, Picture>;

    void fillRect(const Rect& rect, const Color& color) override { ops_.push_back(Fill{rect, color}); }
    void drawImage(const ImagePtr& image, const Rect& source, const Rect& destination, double alpha) override {
        ops_.push_back(Picture{image, source, destination, alpha});
    }
    void replay(Painter& painter) const;
    bool empty() const { return ops_.empty(); }
    friend bool operator==(const DisplayList& a, const DisplayList& b) { return a.ops_ == b.ops_; }

private:
    std::vector<Op> ops_;
};

}  // namespace quov::platform
