#include <quov/QVBidModel.h>

#include "platform/runtime/Text.h"

#include <nlohmann/json.hpp>

#include <limits>
#include <type_traits>

namespace quov {
namespace {

using json = nlohmann::json;

const json* member(const json& dict, const char* key) {
    if (!dict.is_object()) return nullptr;
    auto it = dict.find(key);
    return it == dict.end() ? nullptr : &*it;
}

// One rule for every key: a value of the wrong JSON type reads as absent.
std::optional<std::string> stringValue(const json& dict, const char* key) {
    const json* v = member(dict, key);
    if (!v || !v->is_string()) return std::nullopt;
    return v->get<std::string>();
}

std::optional<std::vector<std::string>> stringList(const json& dict, const char* key) {
    const json* v = member(dict, key);
    if (!v || !v->is_array()) return std::nullopt;
    std::vector<std::string> out;
    out.reserve(v->size());
    for (const auto& element : *v)
        if (element.is_string()) out.push_back(element.get<std::string>());
    return out;
}

// A number's integer part, or a string's leading decimal integer (after optional
// blanks and a sign), saturating; 0 for anything else.
std::int64_t integerValue(const json& dict, const char* key) {
    const json* v = member(dict, key);
    if (!v) return 0;
    if (v->is_number_integer()) {
        if (v->is_number_unsigned()) {
            auto u = v->get<std::uint64_t>();
            return u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
                       ? std::numeric_limits<std::int64_t>::max()
                       : static_cast<std::int64_t>(u);
        }
        return v->get<std::int64_t>();
    }
    if (v->is_number_float()) return platform::saturatingInt64(v->get<double>());
    if (v->is_string()) return platform::leadingInteger(v->get_ref<const std::string&>());
    return 0;
}

}  // namespace

QVBidImageModel QVBidImageModel::initWithDict(const json& dict) {
    QVBidImageModel image;
    image.url_ = stringValue(dict, "url");
    image.height_ = integerValue(dict, "h");
    image.width_ = integerValue(dict, "w");
    return image;
}

struct QVBidModel::Fields {
    std::optional<std::string> identifier;
    std::int64_t isRendering = 0;
    std::int64_t adType = 0;
    std::optional<std::string> deepLinkURL;
    std::optional<std::string> iOSURL;
    std::optional<std::string> clickURL;
    std::optional<std::vector<std::string>> checkViews;
    std::optional<std::vector<std::string>> checkClicks;
    std::optional<std::string> checkPlayerURL;
    std::vector<QVBidImageModel> images;
};

namespace {

// What an absent field reads as.
const std::optional<std::string> kNoString;
const std::optional<std::vector<std::string>> kNoList;
const std::vector<QVBidImageModel> kNoImages;

bool isUnset(const std::optional<std::string>& v) { return !v; }
bool isUnset(const std::optional<std::vector<std::string>>& v) { return !v; }
bool isUnset(std::int64_t v) { return v == 0; }
bool isUnset(const std::vector<QVBidImageModel>& v) { return v.empty(); }

}  // namespace

QVBidModel::QVBidModel() = default;
QVBidModel::~QVBidModel() = default;
QVBidModel::QVBidModel(QVBidModel&&) noexcept = default;
QVBidModel& QVBidModel::operator=(QVBidModel&&) noexcept = default;

QVBidModel::QVBidModel(const QVBidModel& other)
    : fields_(other.fields_ ? std::make_unique<Fields>(*other.fields_) : nullptr) {}

QVBidModel& QVBidModel::operator=(const QVBidModel& other) {
    if (this != &other) fields_ = other.fields_ ? std::make_unique<Fields>(*other.fields_) : nullptr;
    return *this;
}

QVBidModel::Fields& QVBidModel::fields() {
    if (!fields_) fields_ = std::make_unique<Fields>();
    return *fields_;
}

// Getters read the shared empty value while nothing is set; setters make the
// block only for a value that differs from it.
#define QUOV_BID_FIELD(Type, getter, setter, member, none)                      \
    Type QVBidModel::getter() const { return fields_ ? fields_->member : none; } \
    void QVBidModel::setter(std::remove_cvref_t<Type> v) {                      \
        if (fields_ || !isUnset(v)) fields().member = std::move(v);             \
    }

QUOV_BID_FIELD(const std::optional<std::string>&, identifier, setIdentifier, identifier, kNoString)
QUOV_BID_FIELD(std::int64_t, isRendering, setIsRendering, isRendering, 0)
QUOV_BID_FIELD(std::int64_t, adType, setAdType, adType, 0)
QUOV_BID_FIELD(const std::optional<std::string>&, deepLinkURL, setDeepLinkURL, deepLinkURL, kNoString)
QUOV_BID_FIELD(const std::optional<std::string>&, iOSURL, setIOSURL, iOSURL, kNoString)
QUOV_BID_FIELD(const std::optional<std::string>&, clickURL, setClickURL, clickURL, kNoString)
QUOV_BID_FIELD(const std::optional<std::vector<std::string>>&, checkViews, setCheckViews, checkViews, kNoList)
QUOV_BID_FIELD(const std::optional<std::vector<std::string>>&, checkClicks, setCheckClicks, checkClicks, kNoList)
QUOV_BID_FIELD(const std::optional<std::string>&, checkPlayerURL, setCheckPlayerURL, checkPlayerURL, kNoString)
QUOV_BID_FIELD(const std::vector<QVBidImageModel>&, images, setImages, images, kNoImages)

#undef QUOV_BID_FIELD

std::shared_ptr<QVBidModel> QVBidModel::initWithDict(const json& dict) {
    auto bid = std::make_shared<QVBidModel>();
    bid->setIdentifier(stringValue(dict, "id"));
    bid->setClickURL(stringValue(dict, "click_url"));
    bid->setAdType(integerValue(dict, "adType"));
    bid->setCheckViews(stringList(dict, "check_views"));
    bid->setCheckClicks(stringList(dict, "check_clicks"));
    bid->setCheckPlayerURL(stringValue(dict, "check_player_url"));
    bid->setDeepLinkURL(stringValue(dict, "deeplink_url"));
    bid->setIOSURL(stringValue(dict, "ios_url"));
    if (const json* images = member(dict, "images"); images && images->is_array()) {
        std::vector<QVBidImageModel> kept;
        for (const auto& element : *images)
            if (element.is_object()) kept.push_back(QVBidImageModel::initWithDict(element));
        bid->setImages(std::move(kept));
    }
    return bid;
}

}  // namespace quov
