#pragma once

#include <quov/Export.h>
#include <quov/QVBidModel.h>
#include <quov/QVError.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace quov {

struct QuovPreparedAd;

/// The host's delegate. Every call arrives on the main thread (the thread that
/// drains MainLoop::shared()). All six are called unconditionally; the empty
/// defaults let a host implement only what it needs.
class QUOV_EXPORT QuovAdDelegate {
public:
    virtual ~QuovAdDelegate();
    /// The first bid asks the host to render it (its isRendering() is 1).
    virtual void onQuovSDKAdFetchedBid(QVBidModelPtr bid);
    /// A bid arrived and the SDK is about to show it. With preloading on, the
    /// ad is instead ready: its image has arrived (or failed) and showAd() shows it.
    virtual void onQuovSDKAdLoaded();
    /// The ad view reported the impression.
    virtual void onQuovSDKAdDisplayed();
    /// The user clicked the ad (the view is gone; a close never follows).
    virtual void onQuovSDKAdClicked();
    /// The user closed the ad.
    virtual void onQuovSDKAdClosed();
    /// The load failed or yielded no bid.
    virtual void onQuovSDKAdLoadFailed(const Error& error);
};

/// The facade: configuration, identity values and the ad-loading flow.
/// Call every member on the main thread; nothing here blocks on I/O except
/// flush(), which waits by design.
class QUOV_EXPORT QuovAd {
public:
    /// The process-wide instance, created on first call (thread-safe), never destroyed.
    static QuovAd& shared();

    /// A fresh, unconfigured facade (IMEI and OAID empty, the rest absent).
    /// The SDK's own flow reads configuration from shared(); this exists for tests.
    QuovAd();
    ~QuovAd();
    QuovAd(const QuovAd&) = delete;
    QuovAd& operator=(const QuovAd&) = delete;

    /// Stores the credentials (absent and empty values as they come), logs them
    /// and logs the device record. Throws std::invalid_argument when the host's
    /// bundle information lacks a value the record needs.
    void setupWithAppId(std::optional<std::string> appId, std::optional<std::string> appKey);
    /// Plain stores, no validation; read by each later request. Absent counts as empty.
    void setIMEI(std::optional<std::string> imei);
    void setOAID(std::optional<std::string> oaid);

    /// Starts one asynchronous load. Before setup it logs and does nothing.
    /// The slot id is accepted and not transmitted. Outcome: only via the delegate.
    void loadAdWithAdId(std::optional<std::string> adId);

    /// The delegate is held weakly and locked afresh at each call.
    std::shared_ptr<QuovAdDelegate> delegate() const { return delegate_.lock(); }
    void setDelegate(std::weak_ptr<QuovAdDelegate> delegate) { delegate_ = std::move(delegate); }

    const std::optional<std::string>& AppId() const { return appId_; }
    const std::optional<std::string>& AppKey() const { return appKey_; }
    const std::optional<std::string>& IMEI() const { return imei_; }
    const std::optional<std::string>& OAID() const { return oaid_; }

    /// How long a load's bid request may take, connecting included, before the
    /// load fails like any transport failure (error 4001). Default 60 s; values
    /// below 1 ms count as 1 ms. Read by each later load.
    void setLoadTimeout(std::chrono::milliseconds timeout) { loadTimeout_ = timeout; }
    std::chrono::milliseconds loadTimeout() const { return loadTimeout_; }

    /// Runs the main loop until the SDK's pending tracking requests (impressions,
    /// clicks and their retries) and a click's URL opening have ended, or the
    /// timeout passes. Call it before exiting so reports are not lost. Blocks the
    /// main thread; returns true when nothing is left in flight.
    bool flush(std::chrono::milliseconds timeout);

    /// Preload, then show. Off (the default): a bid for the SDK's view is shown as
    /// soon as it arrives. On: the load stops before making the view, downloads the
    /// first image, and only then calls onQuovSDKAdLoaded; the host shows the ad
    /// with showAd() when it suits it. Main thread.
    void setPreloadBeforeShow(bool on) { preloadBeforeShow_ = on; }
    bool preloadBeforeShow() const { return preloadBeforeShow_; }
    /// True between onQuovSDKAdLoaded of a preloaded ad and its showAd(). A newer
    /// load that reaches the view path replaces a ready ad that was not shown.
    bool isAdReady() const;
    /// Shows the ready ad (the view, the impression, onQuovSDKAdDisplayed) and
    /// returns true; with nothing ready it does nothing and returns false. A failed
    /// image download still leaves the ad ready: it shows without an image.
    bool showAd();

    /// Fit the ad to the screen: the image box is scaled down, its ratio kept, until
    /// the image and its close button lie inside the screen, whatever the screen's
    /// and the creative's shapes. Off (the default): 85 % of one screen side, the
    /// other side following the creative, so a wide or tall creative can put the close
    /// button off screen. Applies to ad views made afterwards. Main thread.
    void setFitAdToScreen(bool on) { fitAdToScreen_ = on; }
    bool fitAdToScreen() const { return fitAdToScreen_; }

private:
    friend struct QuovAdFlow;
    std::optional<std::string> appId_;
    std::optional<std::string> appKey_;
    std::optional<std::string> imei_;
    std::optional<std::string> oaid_;
    std::weak_ptr<QuovAdDelegate> delegate_;
    std::chrono::milliseconds loadTimeout_{60000};
    // Loads and ad views outlive a facade made with QuovAd(): they check this first.
    std::shared_ptr<const bool> alive_ = std::make_shared<const bool>(true);
    bool preloadBeforeShow_ = false;
    bool fitAdToScreen_ = false;
    std::shared_ptr<QuovPreparedAd> prepared_;  // the newest preloaded bid, ready or not
};

}  // namespace quov

/// Library version, 1.0.
extern "C" QUOV_EXPORT const double QuovSDKVersionNumber;
/// "@(#)PROGRAM:QuovSDK  PROJECT:QuovSDK-1\n"
extern "C" QUOV_EXPORT const unsigned char QuovSDKVersionString[];
