// quov-demo against quov-bid-server, both as real processes on loopback.
#include <SDL.h>
#include <SDL_image.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const fs::path kBuild = QUOV_TEST_BINARY_DIR;

std::string readFile(const fs::path& p) {
    std::stringstream s;
    s << std::ifstream(p).rdbuf();
    return s.str();
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

/// Starts exe with its standard output on outFd and its standard error in errPath; -1 when it cannot.
pid_t spawn(const fs::path& exe, std::vector<std::string> args, int outFd, const fs::path& errPath) {
    args.insert(args.begin(), exe.string());
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, outFd, 1);
    posix_spawn_file_actions_addopen(&fa, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    if (::posix_spawn(&pid, exe.c_str(), &fa, nullptr, argv.data(), environ) != 0) pid = -1;
    posix_spawn_file_actions_destroy(&fa);
    return pid;
}

int waitFor(pid_t pid) {
    int st = 0;
    ::waitpid(pid, &st, 0);
    return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
}

/// A scratch directory per test, removed afterwards.
struct Scratch {
    fs::path dir;
    Scratch() {
        char tmpl[] = "/tmp/quov-e2e-XXXXXX";
        dir = ::mkdtemp(tmpl);
    }
    ~Scratch() { fs::remove_all(dir); }
};

/// The sample bid server as a child process; its first line of output says where it listens.
class ServerProcess {
public:
    ServerProcess(const Scratch& scratch, const std::string& scenario) : errPath_(scratch.dir / "server.err") {
        int out[2];
        EXPECT_EQ(::pipe2(out, O_CLOEXEC), 0);
        pid_ = spawn(kBuild / "tools" / "quov-bid-server", {"--port", "0", "--scenario", scenario}, out[1], errPath_);
        ::close(out[1]);
        out_ = ::fdopen(out[0], "r");
        char line[256] = {};
        const std::string prefix = "listening on ";
        if (pid_ <= 0 || !std::fgets(line, sizeof line, out_)) return;
        const std::string first = line;
        if (first.rfind(prefix, 0) == 0) base_ = first.substr(prefix.size(), first.find('\n') - prefix.size());
    }
    ~ServerProcess() {
        stop();
        std::fclose(out_);
    }
    const std::string& base() const { return base_; }
    json stats() const {
        auto res = httplib::Client(base_).Get("/stats");
        return res && res->status == 200 ? json::parse(res->body) : json();
    }
    /// Ends it as a terminal would; its exit status.
    int stop() {
        if (pid_ <= 0) return -1;
        ::kill(pid_, SIGTERM);
        const int status = waitFor(pid_);
        pid_ = -1;
        return status;
    }
    std::string restOfStdout() {
        std::string rest;
        for (char buf[256]; std::fgets(buf, sizeof buf, out_);) rest += buf;
        return rest;
    }
    std::string log() const { return readFile(errPath_); }

private:
    fs::path errPath_;
    pid_t pid_ = -1;
    FILE* out_ = nullptr;
    std::string base_;
};

struct DemoRun {
    int status = -1;
    std::vector<std::string> out;  // stdout lines
    std::string err;
};

DemoRun runDemo(const Scratch& scratch, const std::vector<std::string>& args) {
    const fs::path exe = kBuild / "examples" / "quov-demo", outPath = scratch.dir / "demo.out";
    if (!fs::exists(exe)) ADD_FAILURE() << exe << " is not built (QUOV_BUILD_EXAMPLES=OFF?)";
    const int out = ::open(outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    const pid_t pid = spawn(exe, args, out, scratch.dir / "demo.err");
    ::close(out);
    DemoRun run;
    if (pid > 0) run.status = waitFor(pid);
    run.out = lines(readFile(outPath));
    run.err = readFile(scratch.dir / "demo.err");
    return run;
}

/// An opener program that records each URL it is given and opens only deep links.
std::string writeOpener(const Scratch& scratch) {
    const fs::path script = scratch.dir / "opener.sh";
    std::ofstream(script) << "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" << (scratch.dir / "opened.txt").string()
                          << "'\ncase \"$1\" in quovdemo://*) exit 0;; *) exit 1;; esac\n";
    fs::permissions(script, fs::perms::owner_all);
    return script.string();
}

std::vector<json> trackerHits(const json& stats, const std::string& endpoint) {
    std::vector<json> out;
    for (const auto& hit : stats.value("tracking", json::array()))
        if (hit.value("endpoint", "") == endpoint) out.push_back(hit["params"]);
    return out;
}

std::vector<std::string> events(const DemoRun& run) {
    std::vector<std::string> out;
    for (const auto& l : run.out) out.push_back(json::parse(l).value("event", "?"));
    return out;
}

TEST(DemoEndToEnd, ClickFiresTrackersWithFilledMacrosAndOpensTheDeepLink) {
    Scratch scratch;
    ServerProcess server(scratch, "normal");
    ASSERT_FALSE(server.base().empty());
    // The portrait creative's box on 375x812 points sits around the screen's centre.
    DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base(), "--imei", "IM-1", "--touch",
                                    "187,406", "--url-opener", writeOpener(scratch)});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(events(run), (std::vector<std::string>{"onQuovSDKAdLoaded", "onQuovSDKAdDisplayed",
                                                     "onQuovSDKAdClicked"}));
    const json stats = server.stats();
    const auto views = trackerHits(stats, "/track/view"), clicks = trackerHits(stats, "/track/click");
    ASSERT_EQ(views.size(), 1u);
    ASSERT_EQ(clicks.size(), 1u);
    EXPECT_EQ(views[0].value("imei", ""), "IM-1");
    EXPECT_EQ(clicks[0].value("imei", ""), "IM-1");
    EXPECT_EQ(clicks[0].value("oaid", ""), "__OAID__") << "an empty OAID is left in place";
    EXPECT_NE(clicks[0].value("abs_down_x", "__ABS_DOWN_X__"), "__ABS_DOWN_X__");
    EXPECT_NE(clicks[0].value("click_up_time", "__CLICK_UP_TIME__"), "__CLICK_UP_TIME__");
    const std::string opened = readFile(scratch.dir / "opened.txt");
    EXPECT_EQ(opened.rfind("quovdemo://", 0), 0u) << opened << run.err;
    EXPECT_EQ(lines(opened).size(), 1u) << "the deep link opened: nothing else tried";
}

