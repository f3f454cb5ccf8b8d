// Ads closed and clicked by keyboard and gamepad through the SDL path.
#include <quov/MainLoop.h>
#include <quov/QuovAd.h>
#include <quov/QuovSDL.h>

#include "platform/Context.h"
#include "platform/toolkit/Application.h"
#include "tests/support/SdlHeadless.h"
#include "support/RecordingDelegate.h"
#include "tools/bid_server/BidServer.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

namespace quov {
namespace {

/// An ad on the SDK's window, loaded from the sample bid server.
struct AdOnScreen {
    tools::BidServer server{{.creative = tools::CreativeChoice::Landscape}};  // 318.75 x 212.5 on 375 x 812
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
        QuovAd::shared().setupWithAppId(std::string("keys-app"), std::string("keys-key"));
        QuovAd::shared().setDelegate(delegate);
    }
    ~AdOnScreen() {
        QuovAd::shared().flush(std::chrono::seconds(10));  // nor may an image land in a later test
        MainLoop::shared().runUntil([] { return !quov::sdl::isLoadingContent(); }, std::chrono::seconds(10));
        quov::sdl::attachWindow(nullptr);
        QuovAd::shared().setDelegate(std::weak_ptr<QuovAdDelegate>());
        platform::Context::shared().application().setURLOpener({});
    }
    /// A key (or, with pad, a controller button) pressed or released; whether the ad took it.
    bool key(int code, bool down, bool pad) {
        SDL_Event e{};
        if (pad) {
            e.type = down ? SDL_CONTROLLERBUTTONDOWN : SDL_CONTROLLERBUTTONUP;
            e.cbutton.button = static_cast<Uint8>(code);
            e.cbutton.state = down ? SDL_PRESSED : SDL_RELEASED;
        } else {
            e.type = down ? SDL_KEYDOWN : SDL_KEYUP;
            e.key.windowID = SDL_GetWindowID(display.window());
            e.key.state = down ? SDL_PRESSED : SDL_RELEASED;
            e.key.keysym.sym = code;
        }
        return quov::sdl::processEvent(e);
    }
    std::size_t adsOnScreen() const { return platform::Context::shared().application().keyWindow()->subviews().size(); }
};

TEST(AdKeys, DismissKeysCloseOnThePressActivateKeysClickTheCentreOnTheRelease) {
    AdOnScreen rig;
    const std::tuple<const char*, int, bool, const char*> keys[] = {  // what, code, a pad button, the outcome
        {"escape", SDLK_ESCAPE, false, "closed"},         {"back", SDLK_AC_BACK, false, "closed"},
        {"pad B", SDL_CONTROLLER_BUTTON_B, true, "closed"}, {"enter", SDLK_RETURN, false, "clicked"},
        {"keypad enter", SDLK_KP_ENTER, false, "clicked"}, {"space", SDLK_SPACE, false, "clicked"},
        {"pad A", SDL_CONTROLLER_BUTTON_A, true, "clicked"},
    };
    int clicks = 0;
    for (const auto& [name, code, pad, outcome] : keys) {
        SCOPED_TRACE(name);
        rig.delegate->calls.clear();
        QuovAd::shared().loadAdWithAdId(std::string("slot"));
        ASSERT_TRUE(MainLoop::shared().runUntil(
            [&] { return rig.delegate->calls.size() >= 2 && QuovAd::shared().flush({}); }, std::chrono::seconds(20)));
        const bool click = std::string(outcome) == "clicked";
        EXPECT_TRUE(rig.key(code, true, pad));
        EXPECT_EQ(rig.adsOnScreen(), click ? 1u : 0u) << "a press closes; only a release clicks";
        EXPECT_TRUE(rig.key(code, false, pad)) << "the release of a press the ad took";
        EXPECT_EQ(rig.delegate->calls, (std::vector<std::string>{"loaded", "displayed", outcome}));
        EXPECT_EQ(rig.adsOnScreen(), 0u);
        EXPECT_FALSE(rig.key(code, true, pad)) << "no ad: the host's key again";
        ASSERT_TRUE(QuovAd::shared().flush(std::chrono::seconds(10)));
        clicks += click;
        ASSERT_EQ(rig.opened.size(), static_cast<std::size_t>(clicks));
        const auto stats = rig.server.stats();
        ASSERT_EQ(stats["counts"].value("/track/click", 0), clicks);
        if (!click) continue;
        EXPECT_EQ(rig.opened.back().value_or("").rfind("quovdemo://", 0), 0u);
        const auto& params = stats["tracking"].back()["params"];  // the click area's centre, both ends
        for (const char* key : {"abs_down_x", "abs_up_x"}) EXPECT_EQ(params[key], "159") << key;
        for (const char* key : {"abs_down_y", "abs_up_y"}) EXPECT_EQ(params[key], "106") << key;
    }
}

}  // namespace
}  // namespace quov
