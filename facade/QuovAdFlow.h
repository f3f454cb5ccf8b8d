#pragma once

#include <quov/QuovAd.h>
#include <quov/QVRequestHelper.h>

#include "platform/Context.h"
#include "platform/toolkit/Image.h"
#include "view/QVAdView.h"

#include <functional>

namespace quov {

/// The load flow behind QuovAd, split out so each decision can be driven directly.
struct QuovAdFlow {
    /// The completion the facade hands to the request helper: error first, then
    /// "no bid", then the host-rendered bid, then the view path.
    static LoadCompletion makeLoadCompletion(QuovAd& ad);

    /// The view path: puts the bid on screen and wires its three callbacks to the
    /// delegate. Replaceable so the decisions can be observed without a window.
    using ViewPresenter = std::function<void(QuovAd& ad, QVBidModelPtr bid)>;
    /// Puts presenter in force on context for the guard's lifetime; empty: the default.
    class ScopedViewPresenter {
    public:
        ScopedViewPresenter(platform::Context& context, ViewPresenter presenter);
        ~ScopedViewPresenter();
        ScopedViewPresenter(const ScopedViewPresenter&) = delete;
        ScopedViewPresenter& operator=(const ScopedViewPresenter&) = delete;

    private:
        platform::Context& context_;
        ViewPresenter previous_;
    };
    /// A preloaded image (null when its download failed) is shown as it is rather than
    /// fetched again; nullopt: the view downloads the image itself.
    static void presentOnView(QuovAd& ad, QVBidModelPtr bid,
                              std::optional<platform::ImagePtr> preloaded = std::nullopt);

    /// The preload path: remembers the bid as the facade's newest prepared ad, fetches
    /// its first image and then marks it ready and calls onQuovSDKAdLoaded.
    static void prepare(QuovAd& ad, QVBidModelPtr bid);

    /// Logs once per process when an entry point runs on a thread other than the
    /// one draining MainLoop::shared() (known from its first drain on). All builds.
    static void checkMainThread(const char* call);

    /// The facade as long as it exists (shared() always does); null after a facade
    /// made with QuovAd() is gone. Completions and view callbacks look it up first.
    static std::function<QuovAd*()> weakFacade(QuovAd& ad);

    /// The default presenter: a QVAdView the size of the main screen in the key
    /// window. Without a key window the delegate gets noKeyWindowError().
    static void showInKeyWindow(QuovAd& ad, QVBidModelPtr bid,
                                std::optional<platform::ImagePtr> preloaded = std::nullopt);

    static constexpr std::int64_t kNoKeyWindowCode = 1001;
    static Error noKeyWindowError();
    /// What the ad views the facade makes run with (the SDK's loader, opener, clock).
    static QVAdViewEnvironment defaultAdViewEnvironment();
};

/// A bid held back by the preload path until the host asks for it.
struct QuovPreparedAd {
    QVBidModelPtr bid;
    platform::ImagePtr image;
    bool ready = false;
};

}  // namespace quov
