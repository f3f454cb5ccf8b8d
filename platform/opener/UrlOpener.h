#pragma once

#include <quov/MainLoop.h>

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace quov::platform {

/// Called once, on the main loop, with whether the URL was opened.
using URLOpenCompletion = std::function<void(bool opened)>;

/// Asks the system to open a URL in whatever handles it. Called on the main thread;
/// must not block it; answers exactly once through the completion, on the main loop.
/// An absent URL counts as not opened.
using URLOpener =
    std::function<void(const std::optional<std::string>& url, URLOpenCompletion completion)>;

/// The Linux default: runs `program` with the URL as its one argument (posix_spawn,
/// no shell) off the main thread; exit status 0 means opened. Refuses hostile or
/// local URLs without spawning: only http, https and the schemes registered with
/// setAllowedURLSchemes are handed on.
///
/// `program` is looked up on PATH unless it holds a '/'. It runs with standard input
/// from /dev/null, no other descriptor of ours, "/" as working directory, a session
/// of its own and only the environment a desktop opener needs (PATH, HOME, USER,
/// LOGNAME, LANG, LANGUAGE, LC_*, TZ, DISPLAY, WAYLAND_DISPLAY, XAUTHORITY, XDG_*,
/// DBUS_SESSION_BUS_ADDRESS, DESKTOP_SESSION, BROWSER and the desktops' session markers). Openers may wait for the browser they started, so a child still running
/// after `patience` counts as opened; it is reaped when it exits. The answers go to
/// `loop`, which must outlive every pending answer. Copies share one small worker
/// thread that exists only while children are pending.
/// Replaces the schemes, besides http and https, that openers hand on (an app's own
/// deep links). Lower-cased; returns the entries refused: not a scheme's shape (a
/// letter, then letters, digits, '+', '-', '.'; two characters at least) or one that
/// resolves to local files or inline content ("file", "javascript", "data", ...).
/// Any thread; applies to the next URL opened.
std::vector<std::string> setAllowedURLSchemes(const std::vector<std::string>& schemes);

URLOpener makeProgramURLOpener(std::string program = "xdg-open",
                               MainLoop& loop = MainLoop::shared(),
                               std::chrono::milliseconds patience = std::chrono::seconds(3));

}  // namespace quov::platform
