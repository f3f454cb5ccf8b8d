#pragma once

#include <quov/Export.h>
#include <quov/QuovHost.h>

#include <cstdint>

/// Showing the SDK's ads in a host with any renderer (OpenGL, Vulkan, a software
/// canvas, a terminal): the host hands the SDK its surface's size and input, and
/// the SDK draws the ad layer into an RGBA buffer the host owns and composites.
///
///     quov::frame::attachSurface(widthPx, heightPx, pixelsPerPoint);  // and on every resize
///     each frame:
///         ...forward pointer and key input; if (taken) skip the host's own handling...
///         quov::MainLoop::shared().drain();
///         if (quov::frame::needsDisplay())
///             quov::frame::draw(buffer, w, h, stride);               // then upload/composite
///
/// The buffer is premultiplied RGBA, 8 bits a channel in the byte order R, G, B, A,
/// rows top to bottom; every pixel is written, fully transparent (0, 0, 0, 0)
/// where no ad is. Composite it with "one, one minus source alpha".
/// Every function belongs on the main thread; none blocks.
namespace quov::frame {

/// The keys an ad answers to while it is on screen. Escape, Back and GamepadB close
/// it; Enter, Space and GamepadA click it (at the release).
enum class Key : int { Escape = 0, Back = 1, Enter = 2, Space = 3, GamepadA = 4, GamepadB = 5 };

enum class PointerPhase : int { Down = 0, Move = 1, Up = 2, Cancel = 3 };

/// The host's surface becomes the main screen and key window: width and height in
/// pixels, scale in pixels per point (the SDK lays out in points). Call again when
/// the surface changes size (a change between portrait and landscape lays the ad
/// out again). Sizes or scales that are not positive and finite are ignored.
QUOV_EXPORT void attachSurface(int widthPixels, int heightPixels, double scale);

/// One step of a pointer (mouse: any fixed id; each finger: its own id), in surface
/// pixels. Returns true when the SDK took it: any step while an ad is on screen,
/// and the rest of a press that began on one.
QUOV_EXPORT bool pointer(std::uint64_t id, PointerPhase phase, double xPixels, double yPixels);

/// A press (down) or release of a key. Returns true when the SDK took it: while an
/// ad is on screen, and the release of a press it took.
QUOV_EXPORT bool key(Key key, bool down);

/// Focus and minimising: active (focused), inactive (visible, unfocused) or
/// background (minimised or hidden). Leaving active ends the presses in flight.
QUOV_EXPORT void setApplicationState(ApplicationState state);

/// True when the ad layer differs from what draw() last produced (an ad came or
/// went, an image arrived, the layout or surface changed). An idle host that gets
/// false need not redraw.
QUOV_EXPORT bool needsDisplay();

/// Draws the ad layer into pixels (width x height, stride bytes per row, at least
/// width * 4), overwriting every pixel. Returns false and writes nothing when the
/// arguments are unusable. A buffer of another size than the surface is scaled.
QUOV_EXPORT bool draw(std::uint8_t* pixels, int width, int height, int stride);

}  // namespace quov::frame
