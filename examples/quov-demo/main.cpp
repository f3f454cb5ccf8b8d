// quov-demo: a small Linux host that shows one interstitial through the public API,
// the way a game or kiosk would: its own SDL loop, the SDK's three SDL calls, a
// delegate, bundle information. Each delegate call is one JSON line on stdout.
#include "BidServerProcess.h"
#include "DemoOptions.h"

#include <quov/MainLoop.h>
#include <quov/QuovAd.h>
#include <quov/QuovHost.h>
#include <quov/QuovSDL.h>

#include <SDL.h>
#include <SDL_image.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;

void emit(nlohmann::json line) {
    std::cout << line.dump() << std::endl;
}

/// Prints each delegate call and remembers where the flow stands.
struct Delegate : quov::QuovAdDelegate {
    bool displayed = false;
    bool finished = false;  // a failure, a fetched bid, a click or a close

    void onQuovSDKAdFetchedBid(quov::QVBidModelPtr bid) override {
        nlohmann::json line{{"event", "onQuovSDKAdFetchedBid"}};
        line["id"] = bid && bid->identifier() ? nlohmann::json(*bid->identifier()) : nlohmann::json();
        emit(line);
        finished = true;
    }
    void onQuovSDKAdLoaded() override { emit({{"event", "onQuovSDKAdLoaded"}}); }
    void onQuovSDKAdDisplayed() override {
        emit({{"event", "onQuovSDKAdDisplayed"}});
        displayed = true;
    }
    void onQuovSDKAdClicked() override {
        emit({{"event", "onQuovSDKAdClicked"}});
        finished = true;
    }
    void onQuovSDKAdClosed() override {
        emit({{"event", "onQuovSDKAdClosed"}});
        finished = true;
    }
    void onQuovSDKAdLoadFailed(const quov::Error& error) override {
        emit({{"event", "onQuovSDKAdLoadFailed"},
              {"domain", error.domain},
              {"code", error.code},
              {"description", error.description ? nlohmann::json(*error.description) : nlohmann::json()}});
        finished = true;
    }
};

/// The host's own frame: something behind the ad, as a game would draw.
void drawHostFrame(SDL_Renderer* r, int w, int h, double t) {
    SDL_SetRenderDrawColor(r, 28, 46, 84, 255);
    SDL_RenderClear(r);
    const int cell = std::max(8, w / 12);
    for (int y = 0; y < h; y += cell)
        for (int x = 0; x < w; x += cell)
            if (((x / cell) + (y / cell)) % 2 == 0) {
                SDL_SetRenderDrawColor(r, 36, 60, 108, 255);
                SDL_Rect tile{x, y, cell, cell};
                SDL_RenderFillRect(r, &tile);
            }
    SDL_SetRenderDrawColor(r, 255, 196, 64, 255);
    const int ball = cell;
    SDL_Rect player{static_cast<int>((w - ball) * (0.5 + 0.4 * std::sin(t))), h - 3 * ball, ball, ball};
    SDL_RenderFillRect(r, &player);
}

bool saveScreenshot(SDL_Renderer* renderer, int w, int h, const std::string& path) {
    SDL_Surface* surface = SDL_CreateRGBSurfaceWithFormat(0, w, h, 32, SDL_PIXELFORMAT_RGBA32);
    if (!surface) return false;
    bool ok = SDL_RenderReadPixels(renderer, nullptr, SDL_PIXELFORMAT_RGBA32, surface->pixels,
                                   surface->pitch) == 0 &&
              IMG_SavePNG(surface, path.c_str()) == 0;
    SDL_FreeSurface(surface);
    return ok;
}

void pushMouse(Uint32 type, int x, int y, Uint32 windowId) {
    SDL_Event e{};
    e.type = type;
    e.button.windowID = windowId;
    e.button.which = 0;
    e.button.button = SDL_BUTTON_LEFT;
    e.button.state = type == SDL_MOUSEBUTTONDOWN ? SDL_PRESSED : SDL_RELEASED;
    e.button.clicks = 1;
    e.button.x = x;
    e.button.y = y;
    SDL_PushEvent(&e);
}

