#pragma once

#include <quov/Geometry.h>

#include <cmath>

namespace quov::platform {

/// The main screen: what the SDK's window covers. Set by the Application.
class Screen {
public:
    Screen() = default;
    Screen(Size points, double scale) : points_(points), scale_(scale) {}

    /// Origin (0, 0), size in points, in the current orientation.
    Rect bounds() const { return {{0, 0}, points_}; }
    /// Pixels per point.
    double scale() const { return scale_; }
    /// The size in pixels.
    Size currentMode() const {
        return {std::round(points_.width * scale_), std::round(points_.height * scale_)};
    }
    /// A square screen counts as landscape.
    bool isPortrait() const { return points_.width < points_.height; }

    friend bool operator==(const Screen&, const Screen&) = default;

private:
    Size points_{1280, 720};
    double scale_ = 1.0;
};

}  // namespace quov::platform
