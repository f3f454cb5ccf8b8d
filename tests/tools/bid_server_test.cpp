#include "tools/bid_server/BidServer.h"

#include <quov/QVBidModel.h>

#include <SDL.h>
#include <SDL_image.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <future>

namespace quov::tools {
namespace {

using nlohmann::json;

const char* const kIdentityMacros[] = {"__IMEI__", "__OAID__", "__IDFA__", "__MAC__", "__STMS__"};
const char* const kTouchMacros[] = {"__ABS_DOWN_X__",  "__ABS_DOWN_Y__",  "__ABS_UP_X__",        "__ABS_UP_Y__",
                                    "__REL_DOWN_X__",  "__REL_DOWN_Y__",  "__REL_UP_X__",         "__REL_UP_Y__",
                                    "__CLICK_DOWN_TIME__", "__CLICK_UP_TIME__"};

// A bid request shaped like the SDK's: "h" is the longer side.
json sdkRequest(json device = {{"w", 640}, {"h", 960}}) {
    device["device_size"] = "960*640";
    device["make"] = "apple";
    return {{"id", "req0123456789abcde"},
            {"app", {{"bundle", "org.example.host"}, {"sdk_ver", 1}, {"ver", "1.0"}}},
            {"device", device},
            {"imp", json::array({{{"id", "imp0123456789abcde"}, {"tagid", "0"}}})}};
}

std::string replaceAll(std::string s, const std::string& from, const std::string& to) {
    for (auto pos = s.find(from); pos != std::string::npos; pos = s.find(from, pos + to.size()))
        s.replace(pos, from.size(), to);
    return s;
}

class BidServerTest : public ::testing::Test {
protected:
    void start(BidServerOptions options = {}) {
        server_ = std::make_unique<BidServer>(std::move(options));
        server_->start();
        client_ = std::make_unique<httplib::Client>("127.0.0.1", server_->port());
    }

    httplib::Result bid(const json& body = sdkRequest()) {
        return client_->Post("/network?appid=app-1", {{"appkey", "key-1"}}, body.dump(), "application/json");
    }

    // The one bid of a normal answer, as the SDK would parse it.
    std::shared_ptr<QVBidModel> firstBid(const json& body = sdkRequest()) {
        auto res = bid(body);
        if (!res || res->status != 200) return nullptr;
        EXPECT_EQ(res->get_header_value("Content-Type"), "application/json");
        return QVBidModel::initWithDict(json::parse(res->body)["seatbid"][0]["bid"][0]);
    }

    json stats() {
        auto res = client_->Get("/stats");
        EXPECT_TRUE(res);
        return res ? json::parse(res->body) : json();
    }

