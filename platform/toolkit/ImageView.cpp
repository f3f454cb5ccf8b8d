#include "platform/toolkit/ImageView.h"

#include "platform/toolkit/Painter.h"

#include <algorithm>

namespace quov::platform {

ImagePlacement placeImage(Size content, const Rect& box, ContentMode mode) {
    ImagePlacement p{{box.origin, {0, 0}}, {{0, 0}, content}};
    if (!(content.width > 0 && content.height > 0 && box.size.width > 0 && box.size.height > 0))
        return p;
    const double sx = box.size.width / content.width;
    const double sy = box.size.height / content.height;
    switch (mode) {
        case ContentMode::ScaleToFill:
            p.destination = box;
            break;
        case ContentMode::ScaleAspectFit: {
            const double s = std::min(sx, sy);
            const Size d{content.width * s, content.height * s};
            p.destination = {{box.origin.x + (box.size.width - d.width) / 2,
                              box.origin.y + (box.size.height - d.height) / 2},
                             d};
            break;
        }
        case ContentMode::ScaleAspectFill: {
            // Fill the box and show the middle of the image: crop the source instead
            // of drawing outside the view.
            const double s = std::max(sx, sy);
            const Size visible{box.size.width / s, box.size.height / s};
            p.destination = box;
            p.source = {{(content.width - visible.width) / 2, (content.height - visible.height) / 2},
                        visible};
            break;
        }
    }
    return p;
}

void ImageView::draw(Painter& painter, const Rect& rect, double alpha) const {
    View::draw(painter, rect, alpha);
    if (!image_ || image_->width <= 0 || image_->height <= 0) return;
    const auto p = placeImage({double(image_->width), double(image_->height)}, rect, contentMode_);
    if (p.destination.size.width > 0 && p.destination.size.height > 0)
        painter.drawImage(image_, p.source, p.destination, alpha);
}

}  // namespace quov::platform
