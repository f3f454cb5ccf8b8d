#include "fuzz/FuzzTargets.h"

#include <quov/QVRequestHelper.h>

#include "network/BidRequest.h"
#include "network/ResponseRule.h"
#include "network/Tracking.h"
#include "platform/media/ImageDecoder.h"
#include "platform/http/UrlSyntax.h"
#include "platform/runtime/Text.h"
#include "view/QVAdView.h"

#include <cstring>
#include <string>

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
    platform::ImageLimits limits;
    limits.maxBytes = 1u << 20;
    limits.maxSide = 1024;
    limits.maxPixels = 1u << 18;
    (void)platform::decodeImage(bytes, limits);
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

}  // namespace quov::fuzz