    std::unique_ptr<BidServer> server_;
    std::unique_ptr<httplib::Client> client_;
};

TEST_F(BidServerTest, BidAnswerReadsBackThroughTheSdkModelWithEveryMacroInPlace) {
    start();
    const std::string base = server_->baseUrl();
    ASSERT_EQ(base, "http://127.0.0.1:" + std::to_string(server_->port()));
    auto res = bid();
    ASSERT_TRUE(res);
    json doc = json::parse(res->body);
    EXPECT_EQ(doc["id"], "req0123456789abcde");
    ASSERT_EQ(doc["seatbid"].size(), 1u);
    ASSERT_EQ(doc["seatbid"][0]["bid"].size(), 1u);

    auto b = QVBidModel::initWithDict(doc["seatbid"][0]["bid"][0]);
    ASSERT_TRUE(b->identifier());
    EXPECT_EQ(b->deepLinkURL(), std::optional<std::string>("quovdemo://ad/" + *b->identifier()));
    ASSERT_TRUE(b->iOSURL() && b->clickURL());
    EXPECT_EQ(b->iOSURL()->rfind(base + "/landing?", 0), 0u);
    EXPECT_EQ(b->clickURL()->rfind(base + "/landing?", 0), 0u);
    EXPECT_NE(*b->iOSURL(), *b->clickURL()) << "the opener must be able to tell which one it got";

    ASSERT_TRUE(b->checkViews() && b->checkViews()->size() == 1u);
    ASSERT_TRUE(b->checkClicks() && b->checkClicks()->size() == 1u);
    const std::string& view = b->checkViews()->front();
    const std::string& click = b->checkClicks()->front();
    EXPECT_EQ(view.rfind(base + "/track/view?", 0), 0u);
    EXPECT_EQ(click.rfind(base + "/track/click?", 0), 0u);
    for (const char* m : kIdentityMacros) {
        EXPECT_NE(view.find(m), std::string::npos) << m;
        EXPECT_NE(click.find(m), std::string::npos) << m;
    }
    for (const char* m : kTouchMacros) {
        EXPECT_EQ(view.find(m), std::string::npos) << m;
        EXPECT_NE(click.find(m), std::string::npos) << m;
    }

    ASSERT_EQ(b->images().size(), 1u);
    EXPECT_EQ(b->images()[0].url(), std::optional<std::string>(base + "/creative/portrait.png"));
    EXPECT_EQ(b->images()[0].width(), 600);
    EXPECT_EQ(b->images()[0].height(), 900);

    json s = stats();
    EXPECT_EQ(s["counts"]["/network"], 1);
    EXPECT_EQ(s["bid_requests"],
              json::array({{{"appid", "app-1"}, {"appkey", "key-1"}, {"body", sdkRequest()}}}));
}

TEST_F(BidServerTest, CreativeFollowsTheDeviceShapeUnlessForcedAndAlternatesWithoutOne) {
    struct Case {
        json device;
        CreativeChoice choice;
        ImageFormat format;
        const char* first;
        const char* second;  // of a second identical request
    };
    const json tall = {{"w", 640}, {"h", 960}}, wide = {{"w", 1024}, {"h", 768}};
    const Case cases[] = {
        {tall, CreativeChoice::Auto, ImageFormat::Png, "portrait.png", "portrait.png"},
        {wide, CreativeChoice::Auto, ImageFormat::Jpeg, "landscape.jpg", "landscape.jpg"},
        {wide, CreativeChoice::Portrait, ImageFormat::Png, "portrait.png", "portrait.png"},
        {tall, CreativeChoice::Landscape, ImageFormat::Png, "landscape.png", "landscape.png"},
        {json::object(), CreativeChoice::Auto, ImageFormat::Png, "portrait.png", "landscape.png"},
        {{{"w", "640"}, {"h", "960"}}, CreativeChoice::Auto, ImageFormat::Png, "portrait.png", "landscape.png"},
        {{{"w", 500}, {"h", 500}}, CreativeChoice::Auto, ImageFormat::Jpeg, "portrait.jpg", "landscape.jpg"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.device.dump() + " " + c.first);
        BidServerOptions o;
        o.creative = c.choice;
        o.imageFormat = c.format;
        start(o);
        for (const char* expected : {c.first, c.second}) {
            auto b = firstBid(sdkRequest(c.device));
            ASSERT_TRUE(b && b->images().size() == 1u);
            EXPECT_EQ(b->images()[0].url(), std::optional<std::string>(server_->baseUrl() + "/creative/" + expected));
        }
    }
}

TEST_F(BidServerTest, EveryCreativeDecodesAtItsAdvertisedSizeAndColour) {
    start();
    IMG_Init(IMG_INIT_PNG | IMG_INIT_JPG);
    ASSERT_EQ(server_->creatives().size(), 4u);
    for (const auto& c : server_->creatives()) {
        SCOPED_TRACE(c.name);
        auto res = client_->Get(("/creative/" + c.name).c_str());
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, 200);
        EXPECT_EQ(res->get_header_value("Content-Type"), c.contentType);
        EXPECT_EQ(res->body, c.bytes);

        SDL_Surface* raw = IMG_Load_RW(SDL_RWFromConstMem(res->body.data(), int(res->body.size())), 1);
        ASSERT_NE(raw, nullptr) << IMG_GetError();
        SDL_Surface* rgb = SDL_ConvertSurfaceFormat(raw, SDL_PIXELFORMAT_RGB24, 0);
        SDL_FreeSurface(raw);
        ASSERT_NE(rgb, nullptr);
        EXPECT_EQ(rgb->w, c.width);
        EXPECT_EQ(rgb->h, c.height);
        EXPECT_EQ(c.orientation == Orientation::Portrait, c.height > c.width);
        // the documented background probe, which screenshot checks rely on
        const auto* px = static_cast<const std::uint8_t*>(rgb->pixels) + (rgb->h / 2) * rgb->pitch + (rgb->w / 10) * 3;
        const int tolerance = c.format == ImageFormat::Jpeg ? 12 : 0;
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(px[i], (&c.background.r)[i], tolerance) << "channel " << i;
        SDL_FreeSurface(rgb);
    }
    EXPECT_EQ(client_->Get("/creative/nothing.png")->status, 404);
}

TEST_F(BidServerTest, ScenariosAnswerTheBidRequestAsNamed) {
    struct Case {
        Scenario scenario;
        int status;
        const char* contentType;
        bool hasBid;
    };
    const Case cases[] = {
        {Scenario::Normal, 200, "application/json", true},
        {Scenario::NoBid, 200, "application/json", false},
        {Scenario::Error, 500, "text/plain", false},
        {Scenario::Slow, 200, "application/json", true},
        {Scenario::BadTracker, 200, "application/json", true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(scenarioName(c.scenario));
        BidServerOptions o;
        o.scenario = c.scenario;
        o.delay = std::chrono::milliseconds(20);
        start(o);
        auto res = bid();
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, c.status);
        EXPECT_EQ(res->get_header_value("Content-Type"), c.contentType);
        if (c.scenario == Scenario::NoBid) { EXPECT_EQ(res->body, "{}"); }
        if (c.scenario == Scenario::Error) { EXPECT_NE(res->body.find("error"), std::string::npos); }
        if (c.hasBid) { EXPECT_EQ(json::parse(res->body)["seatbid"][0]["bid"].size(), 1u); }
        EXPECT_EQ(stats()["scenario"], scenarioName(c.scenario));
    }
}

TEST_F(BidServerTest, MalformedBidRequestsAreRefusedWithAReason) {
    start();
    struct Case {
        const char* name;
        std::string body;
        std::string query;
        int status;
    };
    const Case cases[] = {
        {"no appid", sdkRequest().dump(), "", 400},
        {"not JSON", "{\"id\":", "?appid=a", 400},
        {"JSON but not an object", "[1,2]", "?appid=a", 400},
        {"too large", std::string(5 * 1024 * 1024, ' '), "?appid=a", 413},
        {"empty appid is still an appid", sdkRequest().dump(), "?appid=", 200},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto res = client_->Post(("/network" + c.query).c_str(), c.body, "application/json");
        ASSERT_TRUE(res);
        EXPECT_EQ(res->status, c.status);
        if (c.status == 400) { EXPECT_FALSE(res->body.empty()); }
    }
    EXPECT_TRUE(firstBid()) << "still serving after the refusals";
}

TEST_F(BidServerTest, TrackersAnswerEmptyAndRecordWhichMacrosWereFilled) {
    for (Scenario scenario : {Scenario::Normal, Scenario::BadTracker}) {
        SCOPED_TRACE(scenarioName(scenario));
        BidServerOptions o;
        o.scenario = scenario;
        start(o);
        auto b = firstBid();
        ASSERT_TRUE(b);
        const std::string base = server_->baseUrl();

        // as the SDK does with an empty OAID: that macro stays in the URL
        std::string view = replaceAll(b->checkViews()->front(), "__IMEI__", "861234567890123");
        for (const char* m : {"__IDFA__", "__MAC__"}) view = replaceAll(view, m, "0");
        view = replaceAll(view, "__STMS__", "1700000000.25");
        std::string click = b->checkClicks()->front();
        for (const char* m : kIdentityMacros) click = replaceAll(click, m, "1");
        for (const char* m : kTouchMacros) click = replaceAll(click, m, "7");

        for (const auto& url : {view, view, click}) {
            ASSERT_EQ(url.rfind(base, 0), 0u) << url;
            auto res = client_->Get(url.substr(base.size()).c_str());
            ASSERT_TRUE(res);
            if (scenario == Scenario::BadTracker) {
                EXPECT_EQ(res->status, 200);
                EXPECT_EQ(res->get_header_value("Content-Type"), "image/gif");
                EXPECT_EQ(res->body.substr(0, 6), "GIF89a");
            } else {
                EXPECT_EQ(res->status, 204);
                EXPECT_TRUE(res->body.empty());
            }
        }

        json s = stats();
        EXPECT_EQ(s["counts"]["/track/view"], 2);
        EXPECT_EQ(s["counts"]["/track/click"], 1);
        ASSERT_EQ(s["tracking"].size(), 3u);
        const json& v = s["tracking"][0];
        EXPECT_EQ(v["endpoint"], "/track/view");
        EXPECT_EQ(v["params"], json({{"bid", *b->identifier()}, {"imei", "861234567890123"}, {"oaid", "__OAID__"},
                                     {"idfa", "0"}, {"mac", "0"}, {"stms", "1700000000.25"}}));
        EXPECT_EQ(v["unfilled"], json::array({"oaid"}));
        const json& c = s["tracking"][2];
        EXPECT_EQ(c["endpoint"], "/track/click");
        EXPECT_EQ(c["params"].size(), 16u) << "bid plus fifteen macros";
        EXPECT_EQ(c["unfilled"], json::array());
    }
}

TEST_F(BidServerTest, StopCutsASlowAnswerShort) {
    BidServerOptions o;
    o.scenario = Scenario::Slow;
    o.delay = std::chrono::minutes(10);
    start(o);
    auto pending = std::async(std::launch::async, [this] {
        httplib::Client other("127.0.0.1", server_->port());
        return other.Post("/network?appid=a", sdkRequest().dump(), "application/json");
    });
    // wait until the request is inside the handler
    while (stats()["counts"]["/network"] != 1) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    server_->stop();
    auto res = pending.get();
    if (res) { EXPECT_EQ(res->status, 503); }
    server_->stop();  // idempotent
}

TEST(BidServerStart, AnOccupiedPortIsAClearError) {
    BidServer first({});
    first.start();
    BidServerOptions o;
    o.port = first.port();
    BidServer second(o);
    try {
        second.start();
        FAIL() << "bound a port that is in use";
    } catch (const std::runtime_error& e) {
        EXPECT_NE(std::string(e.what()).find(std::to_string(first.port())), std::string::npos) << e.what();
    }
    EXPECT_EQ(second.port(), 0);
}

TEST(BidServerArguments, ValidCommandLines) {
    auto a = parseBidServerArguments({"--port", "8080", "--host=0.0.0.0", "--scenario", "bad-tracker",
                                      "--delay-ms=250", "--creative", "landscape", "--image-format", "jpeg",
                                      "--quiet"});
    ASSERT_EQ(a.error, "");
    EXPECT_EQ(a.options.port, 8080);
    EXPECT_EQ(a.options.host, "0.0.0.0");
    EXPECT_EQ(a.options.scenario, Scenario::BadTracker);
    EXPECT_EQ(a.options.delay, std::chrono::milliseconds(250));
    EXPECT_EQ(a.options.creative, CreativeChoice::Landscape);
    EXPECT_EQ(a.options.imageFormat, ImageFormat::Jpeg);
    EXPECT_TRUE(a.quiet && !a.help);
    EXPECT_TRUE(parseBidServerArguments({"--help"}).help);
    for (const char* name : {"normal", "nobid", "error", "slow", "bad-tracker"})
        EXPECT_EQ(scenarioName(parseBidServerArguments({"--scenario", name}).options.scenario), name);
}

TEST(BidServerArguments, BadCommandLinesNameTheProblem) {
    struct Case {
        std::vector<std::string> args;
        const char* mentions;
    };
    const Case cases[] = {
        {{"--port"}, "--port"},
        {{"--port", "65536"}, "65536"},
        {{"--port", "80x"}, "80x"},
        {{"--port="}, "--port"},
        {{"--scenario", "flaky"}, "flaky"},
        {{"--delay-ms", "soon"}, "soon"},
        {{"--delay-ms", "600001"}, "600001"},
        {{"--creative", "square"}, "--creative"},
        {{"--image-format", "gif"}, "--image-format"},
        {{"--host", ""}, "--host"},
        {{"--help=yes"}, "--help"},
        {{"--verbose"}, "--verbose"},
        {{"8080"}, "8080"},
    };
    for (const auto& c : cases) {
        auto a = parseBidServerArguments(c.args);
        EXPECT_NE(a.error.find(c.mentions), std::string::npos) << "args " << c.args[0] << ": " << a.error;
    }
}

// The real executable: the port line a parent reads, and the summary on SIGTERM.
TEST(BidServerProgram, PrintsItsPortAndASummaryOnSigterm) {
    const std::string exe = std::string(QUOV_TEST_BINARY_DIR) + "/tools/quov-bid-server";
    const std::string errPath = ::testing::TempDir() + "bid_server_stderr.txt";
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    pid_t pid = fork();
    ASSERT_GE(pid, 0);
    if (pid == 0) {  // only async-signal-safe calls until exec
        dup2(fds[1], STDOUT_FILENO);
        int err = open(errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(err, STDERR_FILENO);
        close(fds[0]);
        execl(exe.c_str(), exe.c_str(), "--port", "0", "--scenario", "nobid", static_cast<char*>(nullptr));
        _exit(127);
    }
    close(fds[1]);
    FILE* out = fdopen(fds[0], "r");
    char line[256] = {};
    int port = 0;
    if (std::fgets(line, sizeof line, out)) std::sscanf(line, "listening on http://127.0.0.1:%d", &port);
    httplib::Client client("127.0.0.1", port);
    auto res = client.Post("/network?appid=a", "{}", "application/json");
    kill(pid, SIGTERM);
    int status = 0;
    waitpid(pid, &status, 0);
    std::string rest;
    for (char buf[256]; std::fgets(buf, sizeof buf, out);) rest += buf;
    std::fclose(out);
    std::ifstream errFile(errPath);
    std::string log((std::istreambuf_iterator<char>(errFile)), std::istreambuf_iterator<char>());

    ASSERT_GT(port, 0) << line << log;
    ASSERT_TRUE(res);
    EXPECT_EQ(res->body, "{}");
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
    EXPECT_EQ(rest, "") << "standard output carries only the port line";
    EXPECT_NE(log.find("POST /network?appid=a"), std::string::npos) << log;
    EXPECT_NE(log.find("/network                  1"), std::string::npos) << log;
}

}  // namespace
}  // namespace quov::tools
