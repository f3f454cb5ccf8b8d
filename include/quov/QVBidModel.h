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

    QVBidModel();
    ~QVBidModel();
    QVBidModel(const QVBidModel& other);
    QVBidModel& operator=(const QVBidModel& other);
    QVBidModel(QVBidModel&&) noexcept;
    QVBidModel& operator=(QVBidModel&&) noexcept;

    const std::optional<std::string>& identifier() const;
    void setIdentifier(std::optional<std::string> v);
    /// 1: the host renders the ad itself; any other value: the SDK shows it.
    std::int64_t isRendering() const;
    void setIsRendering(std::int64_t v);
    std::int64_t adType() const;
    void setAdType(std::int64_t v);
    const std::optional<std::string>& deepLinkURL() const;
    void setDeepLinkURL(std::optional<std::string> v);
    const std::optional<std::string>& iOSURL() const;
    void setIOSURL(std::optional<std::string> v);
    const std::optional<std::string>& clickURL() const;
    void setClickURL(std::optional<std::string> v);
    /// Impression tracking URLs, in sending order. Absent reads as empty.
    const std::optional<std::vector<std::string>>& checkViews() const;
    void setCheckViews(std::optional<std::vector<std::string>> v);
    /// Click tracking URLs, in sending order. Absent reads as empty.
    const std::optional<std::vector<std::string>>& checkClicks() const;
    void setCheckClicks(std::optional<std::vector<std::string>> v);
    const std::optional<std::string>& checkPlayerURL() const;
    void setCheckPlayerURL(std::optional<std::string> v);
    const std::vector<QVBidImageModel>& images() const;
    void setImages(std::vector<QVBidImageModel> v);

    /// Sends every impression URL (identity macros filled), up to 3 attempts each.
    /// Fire-and-forget; main thread; returns once the requests are started. A list
    /// of 16 KiB or more is filled and encoded on a worker instead, with the macro
    /// values of this call; its requests start, in list order, from a later drain.
    void reportAdShow() const;

    /// Sends every click URL (identity and touch macros filled), up to 3 attempts
    /// each, started the same way. Size and points in the ad image's points; times
    /// in seconds since 1970.
    void reportAdClickWithAdSize(Size adSize, Point touchDownPoint, double touchDownDate,
                                 Point touchUpPoint, double touchUpDate) const;

private:
    // Every field lives in one block made when the first is set: an answer may hold
    // millions of empty bids, and each must cost a pointer, not every field.
    struct Fields;
    Fields& fields();
    std::unique_ptr<Fields> fields_;
};

using QVBidModelPtr = std::shared_ptr<QVBidModel>;

}  // namespace quov
