#pragma once

#include <quov/MainLoop.h>

#include <chrono>
#include <functional>
#include <memory>
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

/// Replaces the schemes, besides http and https, that openers hand on (an app's own
/// deep links). Lower-cased; returns the entries refused: not a scheme's shape (a
/// letter, then letters, digits, '+', '-', '.'; two characters at least) or one that
/// resolves to local files or inline content ("file", "javascript", "data", ...).
/// Any thread; applies to the next URL opened.
std::vector<std::string> setAllowedURLSchemes(const std::vector<std::string>& schemes);

/// The Linux default: runs `program` with the URL as its one argument (posix_spawn,
/// no shell) off the main thread; exit status 0 means opened. Refuses hostile or
/// local URLs without spawning: only http, https and the schemes registered with
/// setAllowedURLSchemes are handed on.
///
/// `program` is looked up on PATH unless it holds a '/'. It runs with standard input
/// from /dev/null, no other descriptor of ours, "/" as working directory, a session
/// of its own and only the environment a desktop opener needs (PATH, HOME, USER,
/// LOGNAME, LANG, LANGUAGE, LC_*, TZ, DISPLAY, WAYLAND_DISPLAY, XAUTHORITY, XDG_*,
/// DBUS_SESSION_BUS_ADDRESS, DESKTOP_SESSION, BROWSER and the desktops' session
/// markers). Openers may wait for the browser they started, so a child still running
/// after `patience` counts as opened; it is reaped when it exits. The answers go to
/// `loop`, which must outlive every pending answer. One worker thread, owned here,
/// exists only while children are pending.
class ProgramURLOpener {
public:
    ProgramURLOpener(std::string program, MainLoop& loop,
                     std::chrono::milliseconds patience = std::chrono::seconds(3));
    /// Shuts down.
    ~ProgramURLOpener();
    ProgramURLOpener(const ProgramURLOpener&) = delete;
    ProgramURLOpener& operator=(const ProgramURLOpener&) = delete;

    /// The URLOpener contract. Any thread.
    void open(const std::optional<std::string>& url, URLOpenCompletion completion);
    /// For the URLs opened from now on. Any thread.
    void setProgram(std::string program);
    /// Joins the worker. Pending answers are sent first: a child that already
    /// exited by its status, one still running as opened (it is left to run,
    /// unreaped), a URL not yet started as not opened; every later URL is not
    /// opened. Idempotent; any thread.
    void shutDown();

private:
    class Spawner;
    MainLoop& loop_;
    std::unique_ptr<Spawner> spawner_;
};

/// opener as the Application takes it; every copy shares it.
URLOpener urlOpenerFor(std::shared_ptr<ProgramURLOpener> opener);

/// A ProgramURLOpener owned by the returned function's copies; the last copy to
/// go shuts it down.
URLOpener makeProgramURLOpener(std::string program = "xdg-open",
                               MainLoop& loop = MainLoop::shared(),
                               std::chrono::milliseconds patience = std::chrono::seconds(3));

}  // namespace quov::platform
