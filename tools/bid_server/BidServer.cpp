#include "tools/bid_server/BidServer.h"

#include <httplib.h>
#include <nlohmann/json.hpp>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <sys/socket.h>
#include <map>
#include <mutex>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace quov::tools {
namespace {

using nlohmann::json;

constexpr std::size_t kMaxTrackingHits = 1000;
constexpr std::size_t kMaxBidRequests = 100;
constexpr std::size_t kMaxBodyBytes = 4 * 1024 * 1024;
constexpr std::size_t kMaxLoggedRawBody = 2000;

const char* const kErrorBody = "sample bid server: the error scenario answers 500 to every bid request";

// The smallest GIF there is: one transparent pixel.
const unsigned char kPixelGif[] = {0x47, 0x49, 0x46, 0x38, 0x39, 0x61, 0x01, 0x00, 0x01, 0x00, 0x80,
                                   0x00, 0x00, 0x00, 0x00, 0x00, 0xff, 0xff, 0xff, 0x21, 0xf9, 0x04,
                                   0x01, 0x00, 0x00, 0x00, 0x00, 0x2c, 0x00, 0x00, 0x00, 0x00, 0x01,
                                   0x00, 0x01, 0x00, 0x00, 0x02, 0x02, 0x44, 0x01, 0x00, 0x3b};

// Query names on the trackers, one per macro; the click tracker carries all fifteen.
const char* const kIdentityMacros[][2] = {
    {"imei", "__IMEI__"}, {"oaid", "__OAID__"}, {"idfa", "__IDFA__"}, {"mac", "__MAC__"}, {"stms", "__STMS__"}};
const char* const kTouchMacros[][2] = {
    {"abs_down_x", "__ABS_DOWN_X__"}, {"abs_down_y", "__ABS_DOWN_Y__"},
    {"abs_up_x", "__ABS_UP_X__"},     {"abs_up_y", "__ABS_UP_Y__"},
    {"rel_down_x", "__REL_DOWN_X__"}, {"rel_down_y", "__REL_DOWN_Y__"},
    {"rel_up_x", "__REL_UP_X__"},     {"rel_up_y", "__REL_UP_Y__"},
    {"click_down_time", "__CLICK_DOWN_TIME__"}, {"click_up_time", "__CLICK_UP_TIME__"}};

// Network text may hold invalid UTF-8; it must never make dump() throw.
std::string dumpJson(const json& j, int indent = -1) {
    return j.dump(indent, ' ', false, json::error_handler_t::replace);
}

bool isHostHeaderSafe(const std::string& host) {
    if (host.empty() || host.size() > 255) return false;
    for (unsigned char c : host)
        if (!(std::isalnum(c) || c == '.' || c == '-' || c == ':' || c == '[' || c == ']')) return false;
    return true;
}

// The HTTP library files the connection's addresses among the headers; they are not the client's.
bool isConnectionPseudoHeader(const std::string& name) {
    return name == "LOCAL_ADDR" || name == "LOCAL_PORT" || name == "REMOTE_ADDR" || name == "REMOTE_PORT";
}

std::string indentLines(const std::string& text, const std::string& prefix) {
    std::string out;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) out += prefix + line + "\n";
    return out;
}

}  // namespace

std::string scenarioName(Scenario scenario) {
    switch (scenario) {
        case Scenario::Normal: return "normal";
        case Scenario::NoBid: return "nobid";
        case Scenario::Error: return "error";
        case Scenario::Slow: return "slow";
        case Scenario::BadTracker: return "bad-tracker";
    }
    return "normal";
}

std::optional<Scenario> scenarioFromName(const std::string& name) {
    for (Scenario s : {Scenario::Normal, Scenario::NoBid, Scenario::Error, Scenario::Slow, Scenario::BadTracker})
        if (scenarioName(s) == name) return s;
    return std::nullopt;
}

struct BidServer::Impl {
    explicit Impl(BidServerOptions o) : options(std::move(o)) {}

    BidServerOptions options;
    std::vector<Creative> creatives;
    httplib::Server server;
    std::thread thread;
    std::atomic<bool> listenReturned{false};
    int port = 0;

    std::atomic<std::uint64_t> bidsServed{0};
    std::atomic<std::uint64_t> alternation{0};

    mutable std::mutex statsMutex;
    std::map<std::string, std::uint64_t> counts;
    std::deque<json> trackingHits;
    std::deque<json> bidRequests;

