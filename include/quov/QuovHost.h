#pragma once

#include <quov/Export.h>
#include <quov/Geometry.h>

#include <map>
#include <optional>
#include <string>

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

    /// The bid server that ad requests go to, in place of the one built in (CMake's
    /// QUOV_BID_SERVER_BASE); absent restores that default. The value is an http or
    /// https URL with a host and optionally a port, and nothing after them: no path,
    /// query, fragment or trailing slash ("https://ads.example.com:8443"). Anything
    /// else throws std::invalid_argument naming the problem and changes nothing.
    /// Any thread; takes effect for the next request. The environment is not read.
    static void setBidServerBase(std::optional<std::string> base);
};

}  // namespace quov
