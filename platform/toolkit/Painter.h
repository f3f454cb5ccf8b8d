#pragma once

#include "platform/toolkit/Image.h"
#include "platform/toolkit/View.h"

namespace quov::platform {

/// Where a view tree draws: a renderer backend, or a recorder in tests.
/// Rectangles are points in the root's space; alpha is already folded in.
class Painter {
public:
    virtual ~Painter() = default;
    virtual void fillRect(const Rect& rect, const Color& color) = 0;
    /// source: the part of the image to draw, in image pixels.
    virtual void drawImage(const ImagePtr& image, const Rect& source, const Rect& destination,
                           double alpha) = 0;
};

/// Draws root and its visible subtree back to front (each view, then its
/// subviews in order), skipping hidden and fully transparent views.
void drawViewTree(const View& root, Painter& painter);

}  // namespace quov::platform