TEST(DemoEndToEnd, CloseSendsNoClickTrackers) {
    Scratch scratch;
    ServerProcess server(scratch, "normal");
    DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base(), "--close", "--url-opener",
                                    writeOpener(scratch)});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(events(run), (std::vector<std::string>{"onQuovSDKAdLoaded", "onQuovSDKAdDisplayed",
                                                     "onQuovSDKAdClosed"}));
    const json stats = server.stats();
    EXPECT_EQ(trackerHits(stats, "/track/view").size(), 1u);
    EXPECT_TRUE(trackerHits(stats, "/track/click").empty());
    EXPECT_FALSE(fs::exists(scratch.dir / "opened.txt"));
}

TEST(DemoEndToEnd, KeysCloseOrClickThroughSDLsQueueAndOtherKeysPass) {
    const struct {
        const char* keys;
        const char* last;
        std::size_t clicks;
    } cases[] = {
        {"a,escape", "onQuovSDKAdClosed", 0},
        {"tab,pad-b", "onQuovSDKAdClosed", 0},
        {"space", "onQuovSDKAdClicked", 1},
        {"pad-a", "onQuovSDKAdClicked", 1},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.keys);
        Scratch scratch;
        ServerProcess server(scratch, "normal");
        DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base(), "--key", c.keys,
                                        "--url-opener", writeOpener(scratch)});
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(events(run), (std::vector<std::string>{"onQuovSDKAdLoaded", "onQuovSDKAdDisplayed", c.last}));
        EXPECT_EQ(trackerHits(server.stats(), "/track/click").size(), c.clicks);
        EXPECT_EQ(fs::exists(scratch.dir / "opened.txt"), c.clicks == 1);
    }
}

