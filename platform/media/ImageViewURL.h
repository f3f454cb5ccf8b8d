#pragma once

#include "platform/media/ImageLoader.h"
#include "platform/toolkit/ImageView.h"

#include <memory>
#include <optional>
#include <string>

namespace quov::platform {

/// Shows the image at `url` in `view` once it has downloaded. Main thread; returns at
/// once and reports nothing. The view's image is cleared now; an absent, malformed or
/// failing URL leaves it empty. A later call for the same view wins over an earlier one
/// still loading, and an image arriving for a view that is gone is dropped (the load
/// holds the view weakly, so it never keeps one alive).
void setImageWithURL(std::weak_ptr<ImageView> view, const std::optional<std::string>& url,
                     ImageLoader& loader);

}  // namespace quov::platform
