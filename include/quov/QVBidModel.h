#pragma once

#include <quov/Export.h>
#include <quov/Geometry.h>

#include <nlohmann/json_fwd.hpp>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quov {

/// One image of a bid. A plain value.
class QUOV_EXPORT QVBidImageModel {
public:
    /// Reads "url", "h" and "w". A value of an unexpected JSON type reads as absent
    /// (0 for the sizes); a non-object reads as an image with nothing set.
    static QVBidImageModel initWithDict(const nlohmann::json& dict);

    const std::optional<std::string>& url() const { return url_; }
    void setUrl(std::optional<std::string> url) { url_ = std::move(url); }
    std::int64_t height() const { return height_; }
    void setHeight(std::int64_t height) { height_ = height; }
    std::int64_t width() const { return width_; }
    void setWidth(std::int64_t width) { width_ = width; }

private:
    std::optional<std::string> url_;
    std::int64_t height_ = 0;
    std::int64_t width_ = 0;
};

/// One ad as the bid server offers it. Shared between the SDK and the host
/// (std::shared_ptr); the SDK never changes a bid after parsing it. Use on the
/// main thread.
class QUOV_EXPORT QVBidModel {
public:
    /// Builds a bid from one element of the response's "bid" array.
    ///
    /// Strings ("id", "click_url", "check_player_url", "deeplink_url", "ios_url")
    /// are kept only when they are JSON strings; any other type reads as absent.
    /// Lists ("check_views", "check_clicks") are kept when they are arrays, with
    /// only their string elements. "adType" takes a number's integer part or a
    /// string's leading decimal integer, else 0. "images" keeps the object elements
    /// of an array, in order; anything else gives an empty list. `isRendering` is
    /// never read from JSON: it starts at 0.
    static std::shared_ptr<QVBidModel> initWithDict(const nlohmann::json& dict);

    const std::optional<std::string>& identifier() const { return identifier_; }
    void setIdentifier(std::optional<std::string> v) { identifier_ = std::move(v); }
    /// 1: the host renders the ad itself; any other value: the SDK shows it.
    std::int64_t isRendering() const { return isRendering_; }
    void setIsRendering(std::int64_t v) { isRendering_ = v; }
    std::int64_t adType() const { return adType_; }
    void setAdType(std::int64_t v) { adType_ = v; }
    const std::optional<std::string>& deepLinkURL() const { return deepLinkURL_; }
    void setDeepLinkURL(std::optional<std::string> v) { deepLinkURL_ = std::move(v); }
    const std::optional<std::string>& iOSURL() const { return iOSURL_; }
    void setIOSURL(std::optional<std::string> v) { iOSURL_ = std::move(v); }
    const std::optional<std::string>& clickURL() const { return clickURL_; }
    void setClickURL(std::optional<std::string> v) { clickURL_ = std::move(v); }
    /// Impression tracking URLs, in sending order. Absent reads as empty.
    const std::optional<std::vector<std::string>>& checkViews() const { return checkViews_; }
    void setCheckViews(std::optional<std::vector<std::string>> v) { checkViews_ = std::move(v); }
    /// Click tracking URLs, in sending order. Absent reads as empty.
    const std::optional<std::vector<std::string>>& checkClicks() const { return checkClicks_; }
    void setCheckClicks(std::optional<std::vector<std::string>> v) { checkClicks_ = std::move(v); }
    const std::optional<std::string>& checkPlayerURL() const { return checkPlayerURL_; }
    void setCheckPlayerURL(std::optional<std::string> v) { checkPlayerURL_ = std::move(v); }
    const std::vector<QVBidImageModel>& images() const { return images_; }
    void setImages(std::vector<QVBidImageModel> v) { images_ = std::move(v); }

    /// Sends every impression URL (identity macros filled), up to 3 attempts each.
    /// Fire-and-forget; main thread; returns once the requests are started.
    void reportAdShow() const;

    /// Sends every click URL (identity and touch macros filled), up to 3 attempts
    /// each. Size and points in the ad image's points; times in seconds since 1970.
    void reportAdClickWithAdSize(Size adSize, Point touchDownPoint, double touchDownDate,
                                 Point touchUpPoint, double touchUpDate) const;

private:
    std::optional<std::string> identifier_;
    std::int64_t isRendering_ = 0;
    std::int64_t adType_ = 0;
    std::optional<std::string> deepLinkURL_;
    std::optional<std::string> iOSURL_;
    std::optional<std::string> clickURL_;
    std::optional<std::vector<std::string>> checkViews_;
    std::optional<std::vector<std::string>> checkClicks_;
    std::optional<std::string> checkPlayerURL_;
    std::vector<QVBidImageModel> images_;
};

using QVBidModelPtr = std::shared_ptr<QVBidModel>;

}  // namespace quov
