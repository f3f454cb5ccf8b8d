#pragma once

#include "platform/toolkit/Image.h"

struct SDL_Surface;

namespace quov::platform {

/// The surface's pixels as an RGBA image, the one place SDL surfaces become RGBA. Takes
/// the surface whatever happens: a surface already in RGBA with unpadded rows is adopted
/// as the image's storage, any other is converted once straight into it (a colour key
/// becomes transparency). Null for a null surface or when SDL fails. Any thread.
ImagePtr imageFromSurface(SDL_Surface* surface);

}  // namespace quov::platform
