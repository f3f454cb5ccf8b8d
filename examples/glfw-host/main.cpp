// quov-glfw-host: shows one interstitial over a GLFW + OpenGL scene through the RGBA
// frame, the way a host with its own renderer would: it keeps its window, loop and
// drawing; the SDK gets the surface size and the input, and hands back an ad layer
// that the host uploads as a texture and blends over its scene. Each delegate call
// is one JSON line on stdout.
#include <quov/MainLoop.h>
#include <quov/QuovAd.h>
#include <quov/QuovFrame.h>
#include <quov/QuovHost.h>

#define GLFW_INCLUDE_NONE
#include <GL/gl.h>
#include <GLFW/glfw3.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

const char* const kUsage =
    "usage: quov-glfw-host [--bid-server URL] [--screen WxH] [--scale S] [--url-opener PROGRAM]\n"
    "                      [--screenshot FILE.ppm] [--click | --close] [--timeout SECONDS]\n"
    "\n"
    "Loads one interstitial ad and shows it over an OpenGL scene; prints each delegate call\n"
    "as a line of JSON on stdout and exits when the ad ends. --screenshot writes the first\n"
    "frame that shows the ad's image (then exits, unless --click or --close says the ad is\n"
    "to be clicked or closed by real input first; the exit status says whether it was).\n";

struct Options {
    std::optional<std::string> bidServer;
    int widthPoints = 375, heightPoints = 812;
    double scale = 1;  // pixels per point on top of the monitor's content scale
    std::string urlOpener = "xdg-open";
    std::optional<std::string> screenshot;
    std::optional<std::string> expectedEnd;  // "onQuovSDKAdClicked" or "onQuovSDKAdClosed"
    double timeoutSeconds = 30;
};

std::optional<std::string> parseOptions(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--click" || a == "--close") {
            if (o.expectedEnd) return "--click and --close exclude each other";
            o.expectedEnd = a == "--click" ? "onQuovSDKAdClicked" : "onQuovSDKAdClosed";
            continue;
        }
        if (i + 1 >= argc) return "unknown argument or missing value: " + a;
        const std::string v = argv[++i];
        char* end = nullptr;
        if (a == "--bid-server") {
            if (v.rfind("http://", 0) != 0 && v.rfind("https://", 0) != 0) return "--bid-server takes an http(s) URL";
            o.bidServer = v;
        } else if (a == "--screen") {
            if (std::sscanf(v.c_str(), "%dx%d", &o.widthPoints, &o.heightPoints) != 2 || o.widthPoints < 1 ||
                o.heightPoints < 1 || o.widthPoints > 8192 || o.heightPoints > 8192)
                return "--screen takes WxH in points, e.g. 375x812";
        } else if (a == "--scale") {
            o.scale = std::strtod(v.c_str(), &end);
            if (*end || !(o.scale > 0 && o.scale <= 8)) return "--scale takes a number between 0 and 8";
        } else if (a == "--timeout") {
            o.timeoutSeconds = std::strtod(v.c_str(), &end);
            if (*end || !(o.timeoutSeconds > 0)) return "--timeout takes a positive number of seconds";
        } else if (a == "--url-opener") {
            o.urlOpener = v;
        } else if (a == "--screenshot") {
            o.screenshot = v;
        } else {
            return "unknown argument: " + a;
        }
    }
    return std::nullopt;
}

void emit(const nlohmann::json& line) { std::cout << line.dump() << std::endl; }

/// Prints each delegate call and remembers how the ad ended.
struct Delegate : quov::QuovAdDelegate {
    bool displayed = false;
    std::optional<std::string> ended;

    void onQuovSDKAdFetchedBid(quov::QVBidModelPtr) override { end("onQuovSDKAdFetchedBid"); }
    void onQuovSDKAdLoaded() override { emit({{"event", "onQuovSDKAdLoaded"}}); }
    void onQuovSDKAdDisplayed() override {
        emit({{"event", "onQuovSDKAdDisplayed"}});
        displayed = true;
    }
    void onQuovSDKAdClicked() override { end("onQuovSDKAdClicked"); }
    void onQuovSDKAdClosed() override { end("onQuovSDKAdClosed"); }
    void onQuovSDKAdLoadFailed(const quov::Error& error) override {
        emit({{"event", "onQuovSDKAdLoadFailed"}, {"domain", error.domain}, {"code", error.code}});
        ended = "onQuovSDKAdLoadFailed";
    }
    void end(const char* event) {
        emit({{"event", event}});
        ended = event;
    }
};

