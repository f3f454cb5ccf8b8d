// Ads closed and clicked without a pointer: keyboard and gamepad events through the
// SDL path, with the bid server's trackers and the opener watched on loopback.
#include <quov/MainLoop.h>
#include <quov/QuovAd.h>
#include <quov/QuovSDL.h>

#include "network/BidServerBase.h"
#include "platform/Context.h"
#include "platform/toolkit/Application.h"
#include "tests/support/SdlHeadless.h"
#include "support/RecordingDelegate.h"
#include "tools/bid_server/BidServer.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <functional>

namespace quov {
namespace {

SDL_Event keyEvent(SDL_Keycode sym, bool down, SDL_Window* window, Uint8 repeat = 0) {
    SDL_Event e{};
    e.type = down ? SDL_KEYDOWN : SDL_KEYUP;
    e.key.windowID = SDL_GetWindowID(window);
    e.key.state = down ? SDL_PRESSED : SDL_RELEASED;
    e.key.repeat = repeat;
    e.key.keysym.sym = sym;
    return e;
}

SDL_Event padEvent(SDL_GameControllerButton button, bool down) {
    SDL_Event e{};
    e.type = down ? SDL_CONTROLLERBUTTONDOWN : SDL_CONTROLLERBUTTONUP;
    e.cbutton.button = static_cast<Uint8>(button);
    e.cbutton.state = down ? SDL_PRESSED : SDL_RELEASED;
    return e;
}

/// An ad on the SDK's window, loaded from the sample bid server.
struct AdOnScreen {
    tools::BidServer server{[] {
        tools::BidServerOptions o;
        o.creative = tools::CreativeChoice::Landscape;  // a 318.75 x 212.5 box on 375 x 812
        return o;
    }()};
    platform::HeadlessDisplay display{375, 812};
    std::shared_ptr<test::RecordingDelegate> delegate = std::make_shared<test::RecordingDelegate>();
    std::vector<std::optional<std::string>> opened;
    std::optional<platform::Context::ScopedServiceBase> base;

