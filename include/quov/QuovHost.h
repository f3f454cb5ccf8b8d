#pragma once

#include <quov/Export.h>
#include <quov/Geometry.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quov {

/// The application's state as the device record sees it.
enum class ApplicationState : int { Active = 0, Inactive = 1, Background = 2 };

/// The main screen: bounds in points, scale points-to-pixels, the current mode in
/// pixels (bounds times scale when not given).
struct MainScreen {
    Size bounds{1280, 720};
    double scale = 1.0;
    std::optional<Size> currentModePixels;
};

/// What a Linux host supplies in place of the phone platform's own answers. Each call
/// replaces one answer of the default (Linux) device platform and holds until changed.
/// Any thread; takes effect for the next record. None blocks.
class QUOV_EXPORT QuovHost {
public:
    /// The application's bundle information ("CFBundleShortVersionString",
    /// "CFBundleIdentifier", "CFBundleName", "CFBundleDisplayName", "CFBundleVersion").
    /// Keys given here override the defaults, which hold only "CFBundleName" and
    /// "CFBundleExecutable" (the executable's name). Set it before setup: without
    /// "CFBundleShortVersionString" and "CFBundleIdentifier" the device record, and so
    /// setup and every ad request, throws std::invalid_argument.
    static void setBundleInfo(std::map<std::string, std::string> info);

    /// The advertising identifier (UUID text, sent as given) and whether the user allows
    /// tracking. Absent restores the default: the all-zero UUID, tracking not enabled.
    static void setAdvertisingIdentifier(std::optional<std::string> identifier, bool trackingEnabled);

    /// The cellular carrier's name; absent (the default) means none.
    static void setCarrierName(std::optional<std::string> name);

    /// The main screen, until a toolkit reports the real one. Default: 1280x720 points, scale 1.
    static void setMainScreen(const MainScreen& screen);

    /// The application's state, until a toolkit reports it. Default: active.
    static void setApplicationState(ApplicationState state);
    /// The program the SDK runs to open a clicked ad's deep link or landing page
    /// (default "xdg-open", found on PATH unless it holds a '/'), with the URL as its
    /// one argument and no shell; exit status 0 means opened. Main thread.
    static void setURLOpenerProgram(std::string program);

    /// The schemes of the host's own deep links ("myapp") that a click may open, in
    /// addition to http and https, which are always allowed; replaces the earlier list.
    /// Entries are lower-cased; one that is not a scheme (a letter, then letters,
    /// digits, '+', '-', '.'; at least two characters) or that names local files or
    /// inline content ("file", "data", "javascript", ...) is dropped and returned.
    /// Every other scheme is refused: a deep link in it fails its step, so the click
    /// goes on to the landing page. The opener program runs with standard input from
    /// /dev/null, no other inherited descriptor, "/" as working directory, a session
    /// of its own, and of the host's environment only what a desktop opener needs:
    /// PATH, HOME, USER, LOGNAME, LANG, LANGUAGE, LC_*, TZ, DISPLAY, WAYLAND_DISPLAY,
    /// XAUTHORITY, XDG_*, DBUS_SESSION_BUS_ADDRESS, DESKTOP_SESSION, BROWSER and the
    /// desktops' session markers. Any thread; applies to the next click.
    static std::vector<std::string> allowURLSchemes(const std::vector<std::string>& schemes);

    /// The bid server that ad requests go to, in place of the one built in (CMake's
    /// QUOV_BID_SERVER_BASE); absent restores that default. The value is an http or
    /// https URL with a host and optionally a port, and nothing after them: no path,
    /// query, fragment or trailing slash ("https://ads.example.com:8443"). Anything
    /// else throws std::invalid_argument naming the problem and changes nothing.
    /// Any thread; takes effect for the next request. The environment is not read.
    static void setBidServerBase(std::optional<std::string> base);
};

}  // namespace quov