/// One press and release of a named key: the keyboard, or the first game
/// controller's A and B. Names SDL does not know go as SDLK_UNKNOWN.
void pushKey(const std::string& name, Uint32 windowId) {
    for (const bool down : {true, false}) {
        SDL_Event e{};
        if (name == "pad-a" || name == "pad-b") {
            e.type = down ? SDL_CONTROLLERBUTTONDOWN : SDL_CONTROLLERBUTTONUP;
            e.cbutton.button = name == "pad-a" ? SDL_CONTROLLER_BUTTON_A : SDL_CONTROLLER_BUTTON_B;
            e.cbutton.state = down ? SDL_PRESSED : SDL_RELEASED;
        } else {
            e.type = down ? SDL_KEYDOWN : SDL_KEYUP;
            e.key.windowID = windowId;
            e.key.state = down ? SDL_PRESSED : SDL_RELEASED;
            e.key.keysym.sym = name == "escape" ? SDLK_ESCAPE
                               : name == "back" ? SDLK_AC_BACK
                               : name == "enter" ? SDLK_RETURN
                               : name == "space" ? SDLK_SPACE
                                                 : SDL_GetKeyFromName(name.c_str());
        }
        SDL_PushEvent(&e);
    }
}

}  // namespace

int main(int argc, char** argv) {
    demo::Options opt;
    if (auto bad = demo::parseOptions(std::vector<std::string>(argv + 1, argv + argc), opt)) {
        std::fprintf(stderr, "quov-demo: %s\n%s", bad->c_str(), demo::kUsage);
        return 2;
    }
    if (opt.help) {
        std::fputs(demo::kUsage, stdout);
        return 0;
    }

    demo::BidServerProcess server;
    std::string base = opt.bidServer.value_or("");
    if (base.empty()) {
        std::string error;
        base = server.start(error);
        if (base.empty()) {
            std::fprintf(stderr, "quov-demo: %s\n", error.c_str());
            return 1;
        }
        std::fprintf(stderr, "quov-demo: sample bid server at %s\n", base.c_str());
    }
    try {
        quov::QuovHost::setBidServerBase(base);
    } catch (const std::invalid_argument& e) {
        std::fprintf(stderr, "quov-demo: --bid-server: %s\n", e.what());
        return 2;
    }

    // A real window when a display is there; the offscreen driver otherwise.
    bool headless = opt.headless;
    if (!headless && !std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY")) {
        std::fprintf(stderr, "quov-demo: no display, running headless\n");
        headless = true;
    }
    if (headless) {
        SDL_SetHintWithPriority(SDL_HINT_VIDEODRIVER, "offscreen", SDL_HINT_OVERRIDE);
        // The software renderer straight into the window's pixels, no GPU emulation.
        SDL_SetHint(SDL_HINT_FRAMEBUFFER_ACCELERATION, "0");
    }
    if (SDL_Init(SDL_INIT_VIDEO) != 0) {
        std::fprintf(stderr, "quov-demo: SDL_Init: %s\n", SDL_GetError());
        return 1;
    }
    const double scale = headless ? opt.scale : (opt.scaleGiven ? opt.scale : 1.0);
    const int pw = static_cast<int>(opt.screenWidth * scale + 0.5);
    const int ph = static_cast<int>(opt.screenHeight * scale + 0.5);
    SDL_Window* window = SDL_CreateWindow("QuovSDK demo", SDL_WINDOWPOS_CENTERED, SDL_WINDOWPOS_CENTERED,
                                          pw, ph, SDL_WINDOW_SHOWN);
    SDL_Renderer* renderer =
        window ? SDL_CreateRenderer(window, -1, headless ? SDL_RENDERER_SOFTWARE : 0) : nullptr;
    if (!renderer && window) renderer = SDL_CreateRenderer(window, -1, SDL_RENDERER_SOFTWARE);
    if (!renderer) {
        std::fprintf(stderr, "quov-demo: cannot open a window: %s\n", SDL_GetError());
        SDL_Quit();
        return 1;
    }
    std::fprintf(stderr, "quov-demo: SDL video driver %s, %dx%d pixels for %dx%d points\n",
                 SDL_GetCurrentVideoDriver(), pw, ph, opt.screenWidth, opt.screenHeight);

    // What a Linux host supplies before setup.
    quov::QuovHost::setBundleInfo({{"CFBundleIdentifier", "org.quov.demo"},
                                   {"CFBundleShortVersionString", "1.0"},
                                   {"CFBundleName", "quov-demo"},
                                   {"CFBundleDisplayName", "QuovSDK demo"},
                                   {"CFBundleVersion", "1"}});
    quov::QuovHost::setURLOpenerProgram(opt.urlOpener);
    quov::QuovHost::allowURLSchemes({"quovdemo"});  // the deep links of the demo's own ads
    quov::sdl::setUIScale(scale);
    quov::sdl::attachWindow(window);

    auto delegate = std::make_shared<Delegate>();
    quov::QuovAd& ad = quov::QuovAd::shared();
    ad.setupWithAppId(opt.appId, opt.appKey);
    if (opt.imei) ad.setIMEI(*opt.imei);
    if (opt.oaid) ad.setOAID(*opt.oaid);
    ad.setDelegate(delegate);
    ad.loadAdWithAdId(opt.adId);

    const bool scripted = opt.touch || opt.close || !opt.keys.empty();
    const bool interactive = !headless && !scripted;
    const auto start = Clock::now();
    const auto deadline = start + std::chrono::duration_cast<Clock::duration>(
                                      std::chrono::duration<double>(opt.timeoutSeconds));
    bool injected = false, shot = !opt.screenshot, quit = false, timedOut = false;
    int framesSinceDisplayed = 0;
    const Uint32 windowId = SDL_GetWindowID(window);

    while (!quit) {
        SDL_Event e;
        while (SDL_PollEvent(&e)) {
            if (quov::sdl::processEvent(e)) continue;
            if (e.type == SDL_QUIT) quit = true;
        }
        quov::MainLoop::shared().drain();

        const double t = std::chrono::duration<double>(Clock::now() - start).count();
        drawHostFrame(renderer, pw, ph, t);
        quov::sdl::render(renderer);

        if (delegate->displayed && !delegate->finished) ++framesSinceDisplayed;
        const bool settled = framesSinceDisplayed >= 2 && !quov::sdl::isLoadingContent();
        if (!shot && settled) {
            if (!saveScreenshot(renderer, pw, ph, *opt.screenshot))
                std::fprintf(stderr, "quov-demo: cannot write %s: %s\n", opt.screenshot->c_str(),
                             SDL_GetError());
            else
                std::fprintf(stderr, "quov-demo: screenshot written to %s\n", opt.screenshot->c_str());
            shot = true;
        }
        SDL_RenderPresent(renderer);

        if (settled && shot && !injected && !opt.keys.empty()) {
            for (const auto& name : opt.keys) pushKey(name, windowId);
            injected = true;
        } else if (settled && shot && !injected && (opt.touch || opt.close)) {
            demo::TouchPlan plan;
            if (opt.close) {
                auto frame = quov::sdl::findElement("close");
                if (!frame) {
                    std::fprintf(stderr, "quov-demo: no close button on screen\n");
                    break;
                }
                plan.downX = plan.upX = frame->origin.x + frame->size.width / 2;
                plan.downY = plan.upY = frame->origin.y + frame->size.height / 2;
            } else {
                plan = *opt.touch;
            }
            pushMouse(SDL_MOUSEBUTTONDOWN, static_cast<int>(plan.downX * scale),
                      static_cast<int>(plan.downY * scale), windowId);
            pushMouse(SDL_MOUSEBUTTONUP, static_cast<int>(plan.upX * scale),
                      static_cast<int>(plan.upY * scale), windowId);
            injected = true;
        }

        // A failure or a fetched bid never shows an ad: there is nothing to shoot.
        if (delegate->finished && (shot || !delegate->displayed)) break;
        if (headless && !scripted && delegate->displayed && shot && settled) break;
        if (injected && !delegate->finished && framesSinceDisplayed > 30) {
            // The taps landed nowhere that ends the flow (say, outside the ad).
            break;
        }
        if (!interactive && Clock::now() > deadline) {
            timedOut = true;
            break;
        }
        SDL_Delay(8);
    }

    // Impressions and clicks still in flight go out before the process ends.
    ad.flush(std::chrono::seconds(10));
    quov::sdl::releaseRenderer();
    quov::sdl::attachWindow(nullptr);
    SDL_DestroyRenderer(renderer);
    SDL_DestroyWindow(window);
    SDL_Quit();
    if (timedOut) {
        std::fprintf(stderr, "quov-demo: timed out after %g s\n", opt.timeoutSeconds);
        return 1;
    }
    return 0;
}
