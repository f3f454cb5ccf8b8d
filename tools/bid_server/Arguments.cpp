#include "tools/bid_server/BidServer.h"

#include <charconv>

namespace quov::tools {
namespace {

std::optional<long long> parseInteger(const std::string& text, long long min, long long max) {
    long long value = 0;
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, value);
    if (text.empty() || ec != std::errc() || ptr != end || value < min || value > max) return std::nullopt;
    return value;
}

}  // namespace

BidServerArguments parseBidServerArguments(const std::vector<std::string>& args) {
    BidServerArguments out;
    auto fail = [&out](std::string message) {
        out.error = std::move(message);
        return out;
    };

    for (std::size_t i = 0; i < args.size(); ++i) {
        std::string name = args[i];
        std::optional<std::string> inlineValue;
        if (auto eq = name.find('='); name.rfind("--", 0) == 0 && eq != std::string::npos) {
            inlineValue = name.substr(eq + 1);
            name.resize(eq);
        }
        auto flag = [&]() {
            return !inlineValue;
        };
        // fetches the option's value from "--opt=value" or the next argument
        auto value = [&]() -> std::optional<std::string> {
            if (inlineValue) return inlineValue;
            if (i + 1 < args.size()) return args[++i];
            return std::nullopt;
        };

        if (name == "--help" || name == "-h") {
            if (!flag()) return fail(name + " takes no value");
            out.help = true;
        } else if (name == "--quiet") {
            if (!flag()) return fail(name + " takes no value");
            out.quiet = true;
        } else if (name == "--host") {
            auto v = value();
            if (!v || v->empty()) return fail("--host needs an address");
            out.options.host = *v;
        } else if (name == "--port") {
            auto v = value();
            if (!v) return fail("--port needs a number");
            auto n = parseInteger(*v, 0, 65535);
            if (!n) return fail("--port must be a number from 0 to 65535, not \"" + *v + "\"");
            out.options.port = static_cast<int>(*n);
        } else if (name == "--scenario") {
            auto v = value();
            if (!v) return fail("--scenario needs a name");
            auto s = scenarioFromName(*v);
            if (!s) return fail("unknown scenario \"" + *v + "\" (normal, nobid, error, slow, bad-tracker)");
            out.options.scenario = *s;
        } else if (name == "--delay-ms") {
            auto v = value();
            if (!v) return fail("--delay-ms needs a number");
            auto n = parseInteger(*v, 0, 600000);
            if (!n) return fail("--delay-ms must be a number of milliseconds from 0 to 600000, not \"" + *v + "\"");
            out.options.delay = std::chrono::milliseconds(*n);
        } else if (name == "--creative") {
            auto v = value();
            if (v == "auto") out.options.creative = CreativeChoice::Auto;
            else if (v == "portrait") out.options.creative = CreativeChoice::Portrait;
            else if (v == "landscape") out.options.creative = CreativeChoice::Landscape;
            else return fail("--creative must be auto, portrait or landscape");
        } else if (name == "--image-format") {
            auto v = value();
            if (v == "png") out.options.imageFormat = ImageFormat::Png;
            else if (v == "jpeg" || v == "jpg") out.options.imageFormat = ImageFormat::Jpeg;
            else return fail("--image-format must be png or jpeg");
        } else {
            return fail("unknown argument \"" + args[i] + "\"");
        }
    }
    return out;
}

std::string bidServerUsage() {
    return R"(usage: quov-bid-server [--host HOST] [--port N] [--scenario NAME] [--delay-ms N]
                       [--creative auto|portrait|landscape] [--image-format png|jpeg]
                       [--quiet] [--help]

A sample ad server for developing and demonstrating QuovSDK. It answers the
SDK's bid requests, serves generated creatives and a landing page, and counts
the impression and click trackers it receives.

options:
  --host HOST          address to listen on (default 127.0.0.1)
  --port N             port to listen on; 0 picks a free one (default 0)
  --scenario NAME      how to answer bid requests (default normal), see below
  --delay-ms N         how long the slow scenario waits before answering (default 3000)
  --creative WHICH     auto (by the request's device w/h), portrait or landscape
  --image-format FMT   png or jpeg creatives in the bids (default png)
  --quiet              do not print the traffic
  --help               print this text

scenarios:
  normal        one bid: a generated creative, an impression tracker, a click
                tracker carrying every macro, a quovdemo:// deep link and
                landing pages on this server
  nobid         answers {} (no bids)
  error         answers 500 with a text body
  slow          answers like normal after --delay-ms
  bad-tracker   like normal, but the trackers answer 200 with a 1x1 GIF, which
                the SDK counts as a failure: three attempts per address

routes:
  POST /network?appid=ID   the bid endpoint
  GET  /creative/NAME      portrait.png portrait.jpg landscape.png landscape.jpg
  GET  /track/view         impression tracker (204)
  GET  /track/click        click tracker (204)
  GET  /landing            landing page
  GET  /stats              counts and recent hits as JSON

Standard output carries one line, "listening on http://HOST:PORT", flushed at
once. Requests, tracker hits (with their filled macros) and the summary printed
on SIGINT or SIGTERM go to standard error.
)";
}

}  // namespace quov::tools