    std::mutex logMutex;

    std::mutex stopMutex;
    std::condition_variable stopCv;
    bool stopping = false;

    void log(const std::string& text) {
        if (!options.log) return;
        std::lock_guard lock(logMutex);
        options.log(text);
    }

    std::uint64_t count(const std::string& endpoint) {
        std::lock_guard lock(statsMutex);
        return ++counts[endpoint];
    }

    std::string hostForUrls() const {
        return host().find(':') != std::string::npos ? "[" + host() + "]" : host();
    }
    const std::string& host() const { return options.host; }
    std::string ownBase() const { return "http://" + hostForUrls() + ":" + std::to_string(port); }

    // Addresses in a bid point back the way the client reached us.
    std::string selfBase(const httplib::Request& req) const {
        std::string h = req.get_header_value("Host");
        return isHostHeaderSafe(h) ? "http://" + h : ownBase();
    }

    const Creative* findCreative(Orientation o, ImageFormat f) const {
        for (const auto& c : creatives)
            if (c.orientation == o && c.format == f) return &c;
        return nullptr;
    }

    Orientation chooseOrientation(const json& body) {
        switch (options.creative) {
            case CreativeChoice::Portrait: return Orientation::Portrait;
            case CreativeChoice::Landscape: return Orientation::Landscape;
            case CreativeChoice::Auto: break;
        }
        const json* device = body.is_object() && body.contains("device") ? &body["device"] : nullptr;
        if (device && device->is_object()) {
            auto w = device->find("w");
            auto h = device->find("h");
            if (w != device->end() && h != device->end() && w->is_number() && h->is_number()) {
                double dw = w->get<double>(), dh = h->get<double>();
                if (dw > dh) return Orientation::Landscape;
                if (dh > dw) return Orientation::Portrait;
            }
        }
        return alternation++ % 2 ? Orientation::Landscape : Orientation::Portrait;
    }

    json makeBidResponse(const json& request, const std::string& base, const Creative& creative) {
        std::uint64_t n = ++bidsServed;
        std::string bidId = "bid-" + std::to_string(n);

        std::string identity;
        for (const auto& m : kIdentityMacros) identity += std::string("&") + m[0] + "=" + m[1];
        std::string touch;
        for (const auto& m : kTouchMacros) touch += std::string("&") + m[0] + "=" + m[1];

        json bid = {
            {"id", bidId},
            {"adType", 1},
            {"click_url", base + "/landing?via=click_url&bid=" + bidId},
            {"deeplink_url", "quovdemo://ad/" + bidId},
            {"ios_url", base + "/landing?via=ios_url&bid=" + bidId},
            {"check_views", json::array({base + "/track/view?bid=" + bidId + identity})},
            {"check_clicks", json::array({base + "/track/click?bid=" + bidId + identity + touch})},
            {"images", json::array({{{"url", base + "/creative/" + creative.name},
                                     {"w", creative.width},
                                     {"h", creative.height}}})},
        };
        auto reqId = request.is_object() ? request.find("id") : request.end();
        json id = request.is_object() && reqId != request.end() && reqId->is_string() ? *reqId
                                                                                      : json("resp-" + std::to_string(n));
        return {{"id", id}, {"seatbid", json::array({{{"bid", json::array({bid})}}})}};
    }

    void logRequest(const httplib::Request& req, std::uint64_t n, const json* body) {
        std::string text = "--> " + req.method + " " + req.target + " #" + std::to_string(n) + " from " +
                           req.remote_addr + ":" + std::to_string(req.remote_port) + "\n";
        for (const auto& [name, value] : req.headers)
            if (!isConnectionPseudoHeader(name)) text += "    " + name + ": " + value + "\n";
        if (body) {
            text += indentLines(dumpJson(*body, 2), "    ");
        } else if (!req.body.empty()) {
            text += "    (body is not JSON, " + std::to_string(req.body.size()) + " bytes)\n";
            text += indentLines(req.body.substr(0, kMaxLoggedRawBody), "    ");
        }
        log(text);
    }

    // Waits for the delay; false when the server is stopping first.
    bool waitDelay() {
        std::unique_lock lock(stopMutex);
        return !stopCv.wait_for(lock, options.delay, [this] { return stopping; });
    }