/// The window's surface as the SDK sees it: framebuffer pixels and pixels per point.
struct Surface {
    int width = 0, height = 0;
    double pixelsPerCursorUnit = 1;
    std::vector<std::uint8_t> adLayer;
    GLuint texture = 0;
    bool resized = true;
};

Surface surface;
double userScale = 1;

void attach(GLFWwindow* window) {
    int winW = 0, winH = 0;
    float contentScale = 1, unused = 1;
    glfwGetFramebufferSize(window, &surface.width, &surface.height);
    glfwGetWindowSize(window, &winW, &winH);
    glfwGetWindowContentScale(window, &contentScale, &unused);
    if (surface.width <= 0 || surface.height <= 0) return;  // minimised
    surface.pixelsPerCursorUnit = winW > 0 ? double(surface.width) / winW : 1;
    quov::frame::attachSurface(surface.width, surface.height, contentScale * userScale);
    surface.resized = true;
}

void onButton(GLFWwindow* window, int button, int action, int) {
    if (button != GLFW_MOUSE_BUTTON_LEFT) return;
    double x = 0, y = 0;
    glfwGetCursorPos(window, &x, &y);
    const auto phase = action == GLFW_PRESS ? quov::frame::PointerPhase::Down : quov::frame::PointerPhase::Up;
    if (quov::frame::pointer(0, phase, x * surface.pixelsPerCursorUnit, y * surface.pixelsPerCursorUnit)) return;
    // ...the host's own handling of the click would go here.
}

void onCursor(GLFWwindow*, double x, double y) {
    quov::frame::pointer(0, quov::frame::PointerPhase::Move, x * surface.pixelsPerCursorUnit,
                         y * surface.pixelsPerCursorUnit);
}

void onKey(GLFWwindow*, int key, int, int action, int) {
    if (action == GLFW_REPEAT) return;  // a held key is the host's, not a second press
    std::optional<quov::frame::Key> k;
    if (key == GLFW_KEY_ESCAPE) k = quov::frame::Key::Escape;
    if (key == GLFW_KEY_ENTER || key == GLFW_KEY_KP_ENTER) k = quov::frame::Key::Enter;
    if (key == GLFW_KEY_SPACE) k = quov::frame::Key::Space;
    if (k && quov::frame::key(*k, action == GLFW_PRESS)) return;
    // ...the host's own key handling would go here.
}

void onFocus(GLFWwindow*, int focused) {
    quov::frame::setApplicationState(focused ? quov::ApplicationState::Active : quov::ApplicationState::Inactive);
}

void onIconify(GLFWwindow*, int iconified) {
    quov::frame::setApplicationState(iconified ? quov::ApplicationState::Background
                                               : quov::ApplicationState::Active);
}

/// The first gamepad's A and B, edge-triggered, as the ad's click and close keys.
void pollGamepad() {
    static bool held[2] = {false, false};
    GLFWgamepadstate state;
    if (!glfwGetGamepadState(GLFW_JOYSTICK_1, &state)) return;
    const int buttons[2] = {GLFW_GAMEPAD_BUTTON_A, GLFW_GAMEPAD_BUTTON_B};
    const quov::frame::Key keys[2] = {quov::frame::Key::GamepadA, quov::frame::Key::GamepadB};
    for (int i = 0; i < 2; ++i) {
        const bool down = state.buttons[buttons[i]] == GLFW_PRESS;
        if (down != held[i]) quov::frame::key(keys[i], down);
        held[i] = down;
    }
}

