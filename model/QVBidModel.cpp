#include <quov/QVBidModel.h>

#include "platform/runtime/Text.h"

#include <nlohmann/json.hpp>

#include <limits>

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

std::shared_ptr<QVBidModel> QVBidModel::initWithDict(const json& dict) {
    auto bid = std::make_shared<QVBidModel>();
    bid->identifier_ = stringValue(dict, "id");
    bid->clickURL_ = stringValue(dict, "click_url");
    bid->adType_ = integerValue(dict, "adType");
    bid->checkViews_ = stringList(dict, "check_views");
    bid->checkClicks_ = stringList(dict, "check_clicks");
    bid->checkPlayerURL_ = stringValue(dict, "check_player_url");
    bid->deepLinkURL_ = stringValue(dict, "deeplink_url");
    bid->iOSURL_ = stringValue(dict, "ios_url");
    if (const json* images = member(dict, "images"); images && images->is_array()) {
        for (const auto& element : *images)
            if (element.is_object()) bid->images_.push_back(QVBidImageModel::initWithDict(element));
    }
    return bid;
}

}  // namespace quov
