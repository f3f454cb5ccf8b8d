#pragma once

#include "platform/toolkit/Image.h"
#include "platform/toolkit/View.h"

namespace quov::platform {

/// How an image fills its view; the values are the ones the ad view passes.
enum class ContentMode : int { ScaleToFill = 0, ScaleAspectFit = 1, ScaleAspectFill = 2 };

/// Where an image of content pixels lands in box (points) for a mode, and which
/// part of the image shows there (image pixels; all of it except for aspect-fill).
struct ImagePlacement {
    Rect destination;
    Rect source;
};
ImagePlacement placeImage(Size content, const Rect& box, ContentMode mode);

/// A view that shows one decoded image. Without an image it draws only its
/// background. Main thread.
class ImageView : public View {
public:
    using View::View;
    static std::shared_ptr<ImageView> make(Rect frame = {}) {
        return std::make_shared<ImageView>(frame);
    }

    const ImagePtr& image() const { return image_; }
    void setImage(ImagePtr image) { image_ = std::move(image); }
    ContentMode contentMode() const { return contentMode_; }
    void setContentMode(ContentMode mode) { contentMode_ = mode; }

    void draw(Painter& painter, const Rect& rect, double alpha) const override;

private:
    ImagePtr image_;
    ContentMode contentMode_ = ContentMode::ScaleToFill;
};

}  // namespace quov::platform
