#pragma once

#include <quov/Export.h>
#include <quov/Geometry.h>

#include <optional>
#include <string_view>

struct SDL_Window;
struct SDL_Renderer;
union SDL_Event;

/// Showing the SDK's ads in a host that runs its own SDL2 loop, in three calls
/// per frame:
///
///     while (SDL_PollEvent(&e)) {
///         if (quov::sdl::processEvent(e)) continue;   // the ad took it
///         ...host's own handling...
///     }
///     quov::MainLoop::shared().drain();               // SDK callbacks run here
///     ...host draws its frame...
///     quov::sdl::render(renderer);                     // ads on top
///     SDL_RenderPresent(renderer);
///
/// Call attachWindow() once before. Every function belongs on the main thread
/// (the one that drains quov::MainLoop::shared()); none blocks.
namespace quov::sdl {

/// Makes window the SDK's screen: its size in points is the main screen, its
/// resizes flip the orientation, its focus and minimising set the application
/// state. Null detaches (views stay; input and resizes are no longer followed).
QUOV_EXPORT void attachWindow(SDL_Window* window);

/// Pass every event. Returns true when the SDK consumed it: mouse and touch
/// input while an SDK view is on screen, or that finishes a touch it began
/// taking; while an ad is on screen, Escape, Back (SDLK_AC_BACK) and gamepad B
/// (close the frontmost ad), Enter, keypad Enter, Space and gamepad A (click it),
/// and the release of any press it took. Other keys, window and all other
/// events are never consumed.
QUOV_EXPORT bool processEvent(const SDL_Event& event);

/// Draws the SDK's views into renderer after the host's frame and before
/// SDL_RenderPresent. Restores the draw colour, blend mode, scale, viewport
/// and clip rectangle it changes; does nothing while the window is minimised or
/// nothing is shown. The SDK keeps textures on this renderer (see releaseRenderer);
/// passing another renderer gives up the previous one's first.
QUOV_EXPORT void render(SDL_Renderer* renderer);

/// Gives up the textures the SDK made on the renderer last passed to render().
/// Call it before SDL_DestroyRenderer. A window's renderer destroyed without it
/// (itself or with its window) is noticed at the next call here or to render():
/// the window no longer has it, so the SDK forgets what SDL freed with it. That
/// cannot be told once the window has a new renderer, which may sit at the old
/// address, nor for a renderer without a window: there the call must come first.
QUOV_EXPORT void releaseRenderer();

/// Window coordinates per point (default 1; for example 2 draws the SDK's views
/// twice as large on a dense screen). Not finite or not positive: ignored.
QUOV_EXPORT void setUIScale(double windowUnitsPerPoint);

/// The host reports that the device orientation changed (for example a kiosk
/// screen turned); the SDK's views lay themselves out again.
QUOV_EXPORT void orientationDidChange();

/// UI automation (test rigs, kiosks driving the ad): the frame, in window points,
/// of the frontmost visible SDK element with this accessibility label: "ad" (the
/// ad image's click area) or "close" (the close button). None when nothing matches.
QUOV_EXPORT std::optional<quov::Rect> findElement(std::string_view label);

/// True while an image for the SDK's views is still downloading or decoding; a host
/// that wants a screenshot of the finished ad waits for false.
QUOV_EXPORT bool isLoadingContent();

}  // namespace quov::sdl