    AdOnScreen() {
        server.start();
        base.emplace(platform::Context::shared(), server.baseUrl());
        quov::sdl::setUIScale(1);
        quov::sdl::attachWindow(display.window());
        platform::Context::shared().application().setURLOpener(
            [this](const std::optional<std::string>& url, platform::URLOpenCompletion done) {
                opened.push_back(url);
                done(true);
            });
        QuovAd& ad = QuovAd::shared();
        ad.setupWithAppId(std::string("keys-app"), std::string("keys-key"));
        ad.setDelegate(delegate);
    }
    ~AdOnScreen() {
        QuovAd::shared().flush(std::chrono::seconds(10));
        // An image still on its way would land in a later test's main loop.
        MainLoop::shared().runUntil([] { return !quov::sdl::isLoadingContent(); }, std::chrono::seconds(10));
        quov::sdl::attachWindow(nullptr);
        QuovAd::shared().setDelegate(std::weak_ptr<QuovAdDelegate>());
        platform::Context::shared().application().setURLOpener({});
    }
    bool load() {
        QuovAd::shared().loadAdWithAdId(std::string("slot"));
        const std::size_t before = delegate->calls.size();
        return MainLoop::shared().runUntil(
            [&] { return delegate->calls.size() >= before + 2 && QuovAd::shared().flush({}); },
            std::chrono::seconds(20));
    }
    std::size_t adsOnScreen() const { return platform::Context::shared().application().keyWindow()->subviews().size(); }
    int count(const char* path) { return server.stats()["counts"].value(path, 0); }
};

TEST(AdKeys, DismissKeysCloseTheAdAsTheCloseButtonDoes) {
    AdOnScreen rig;
    const std::pair<const char*, std::function<SDL_Event(bool)>> keys[] = {
        {"escape", [&](bool d) { return keyEvent(SDLK_ESCAPE, d, rig.display.window()); }},
        {"back", [&](bool d) { return keyEvent(SDLK_AC_BACK, d, rig.display.window()); }},
        {"pad B", [](bool d) { return padEvent(SDL_CONTROLLER_BUTTON_B, d); }},
    };
    for (const auto& [name, make] : keys) {
        SCOPED_TRACE(name);
        rig.delegate->calls.clear();
        ASSERT_TRUE(rig.load());
        ASSERT_EQ(rig.adsOnScreen(), 1u);
        EXPECT_TRUE(quov::sdl::processEvent(make(true)));
        EXPECT_EQ(rig.delegate->calls, (std::vector<std::string>{"loaded", "displayed", "closed"}));
        EXPECT_EQ(rig.adsOnScreen(), 0u);
        EXPECT_TRUE(quov::sdl::processEvent(make(false))) << "the release of a press the ad took";
        EXPECT_FALSE(quov::sdl::processEvent(make(true))) << "no ad: the host's key again";
        EXPECT_FALSE(quov::sdl::processEvent(make(false)));
    }
    ASSERT_TRUE(QuovAd::shared().flush(std::chrono::seconds(10)));
    EXPECT_EQ(rig.count("/track/click"), 0);
    EXPECT_TRUE(rig.opened.empty());
}

TEST(AdKeys, ActivateKeysClickTheCentreOfTheClickArea) {
    AdOnScreen rig;
    const std::pair<const char*, std::function<SDL_Event(bool)>> keys[] = {
        {"enter", [&](bool d) { return keyEvent(SDLK_RETURN, d, rig.display.window()); }},
        {"keypad enter", [&](bool d) { return keyEvent(SDLK_KP_ENTER, d, rig.display.window()); }},
        {"space", [&](bool d) { return keyEvent(SDLK_SPACE, d, rig.display.window()); }},
        {"pad A", [](bool d) { return padEvent(SDL_CONTROLLER_BUTTON_A, d); }},
    };
    int clicks = 0;
    for (const auto& [name, make] : keys) {
        SCOPED_TRACE(name);
        rig.delegate->calls.clear();
        ASSERT_TRUE(rig.load());
        EXPECT_TRUE(quov::sdl::processEvent(make(true)));
        EXPECT_EQ(rig.adsOnScreen(), 1u) << "the press alone clicks nothing";
        EXPECT_EQ(rig.delegate->calls, (std::vector<std::string>{"loaded", "displayed"}));
        EXPECT_TRUE(quov::sdl::processEvent(make(false)));
        EXPECT_EQ(rig.delegate->calls, (std::vector<std::string>{"loaded", "displayed", "clicked"}));
        EXPECT_EQ(rig.adsOnScreen(), 0u);
        ASSERT_TRUE(QuovAd::shared().flush(std::chrono::seconds(10)));
        ++clicks;
        ASSERT_EQ(rig.opened.size(), static_cast<std::size_t>(clicks));
        EXPECT_EQ(rig.opened.back().value_or("").rfind("quovdemo://", 0), 0u);

        const auto stats = rig.server.stats();
        ASSERT_EQ(stats["counts"]["/track/click"], clicks);
        const auto& click = stats["tracking"].back()["params"];
        // The centre of the 318.75 x 212.5 click area, for both ends of the touch.
        for (const char* key : {"abs_down_x", "abs_up_x"}) EXPECT_EQ(click[key], "159") << key;
        for (const char* key : {"abs_down_y", "abs_up_y"}) EXPECT_EQ(click[key], "106") << key;
        EXPECT_NE(click["click_down_time"], "__CLICK_DOWN_TIME__");
    }
}

TEST(AdKeys, OtherKeysRepeatsAndStrayReleasesBelongToTheHost) {
    AdOnScreen rig;
    SDL_Window* w = rig.display.window();
    EXPECT_FALSE(quov::sdl::processEvent(keyEvent(SDLK_ESCAPE, true, w))) << "no ad yet";
    ASSERT_TRUE(rig.load());
    // Space held from before the ad: its release clicks nothing.
    EXPECT_FALSE(quov::sdl::processEvent(keyEvent(SDLK_SPACE, false, w)));
    EXPECT_FALSE(quov::sdl::processEvent(keyEvent(SDLK_a, true, w)));
    EXPECT_FALSE(quov::sdl::processEvent(keyEvent(SDLK_TAB, false, w)));
    EXPECT_FALSE(quov::sdl::processEvent(padEvent(SDL_CONTROLLER_BUTTON_X, true)));
    EXPECT_TRUE(quov::sdl::processEvent(keyEvent(SDLK_RETURN, true, w)));
    EXPECT_TRUE(quov::sdl::processEvent(keyEvent(SDLK_RETURN, true, w, 1))) << "auto-repeat";
    EXPECT_EQ(rig.adsOnScreen(), 1u);
    EXPECT_TRUE(quov::sdl::processEvent(keyEvent(SDLK_RETURN, false, w)));
    EXPECT_EQ(rig.delegate->calls, (std::vector<std::string>{"loaded", "displayed", "clicked"}));
    EXPECT_EQ(rig.adsOnScreen(), 0u);
}

}  // namespace
}  // namespace quov