    void handleBidRequest(const httplib::Request& req, httplib::Response& res) {
        std::uint64_t n = count("/network");
        json body = json::parse(req.body, nullptr, false);
        bool isJson = !body.is_discarded();
        logRequest(req, n, isJson ? &body : nullptr);
        {
            std::lock_guard lock(statsMutex);
            bidRequests.push_back({{"appid", req.has_param("appid") ? json(req.get_param_value("appid")) : json()},
                                   {"appkey", req.has_header("appkey") ? json(req.get_header_value("appkey")) : json()},
                                   {"body", isJson ? body : json()}});
            if (bidRequests.size() > kMaxBidRequests) bidRequests.pop_front();
        }

        auto answer = [&](int status, const std::string& content, const char* type, const std::string& note) {
            res.status = status;
            res.set_content(content, type);
            log("<-- " + std::to_string(status) + " " + note + "\n");
        };

        if (options.scenario == Scenario::Error) return answer(500, kErrorBody, "text/plain", "error scenario");
        if (!req.has_param("appid")) return answer(400, "missing query parameter appid\n", "text/plain", "no appid");
        if (!body.is_object()) return answer(400, "the body is not a JSON object\n", "text/plain", "bad body");
        if (options.scenario == Scenario::Slow && !waitDelay())
            return answer(503, "shutting down\n", "text/plain", "stopped while slow");
        if (options.scenario == Scenario::NoBid) return answer(200, "{}", "application/json", "no bid");

        const Creative* creative = findCreative(chooseOrientation(body), options.imageFormat);
        json response = makeBidResponse(body, selfBase(req), *creative);
        const json& bid = response["seatbid"][0]["bid"][0];
        answer(200, dumpJson(response), "application/json",
               bid["id"].get<std::string>() + " with " + creative->name + " " + std::to_string(creative->width) +
                   "x" + std::to_string(creative->height));
    }

    void handleTracking(const std::string& endpoint, const httplib::Request& req, httplib::Response& res) {
        std::uint64_t n = count(endpoint);
        static const std::regex macro("__[A-Z][A-Z_]*__");
        json params = json::object();
        json unfilled = json::array();
        std::string text = "--> " + req.method + " " + endpoint + " #" + std::to_string(n) + " from " +
                           req.remote_addr + ":" + std::to_string(req.remote_port) + "\n";
        for (const auto& [name, value] : req.params) {
            params[name] = value;
            text += "    " + name + " = " + value + "\n";
            if (std::regex_search(value, macro)) unfilled.push_back(name);
        }
        if (!unfilled.empty()) {
            text += "    unfilled:";
            for (const auto& u : unfilled) text += " " + u.get<std::string>();
            text += "\n";
        }
        {
            std::lock_guard lock(statsMutex);
            trackingHits.push_back({{"endpoint", endpoint}, {"params", params}, {"unfilled", unfilled}});
            if (trackingHits.size() > kMaxTrackingHits) trackingHits.pop_front();
        }
        if (options.scenario == Scenario::BadTracker) {
            res.status = 200;
            res.set_content(reinterpret_cast<const char*>(kPixelGif), sizeof kPixelGif, "image/gif");
            text += "<-- 200 image/gif (bad-tracker)\n";
        } else {
            res.status = 204;
            text += "<-- 204\n";
        }
        log(text);
    }

    void installRoutes() {
        server.Post("/network", [this](const httplib::Request& req, httplib::Response& res) {
            handleBidRequest(req, res);
        });
        server.Get("/track/view", [this](const httplib::Request& req, httplib::Response& res) {
            handleTracking("/track/view", req, res);
        });
        server.Get("/track/click", [this](const httplib::Request& req, httplib::Response& res) {
            handleTracking("/track/click", req, res);
        });
        server.Get("/creative/([^/]+)", [this](const httplib::Request& req, httplib::Response& res) {
            std::string name = req.matches[1];
            for (const auto& c : creatives) {
                if (c.name != name) continue;
                count("/creative/" + name);
                res.set_content(c.bytes, c.contentType.c_str());
                log("--> GET /creative/" + name + " <-- 200 " + c.contentType + " " +
                    std::to_string(c.bytes.size()) + " bytes\n");
                return;
            }
            res.status = 404;
            res.set_content("no such creative\n", "text/plain");
        });
        server.Get("/landing", [this](const httplib::Request& req, httplib::Response& res) {
            count("/landing");
            log("--> GET " + req.target + " <-- 200 landing page\n");
            res.set_content(
                "<!doctype html>\n<html><head><meta charset=\"utf-8\"><title>Quov sample landing page</title></head>\n"
                "<body style=\"font-family:sans-serif;text-align:center;padding-top:20%\">\n"
                "<h1>Thanks for tapping the ad</h1>\n"
                "<p>This page is served by quov-bid-server, the QuovSDK sample bid server.</p>\n"
                "</body></html>\n",
                "text/html; charset=utf-8");
        });
        server.Get("/stats", [this](const httplib::Request&, httplib::Response& res) {
            res.set_content(dumpJson(snapshot(), 2), "application/json");
        });
        server.set_logger([this](const httplib::Request& req, const httplib::Response& res) {
            if (res.status == 404 || res.status == 413)
                log("--> " + req.method + " " + req.target + " <-- " + std::to_string(res.status) + "\n");
        });
    }

