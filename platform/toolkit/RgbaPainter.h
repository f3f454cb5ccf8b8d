#pragma once

#include "platform/toolkit/Painter.h"

#include <array>
#include <cstdint>
#include <memory>
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

/// Images as an RgbaPainter sampled them, kept between frames so an image drawn
/// again the same way is copied rather than sampled. Holds only what the last
/// frame drew. Main thread.
class RgbaImageCache {
public:
    /// Full sampling passes made so far.
    std::size_t samplings() const { return samplings_; }

private:
    friend class RgbaPainter;
    // Per pixel of the drawn span: nothing drawn, bytes that come out the same over
    // any destination, or a colour still to blend (the doubles, in scan order).
    enum class Kind : std::uint8_t { Skip, Fixed, Blend };
    struct Entry {
        std::weak_ptr<const Image> image;
        const Image* key = nullptr;
        Rect source, destination;
        double sx = 0, sy = 0, alpha = 0;
        int width = 0, height = 0;
        int x0 = 0, x1 = 0, y0 = 0, y1 = 0;
        std::vector<Kind> kinds;
        std::vector<std::uint32_t> fixed;
        std::vector<std::array<double, 4>> blends;
        bool used = true;
    };
    void endFrame();

    std::vector<Entry> entries_;
    std::size_t samplings_ = 0;
};

/// Draws into an RgbaTarget in software: source-over blending of premultiplied
/// colour, rectangles by pixel centres, images sampled bilinearly.
class RgbaPainter : public Painter {
public:
    /// scaleX, scaleY: pixels per point. With a cache, the painter is one frame:
    /// images are sampled through it, and when the painter goes the cache lets go
    /// of whatever this frame did not draw.
    RgbaPainter(const RgbaTarget& target, double scaleX, double scaleY, RgbaImageCache* cache = nullptr)
        : t_(target), sx_(scaleX), sy_(scaleY), cache_(cache) {}
    ~RgbaPainter() override;
    RgbaPainter(const RgbaPainter&) = delete;
    RgbaPainter& operator=(const RgbaPainter&) = delete;
    void fillRect(const Rect& rect, const Color& color) override;
    void drawImage(const ImagePtr& image, const Rect& source, const Rect& destination, double alpha) override;

private:
    const RgbaImageCache::Entry* sampled(const ImagePtr& image, const Rect& source, const Rect& destination,
                                         double alpha);

    RgbaTarget t_;
    double sx_, sy_;
    RgbaImageCache* cache_;
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
