#pragma once

#include "tools/bid_server/Creatives.h"

#include <nlohmann/json_fwd.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quov::tools {

/// How the server answers; see bidServerUsage() for what each one does.
enum class Scenario { Normal, NoBid, Error, Slow, BadTracker };

/// Which creative a bid carries. Auto: by the request's device "w"/"h" (wider than
/// tall: landscape, taller than wide: portrait), alternating when they are equal or
/// missing.
enum class CreativeChoice { Auto, Portrait, Landscape };

struct BidServerOptions {
    std::string host = "127.0.0.1";
    int port = 0;  // 0: the kernel picks a free one; read it back with port()
    Scenario scenario = Scenario::Normal;
    std::chrono::milliseconds delay{3000};  // the "slow" scenario's wait before answering
    CreativeChoice creative = CreativeChoice::Auto;
    ImageFormat imageFormat = ImageFormat::Png;
    /// Receives the traffic log, one or more whole lines per call, from the server's
    /// worker threads (calls are serialised). Empty: silent.
    std::function<void(const std::string&)> log;
};

/// A development ad server on a real socket: answers bid requests, serves its own
/// creatives and landing page, and counts tracking hits.
///
/// Routes: POST /network?appid=..., GET /creative/<name>, GET /track/view,
/// GET /track/click, GET /landing, GET /stats.
///
/// Threads: start() and stop() from one owning thread; requests are served on the
/// server's own threads; stats() and summary() from any thread.
class BidServer {
public:
    explicit BidServer(BidServerOptions options);
    ~BidServer();  // stops
    BidServer(const BidServer&) = delete;
    BidServer& operator=(const BidServer&) = delete;

    /// Draws the creatives, binds and starts serving; returns once the server accepts
    /// connections. Throws std::runtime_error when the address cannot be bound or
    /// the creatives cannot be made.
    void start();
    /// Stops serving and waits for the server's threads (a slow answer in progress is
    /// cut short). Idempotent; safe without start().
    void stop();

    /// The bound port (after start()), else 0.
    int port() const;
    /// "http://HOST:PORT" for the bound address.
    std::string baseUrl() const;

    /// What GET /stats answers:
    /// {"scenario": NAME,
    ///  "counts": {"/network": N, "/track/view": N, "/track/click": N, "/landing": N,
    ///             "/creative/<name>": N, ...},
    ///  "tracking": [{"endpoint": "/track/view", "params": {...}, "unfilled": [...]}],
    ///  "bid_requests": [{"appid": .., "appkey": .., "body": <JSON or null>}]}
    /// "tracking" keeps the last 1000 hits, "bid_requests" the last 100, oldest first.
    nlohmann::json stats() const;
    /// The counts per endpoint as text lines, for the exit summary.
    std::string summary() const;

    const std::vector<Creative>& creatives() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

std::string scenarioName(Scenario scenario);
std::optional<Scenario> scenarioFromName(const std::string& name);

/// The parsed command line of quov-bid-server.
struct BidServerArguments {
    BidServerOptions options;
    bool help = false;
    bool quiet = false;  // no traffic log; the listening line and the summary stay
    std::string error;   // non-empty: the arguments are bad, this says why
};

/// Parses the arguments after the program name. Accepts "--opt value" and "--opt=value".
BidServerArguments parseBidServerArguments(const std::vector<std::string>& args);

/// The --help text.
std::string bidServerUsage();

}  // namespace quov::tools