    json snapshot() const {
        std::lock_guard lock(statsMutex);
        json c = json::object();
        for (const auto& [endpoint, n] : counts) c[endpoint] = n;
        return {{"scenario", scenarioName(options.scenario)},
                {"counts", c},
                {"tracking", json(trackingHits)},
                {"bid_requests", json(bidRequests)}};
    }
};

BidServer::BidServer(BidServerOptions options) : impl_(std::make_unique<Impl>(std::move(options))) {}

BidServer::~BidServer() { stop(); }

void BidServer::start() {
    Impl& d = *impl_;
    if (d.thread.joinable()) throw std::logic_error("BidServer::start called twice");
    d.creatives = makeCreatives();
    {
        std::lock_guard lock(d.statsMutex);
        for (const char* e : {"/network", "/track/view", "/track/click", "/landing"}) d.counts[e] = 0;
        for (const auto& c : d.creatives) d.counts["/creative/" + c.name] = 0;
    }
    d.server.set_tcp_nodelay(true);
    // SO_REUSEADDR only: the library's default adds SO_REUSEPORT, which would let a
    // second server share the port silently instead of failing to bind
    d.server.set_socket_options([](int sock) {
        int yes = 1;
        setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    // bounds how long stop() waits for a client that keeps an idle connection open
    d.server.set_keep_alive_timeout(2);
    d.server.set_payload_max_length(kMaxBodyBytes);
    d.installRoutes();

    std::string where = d.options.host + ":" + std::to_string(d.options.port);
    errno = 0;
    if (d.options.port == 0) {
        d.port = d.server.bind_to_any_port(d.options.host);
        if (d.port <= 0) d.port = 0;
    } else if (d.options.port > 0 && d.options.port <= 65535 && d.server.bind_to_port(d.options.host, d.options.port)) {
        d.port = d.options.port;
    }
    if (d.port == 0) {
        int err = errno;
        throw std::runtime_error("cannot listen on " + where + (err ? std::string(": ") + std::strerror(err) : ""));
    }

    d.thread = std::thread([&d] {
        d.server.listen_after_bind();
        d.listenReturned = true;
    });
    // stop() only takes effect once the accept loop runs, so wait for it here
    while (!d.server.is_running() && !d.listenReturned) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (d.listenReturned) {
        d.thread.join();
        d.port = 0;
        throw std::runtime_error("the server on " + where + " stopped as soon as it started");
    }
}

void BidServer::stop() {
    Impl& d = *impl_;
    if (!d.thread.joinable()) return;
    {
        std::lock_guard lock(d.stopMutex);
        d.stopping = true;
    }
    d.stopCv.notify_all();
    d.server.stop();
    d.thread.join();
}

int BidServer::port() const { return impl_->port; }

std::string BidServer::baseUrl() const { return impl_->ownBase(); }

nlohmann::json BidServer::stats() const { return impl_->snapshot(); }

std::string BidServer::summary() const {
    json c = impl_->snapshot()["counts"];
    std::string out = "requests per endpoint:\n";
    for (const auto& [endpoint, n] : c.items()) {
        std::string pad(endpoint.size() < 26 ? 26 - endpoint.size() : 1, ' ');
        out += "  " + endpoint + pad + std::to_string(n.get<std::uint64_t>()) + "\n";
    }
    return out;
}

const std::vector<Creative>& BidServer::creatives() const { return impl_->creatives; }

}  // namespace quov::tools
