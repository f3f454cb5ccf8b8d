#include "fuzz/FuzzTargets.h"

#include <quov/QVRequestHelper.h>
#include <quov/QuovAd.h>

#include "network/BidRequest.h"
#include "network/BidServerBase.h"
#include "network/ResponseRule.h"
#include "network/Tracking.h"
#include "platform/media/ImageDecoder.h"
#include "platform/http/UrlSyntax.h"
#include "platform/runtime/Text.h"
#include "view/QVAdView.h"

#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace quov::fuzz {

void bidResponse(const std::uint8_t* data, std::size_t size) {
    if (size == 0) return;
    static const char* const kTypes[] = {"application/json", "text/json; charset=utf-8",
                                         "text/javascript", "text/plain", "", "image/gif"};
    static const long kStatus[] = {200, 204, 299, 404, 500};
    platform::HttpResponse response;
    response.transportOk = (data[0] & 0x80) == 0;
    response.contentType = kTypes[data[0] % 6];
    response.status = kStatus[(data[0] >> 3) % 5];
    response.body.assign(reinterpret_cast<const char*>(data + 1), size - 1);

    const network::JsonOutcome outcome = network::evaluateJsonResponse(response);
    if (!outcome.ok) return;
    for (const QVBidModelPtr& bid : network::bidsFromResponse(outcome.body ? &*outcome.body : nullptr)) {
        const QVBidImageModel* first = bid->images().empty() ? nullptr : &bid->images().front();
        for (Size screen : {Size{375, 812}, Size{812, 375}, Size{500, 500}})
            (void)QVAdViewImageBoxSize(screen, first);
        for (const std::string& click : bid->checkClicks().value_or(std::vector<std::string>{}))
            (void)QVRequestHelper::formatURL(click, Size{318.75, 265.625}, Point{10, 20}, 1.5,
                                             Point{12, 25}, 2.5);
    }
}

void image(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    (void)platform::probeImage(bytes);
    (void)platform::decodeImage(bytes, {.maxBytes = 1u << 20, .maxSide = 1024, .maxPixels = 1u << 18});
}

void url(const std::uint8_t* data, std::size_t size) {
    double numbers[6] = {0, 0, 0, 0, 0, 0};
    const std::size_t head = std::min(size, sizeof numbers);
    std::memcpy(numbers, data, head);  // any bit pattern: NaN, infinities, zero sizes
    const std::string text(reinterpret_cast<const char*>(data + head), size - head);
    (void)platform::absoluteURLScheme(text);
    (void)network::percentEncodeQuery(text);
    (void)platform::leadingInteger(text);
    (void)QVRequestHelper::formatURL(text, Size{numbers[0], numbers[1]}, Point{numbers[2], numbers[3]},
                                     numbers[4], Point{numbers[5], numbers[2]}, numbers[1]);
}

namespace {

// Splits off the next piece: up to the first 0x01 byte (dropped), or all that is left.
std::string next(std::string_view& rest) {
    const std::size_t at = rest.find('\x01');
    std::string piece(rest.substr(0, at));
    rest.remove_prefix(at == std::string_view::npos ? rest.size() : at + 1);
    return piece;
}

}  // namespace

void macros(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    QuovAd& ad = QuovAd::shared();
    ad.setIMEI(next(rest));
    ad.setOAID(next(rest));
    const std::string filled = QVRequestHelper::formatURL(std::string(rest));
    (void)QVRequestHelper::formatURL(filled, Size{320, 480}, Point{1e308, -1e308}, 1.7e9, Point{-0.0, 5e-324},
                                     1.8e19);
    (void)network::percentEncodeQuery(filled);
}

void request(const std::uint8_t* data, std::size_t size) {
    std::string_view rest(reinterpret_cast<const char*>(data), size);
    const std::string base = next(rest);
    network::BidRequestInputs in;
    in.appId = next(rest);
    in.appKey = std::string(rest);
    const std::optional<std::string> valid =
        network::bidServerBaseProblem(base) ? std::nullopt : std::optional<std::string>(base);
    if (valid) {
        // A base adds nothing but an origin and a path: no user part, query, fragment,
        // blank or control byte that would change what "/network?appid=" means.
        const bool http = valid->rfind("http://", 0) == 0 || valid->rfind("https://", 0) == 0;
        const std::size_t host = valid->find("://") + 3;
        const std::string authority = valid->substr(host, valid->find('/', host) - host);
        if (!http || authority.find('@') != std::string::npos || valid->find_first_of("?# ") != std::string::npos)
            std::abort();
        for (unsigned char c : *valid)
            if (c < 0x20 || c == 0x7f) std::abort();
    }
    const platform::HttpRequest http =
        network::makeBidHttpRequest(in, nlohmann::json::object(), valid.value_or("http://127.0.0.1"));
    if (http.crossOriginRedirects || http.method != "POST") std::abort();
}

}  // namespace quov::fuzz