/// The host's own scene: a clear colour and a few quads, in pixels from the top left.
void drawScene(double t) {
    glDisable(GL_TEXTURE_2D);
    glDisable(GL_BLEND);
    glClearColor(200 / 255.f, 120 / 255.f, 40 / 255.f, 1);
    glClear(GL_COLOR_BUFFER_BIT);
    const float cell = surface.width / 6.f;
    glColor3ub(40, 160, 200);
    glBegin(GL_QUADS);
    for (int i = 0; i < 3; ++i) {
        const float x = cell * (1 + 2 * i) + cell * 0.3f * float(std::sin(t + i)), y = surface.height - 2 * cell;
        glVertex2f(x, y);
        glVertex2f(x + cell, y);
        glVertex2f(x + cell, y + cell);
        glVertex2f(x, y + cell);
    }
    glEnd();
}

/// Refreshes the ad texture when the SDK says the layer changed; blends it over the scene.
void compositeAdLayer() {
    if (!surface.texture) glGenTextures(1, &surface.texture);
    glBindTexture(GL_TEXTURE_2D, surface.texture);
    const std::size_t bytes = std::size_t(surface.width) * surface.height * 4;
    if (surface.resized || quov::frame::needsDisplay()) {
        surface.adLayer.resize(bytes);
        quov::frame::draw(surface.adLayer.data(), surface.width, surface.height, surface.width * 4);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, GL_NEAREST);
        glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, GL_NEAREST);
        glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA8, surface.width, surface.height, 0, GL_RGBA, GL_UNSIGNED_BYTE,
                     surface.adLayer.data());
        surface.resized = false;
    }
    glEnable(GL_TEXTURE_2D);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);  // the layer is premultiplied
    glColor4f(1, 1, 1, 1);
    glBegin(GL_QUADS);
    glTexCoord2f(0, 0), glVertex2f(0, 0);
    glTexCoord2f(1, 0), glVertex2f(float(surface.width), 0);
    glTexCoord2f(1, 1), glVertex2f(float(surface.width), float(surface.height));
    glTexCoord2f(0, 1), glVertex2f(0, float(surface.height));
    glEnd();
}

/// The ad's image is in once the layer's centre, which the image box always covers, is opaque.
bool imageShown() {
    if (surface.adLayer.empty()) return false;
    return surface.adLayer[(std::size_t(surface.height / 2) * surface.width + surface.width / 2) * 4 + 3] == 255;
}