TEST(DemoEndToEnd, NoBidAndServerErrorReachTheHostAsErrorsAndTheServerSumsUp) {
    const std::pair<const char*, const char*> cases[] = {
        {"nobid", R"({"event":"onQuovSDKAdLoadFailed","domain":"QAPP","code":204,"description":null})"},
        {"error",
         R"({"event":"onQuovSDKAdLoadFailed","domain":" QuovADSDK Error","code":4001,"description":"协商失败"})"},
    };
    for (const auto& [scenario, failed] : cases) {
        SCOPED_TRACE(scenario);
        Scratch scratch;
        ServerProcess server(scratch, scenario);
        // A screenshot is asked for but never possible: the demo still ends by itself.
        DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base(), "--timeout", "20",
                                        "--screenshot", (scratch.dir / "never.png").string()});
        ASSERT_EQ(run.status, 0) << run.err;
        ASSERT_EQ(run.out.size(), 1u);
        EXPECT_EQ(json::parse(run.out[0]), json::parse(failed));
        if (std::string(scenario) == "error") {
            EXPECT_NE(run.err.find("Reqeust failed, response: "), std::string::npos) << run.err;
        }
        EXPECT_EQ(server.stop(), 0);
        EXPECT_EQ(server.restOfStdout(), "") << "standard output carries only the port line";
        const std::string log = server.log();
        EXPECT_NE(log.find("POST /network?appid="), std::string::npos) << log;
        EXPECT_NE(log.find("/network                  1"), std::string::npos) << "the summary on exit\n" << log;
    }
}

TEST(DemoEndToEnd, BadTrackerIsTriedThreeTimesPerAddress) {
    Scratch scratch;
    ServerProcess server(scratch, "bad-tracker");
    DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base()});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(trackerHits(server.stats(), "/track/view").size(), 3u);
    EXPECT_NE(run.err.find("Report ad show failed, "), std::string::npos) << run.err;
}

TEST(DemoEndToEnd, ScreenshotShowsTheMaskAndTheImage) {
    Scratch scratch;
    ServerProcess server(scratch, "normal");
    const fs::path png = scratch.dir / "shot.png";
    DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base(), "--screen", "375x812", "--scale",
                                    "2", "--screenshot", png.string()});
    ASSERT_EQ(run.status, 0) << run.err;
    SDL_Surface* raw = IMG_Load(png.c_str());
    ASSERT_NE(raw, nullptr) << IMG_GetError();
    SDL_Surface* shot = SDL_ConvertSurfaceFormat(raw, SDL_PIXELFORMAT_RGBA32, 0);
    SDL_FreeSurface(raw);
    ASSERT_EQ(shot->w, 750);
    ASSERT_EQ(shot->h, 1624);
    auto px = [&](int x, int y) {
        const auto* p = static_cast<const std::uint8_t*>(shot->pixels) + y * shot->pitch + x * 4;
        return std::array<int, 3>{p[0], p[1], p[2]};
    };
    // Outside the image: the host's frame under an 80 % black mask, so dark.
    for (auto p : {px(4, 4), px(740, 1600)}) EXPECT_LT(p[0] + p[1] + p[2], 3 * 60);
    // Inside: the portrait creative's blue background, unmasked (600x900 in a
    // 318.75 x 478.125 box centred at (187.5, 406) points).
    const auto inside = px(static_cast<int>((28.125 + 318.75 / 10) * 2), 406 * 2);
    EXPECT_NEAR(inside[0], 30, 12);
    EXPECT_NEAR(inside[1], 64, 12);
    EXPECT_NEAR(inside[2], 175, 12);
    SDL_FreeSurface(shot);
}

}  // namespace
