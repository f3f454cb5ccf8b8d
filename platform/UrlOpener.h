#pragma once

#include <quov/MainLoop.h>

#include <functional>
#include <optional>
#include <string>

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
/// local URLs without spawning.
URLOpener makeProgramURLOpener(std::string program = "xdg-open",
                               MainLoop& loop = MainLoop::shared());

}  // namespace quov::platform
