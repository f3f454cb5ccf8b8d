#include "network/BidRequest.h"

#include <quov/QuovAd.h>

#include "network/ResponseRule.h"
#include "platform/Context.h"
#include "platform/device/DevicePlatform.h"
#include "platform/runtime/Log.h"
#include "platform/runtime/Text.h"

#include <stdexcept>

namespace quov::network {
namespace {

using json = nlohmann::json;

// The reachability of this literal host decides "wifi" against "4g"; nothing is sent to it.
constexpr const char* kReachabilityHost = "8.8.8.8";

const std::string& recordText(const DeviceInfoRecord& record, const char* key) {
    const DeviceInfoRecord::Value* v = record.find(key);
    if (!v || !std::holds_alternative<std::string>(*v))
        throw std::invalid_argument(std::string("bid request: the device record has no text \"") + key + "\"");
    return std::get<std::string>(*v);
}

std::string connectionType(std::optional<std::uint32_t> flags) {
    if (!flags) return "4g";
    const bool wifi = (*flags & platform::kReachable) && !(*flags & platform::kConnectionRequired) &&
                      !(*flags & platform::kIsCellular);
    return wifi ? "wifi" : "4g";
}

std::string carrierCode(const std::optional<std::string>& name) {
    if (!name) return "";
    if (*name == "中国移动") return "70120";
    if (*name == "中国联通") return "70123";
    if (*name == "中国电信") return "70121";
    return "";
}

}  // namespace

BidRequestInputs gatherBidRequestInputs() {
    BidRequestInputs in;
    in.record = QVDeviceInfo::deviceInfo();
    in.idfa = QVDeviceInfo::getIDFA();
    const QuovAd& ad = QuovAd::shared();
    in.imei = ad.IMEI();
    in.oaid = ad.OAID();
    in.appId = ad.AppId();
    in.appKey = ad.AppKey();
    in.timeout = ad.loadTimeout();
    auto device = platform::Context::shared().devicePlatform();
    in.trackingEnabled = device->advertisingTrackingEnabled();
    in.reachabilityFlags = device->reachabilityFlags(kReachabilityHost);
    in.carrierName = device->carrierName();
    in.screenScale = device->screenScale();
    in.impressionId = QVRequestHelper::randomStringWithLength(18);
    in.requestId = QVRequestHelper::randomStringWithLength(18);
    return in;
}

json buildBidRequest(const BidRequestInputs& in) {
    const DeviceInfoRecord& r = in.record;
    json app = json::object();
    app["bundle"] = recordText(r, "BundleID");
    app["sdk_ver"] = static_cast<float>(QuovSDKVersionNumber);
    app["ver"] = recordText(r, "AppVersion");

    const std::string& metrics = recordText(r, "DeviceMetrics");
    const auto star = metrics.find('*');
    const std::string first = metrics.substr(0, star);
    // The piece after the first "*" ends at the next one.
    const std::string second =
        star == std::string::npos ? std::string() : metrics.substr(star + 1, metrics.find('*', star + 1) - star - 1);

    json device = json::object();
    device["device_size"] = metrics;
    device["h"] = platform::leadingInteger(first);
    device["w"] = platform::leadingInteger(second);
    device["language"] = recordText(r, "Langauge");
    device["open_udid"] = recordText(r, "DeviceMac");
    device["make"] = "apple";
    device["model"] = recordText(r, "DeviceModelDetail");
    device["os"] = platform::asciiLower(recordText(r, "DeviceOs"));
    device["osv"] = recordText(r, "DeviceOsVersion");
    device["idfa"] = in.idfa;
    device["ppi"] = 440;
    device["pxratio"] = in.screenScale;
    if (in.imei && !in.imei->empty()) device["imei"] = *in.imei;
    if (in.oaid && !in.oaid->empty()) device["oaid"] = *in.oaid;
    device["lmt"] = in.trackingEnabled ? 0 : 1;
    device["devicetype"] = recordText(r, "DeviceModel") == "iPhone" ? "phone" : "ipad";
    device["connectiontype"] = connectionType(in.reachabilityFlags);
    device["carrier"] = carrierCode(in.carrierName);

    json imp = json::object();
    imp["id"] = in.impressionId;
    imp["tagid"] = "0";

    json request = json::object();
    request["id"] = in.requestId;
    request["app"] = std::move(app);
    request["device"] = std::move(device);
    request["imp"] = json::array({std::move(imp)});
    return request;
}

platform::HttpRequest makeBidHttpRequest(const BidRequestInputs& in, const json& document,
                                         const std::string& base) {
    platform::HttpRequest http;
    http.method = "POST";
    http.lane = "bid";
    http.timeout = in.timeout;
    http.crossOriginRedirects = false;
    http.url = base + "/network?appid=" + platform::orNull(in.appId);
    http.headers.emplace_back("Content-Type", "application/json");
    if (in.appKey) http.headers.emplace_back("appkey", *in.appKey);
    // Invalid UTF-8 from a device source is replaced rather than thrown on.
    http.body = document.dump(-1, ' ', false, json::error_handler_t::replace);
    return http;
}

std::vector<QVBidModelPtr> bidsFromResponse(const json* document) {
    std::vector<QVBidModelPtr> bids;
    if (!document || !document->is_object()) return bids;
    auto seatbid = document->find("seatbid");
    if (seatbid == document->end() || !seatbid->is_array() || seatbid->empty()) return bids;
    const json& seat = (*seatbid)[0];
    if (!seat.is_object()) return bids;
    auto bid = seat.find("bid");
    if (bid == seat.end() || !bid->is_array()) return bids;
    bids.reserve(bid->size());
    for (const json& element : *bid)
        if (element.is_object()) bids.push_back(QVBidModel::initWithDict(element));
    return bids;
}

void completeBidRequest(const platform::HttpResponse& response, const LoadCompletion& completion) {
    JsonOutcome outcome = evaluateJsonResponse(response);
    if (!outcome.ok) {
        platform::QVLog("Reqeust failed, response: %@", platform::orNull(outcome.responseText));
        completion({}, QVError::errorWithCode(4001));
        return;
    }
    completion(bidsFromResponse(outcome.body ? &*outcome.body : nullptr), std::nullopt);
}

}  // namespace quov::network