/// The back buffer as a binary PPM, written aside and renamed so a reader never sees half of it.
bool writeScreenshot(const std::string& path) {
    std::vector<std::uint8_t> rgb(std::size_t(surface.width) * surface.height * 3);
    glPixelStorei(GL_PACK_ALIGNMENT, 1);
    glReadPixels(0, 0, surface.width, surface.height, GL_RGB, GL_UNSIGNED_BYTE, rgb.data());
    const std::string partial = path + ".part";
    {
        std::ofstream out(partial, std::ios::binary);
        out << "P6\n" << surface.width << ' ' << surface.height << "\n255\n";
        const std::size_t row = std::size_t(surface.width) * 3;
        for (int y = surface.height - 1; y >= 0; --y)  // GL rows run bottom to top
            out.write(reinterpret_cast<const char*>(&rgb[y * row]), std::streamsize(row));
        if (!out) return false;
    }
    std::error_code ec;
    std::filesystem::rename(partial, path, ec);
    return !ec;
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    if (argc == 2 && (std::string(argv[1]) == "--help" || std::string(argv[1]) == "-h")) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (auto bad = parseOptions(argc, argv, opt)) {
        std::fprintf(stderr, "quov-glfw-host: %s\n%s", bad->c_str(), kUsage);
        return 2;
    }
    if (opt.bidServer) {
        try {
            quov::QuovHost::setBidServerBase(*opt.bidServer);
        } catch (const std::invalid_argument& e) {
            std::fprintf(stderr, "quov-glfw-host: %s\n", e.what());
            return 2;
        }
    }
    userScale = opt.scale;

    glfwSetErrorCallback([](int, const char* text) { std::fprintf(stderr, "quov-glfw-host: GLFW: %s\n", text); });
    if (!glfwInit()) return 1;
    glfwWindowHint(GLFW_SCALE_TO_MONITOR, GLFW_TRUE);
    glfwWindowHint(GLFW_RESIZABLE, GLFW_TRUE);
    GLFWwindow* window = glfwCreateWindow(int(opt.widthPoints * opt.scale), int(opt.heightPoints * opt.scale),
                                          "QuovSDK GLFW host", nullptr, nullptr);
    if (!window) {
        std::fprintf(stderr, "quov-glfw-host: cannot open an OpenGL window\n");
        glfwTerminate();
        return 1;
    }
    glfwMakeContextCurrent(window);
    glfwSwapInterval(1);
    std::fprintf(stderr, "quov-glfw-host: OpenGL %s on %s\n", glGetString(GL_VERSION), glGetString(GL_RENDERER));

    quov::QuovHost::setBundleInfo({{"CFBundleIdentifier", "org.quov.glfw-host"},
                                   {"CFBundleShortVersionString", "1.0"},
                                   {"CFBundleName", "quov-glfw-host"},
                                   {"CFBundleVersion", "1"}});
    quov::QuovHost::setURLOpenerProgram(opt.urlOpener);
    quov::QuovHost::allowURLSchemes({"quovdemo"});  // the sample server's deep links
    attach(window);
    glfwSetFramebufferSizeCallback(window, [](GLFWwindow* w, int, int) { attach(w); });
    glfwSetWindowContentScaleCallback(window, [](GLFWwindow* w, float, float) { attach(w); });
    glfwSetMouseButtonCallback(window, onButton);
    glfwSetCursorPosCallback(window, onCursor);
    glfwSetKeyCallback(window, onKey);
    glfwSetWindowFocusCallback(window, onFocus);
    glfwSetWindowIconifyCallback(window, onIconify);

    auto delegate = std::make_shared<Delegate>();
    quov::QuovAd& ad = quov::QuovAd::shared();
    ad.setupWithAppId("glfw-host", "glfw-key");
    ad.setDelegate(delegate);
    ad.loadAdWithAdId("glfw-slot");

    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    const bool scripted = opt.screenshot || opt.expectedEnd;
    bool shot = !opt.screenshot, timedOut = false;
    while (!glfwWindowShouldClose(window)) {
        // Input first, then the SDK's queued work (delegate calls among it), then the frame.
        glfwWaitEventsTimeout(1 / 60.0);
        pollGamepad();
        quov::MainLoop::shared().drain();

        const double t = std::chrono::duration<double>(Clock::now() - start).count();
        if (surface.width > 0 && surface.height > 0) {
            glViewport(0, 0, surface.width, surface.height);
            glMatrixMode(GL_PROJECTION);
            glLoadIdentity();
            glOrtho(0, surface.width, surface.height, 0, -1, 1);
            drawScene(t);
            compositeAdLayer();
            if (!shot && delegate->displayed && !delegate->ended && imageShown()) {
                shot = writeScreenshot(*opt.screenshot);
                std::fprintf(stderr, "quov-glfw-host: %s %s\n", shot ? "screenshot written to" : "cannot write",
                             opt.screenshot->c_str());
                if (!shot) break;
            }
            glfwSwapBuffers(window);
        }

        if (delegate->ended && (shot || !delegate->displayed)) break;
        if (shot && opt.screenshot && !opt.expectedEnd) break;
        if (scripted && t > opt.timeoutSeconds) {
            timedOut = true;
            break;
        }
    }

    // Impressions and clicks still in flight go out before the process ends.
    ad.flush(std::chrono::seconds(10));
    glDeleteTextures(1, &surface.texture);
    glfwDestroyWindow(window);
    glfwTerminate();
    if (timedOut) {
        std::fprintf(stderr, "quov-glfw-host: timed out after %g s\n", opt.timeoutSeconds);
        return 1;
    }
    if (opt.expectedEnd && delegate->ended != opt.expectedEnd) {
        std::fprintf(stderr, "quov-glfw-host: the ad ended with %s, not %s\n",
                     delegate->ended.value_or("nothing").c_str(), opt.expectedEnd->c_str());
        return 1;
    }
    return 0;
}
