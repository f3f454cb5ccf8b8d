// quov-demo against quov-bid-server, both as real processes on loopback.
#include <SDL.h>
#include <SDL_image.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const fs::path kBuild = QUOV_TEST_BINARY_DIR;

std::string readFile(const fs::path& p) {
    std::ifstream in(p);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::vector<std::string> lines(const std::string& text) {
    std::vector<std::string> out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
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

/// The sample bid server as a child process.
class ServerProcess {
public:
    explicit ServerProcess(const std::string& scenario) {
        int out[2];
        EXPECT_EQ(::pipe2(out, O_CLOEXEC), 0);
        posix_spawn_file_actions_t fa;
        posix_spawn_file_actions_init(&fa);
        posix_spawn_file_actions_adddup2(&fa, out[1], 1);
        posix_spawn_file_actions_addopen(&fa, 2, "/dev/null", O_WRONLY, 0);
        const std::string exe = (kBuild / "tools" / "quov-bid-server").string();
        std::vector<std::string> args = {exe, "--port", "0", "--scenario", scenario};
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        EXPECT_EQ(::posix_spawn(&pid_, exe.c_str(), &fa, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&fa);
        ::close(out[1]);
        stdout_ = out[0];
        std::string got;
        while (got.find('\n') == std::string::npos) {
            pollfd p{stdout_, POLLIN, 0};
            if (::poll(&p, 1, 10000) <= 0) break;
            char buf[256];
            ssize_t n = ::read(stdout_, buf, sizeof buf);
            if (n <= 0) break;
            got.append(buf, static_cast<size_t>(n));
        }
        const std::string prefix = "listening on ";
        auto at = got.find(prefix);
        if (at != std::string::npos) base_ = got.substr(at + prefix.size(), got.find('\n') - at - prefix.size());
    }
    ~ServerProcess() {
        if (pid_ > 0) {
            ::kill(pid_, SIGTERM);
            int st = 0;
            ::waitpid(pid_, &st, 0);
        }
        ::close(stdout_);
    }
    const std::string& base() const { return base_; }
    json stats() const {
        httplib::Client client(base_);
        auto res = client.Get("/stats");
        return res && res->status == 200 ? json::parse(res->body) : json();
    }

private:
    pid_t pid_ = -1;
    int stdout_ = -1;
    std::string base_;
};

struct DemoRun {
    int status = -1;
    std::vector<std::string> out;  // stdout lines
    std::string err;
};

DemoRun runDemo(const Scratch& scratch, std::vector<std::string> args) {
    const std::string exe = (kBuild / "examples" / "quov-demo").string();
    if (!fs::exists(exe)) ADD_FAILURE() << exe << " is not built (QUOV_BUILD_EXAMPLES=OFF?)";
    args.insert(args.begin(), exe);
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    const std::string outPath = (scratch.dir / "demo.out").string();
    const std::string errPath = (scratch.dir / "demo.err").string();
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_addopen(&fa, 1, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_addopen(&fa, 2, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    pid_t pid = -1;
    DemoRun run;
    if (::posix_spawn(&pid, exe.c_str(), &fa, nullptr, argv.data(), environ) != 0) return run;
    posix_spawn_file_actions_destroy(&fa);
    int st = 0;
    ::waitpid(pid, &st, 0);
    run.status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    run.out = lines(readFile(outPath));
    run.err = readFile(errPath);
    return run;
}

/// An opener program that records each URL it is given and opens only deep links.
fs::path writeOpener(const Scratch& scratch) {
    const fs::path script = scratch.dir / "opener.sh";
    std::ofstream(script) << "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" << (scratch.dir / "opened.txt").string()
                          << "'\ncase \"$1\" in quovdemo://*) exit 0;; *) exit 1;; esac\n";
    fs::permissions(script, fs::perms::owner_all);
    return script;
}

std::vector<json> trackerHits(const json& stats, const std::string& endpoint) {
    std::vector<json> out;
    for (const auto& hit : stats.value("tracking", json::array()))
        if (hit.value("endpoint", "") == endpoint) out.push_back(hit);
    return out;
}

std::vector<std::string> events(const DemoRun& run) {
    std::vector<std::string> out;
    for (const auto& l : run.out) out.push_back(json::parse(l).value("event", "?"));
    return out;
}

TEST(DemoEndToEnd, ClickFiresTrackersWithFilledMacrosAndOpensTheDeepLink) {
    Scratch scratch;
    ServerProcess server("normal");
    ASSERT_FALSE(server.base().empty());
    const fs::path opener = writeOpener(scratch);
    // The portrait creative's box on 375x812 points sits around the screen's centre.
    DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base(), "--imei", "IM-1",
                                    "--touch", "187,406", "--url-opener", opener.string()});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(events(run), (std::vector<std::string>{"onQuovSDKAdLoaded", "onQuovSDKAdDisplayed",
                                                     "onQuovSDKAdClicked"}));
    const json stats = server.stats();
    auto views = trackerHits(stats, "/track/view");
    auto clicks = trackerHits(stats, "/track/click");
    ASSERT_EQ(views.size(), 1u);
    ASSERT_EQ(clicks.size(), 1u);
    EXPECT_EQ(views[0]["params"].value("imei", ""), "IM-1");
    const json& click = clicks[0]["params"];
    EXPECT_EQ(click.value("imei", ""), "IM-1");
    EXPECT_EQ(click.value("oaid", ""), "__OAID__") << "an empty OAID is left in place";
    EXPECT_NE(click.value("abs_down_x", "__ABS_DOWN_X__"), "__ABS_DOWN_X__");
    EXPECT_NE(click.value("click_up_time", "__CLICK_UP_TIME__"), "__CLICK_UP_TIME__");
    const std::string opened = readFile(scratch.dir / "opened.txt");
    EXPECT_EQ(opened.rfind("quovdemo://", 0), 0u) << opened << run.err;
    EXPECT_EQ(lines(opened).size(), 1u) << "the deep link opened: nothing else tried";
}

TEST(DemoEndToEnd, CloseSendsNoClickTrackers) {
    Scratch scratch;
    ServerProcess server("normal");
    DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base(), "--close", "--url-opener",
                                    writeOpener(scratch).string()});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(events(run), (std::vector<std::string>{"onQuovSDKAdLoaded", "onQuovSDKAdDisplayed",
                                                     "onQuovSDKAdClosed"}));
    const json stats = server.stats();
    EXPECT_EQ(trackerHits(stats, "/track/view").size(), 1u);
    EXPECT_TRUE(trackerHits(stats, "/track/click").empty());
    EXPECT_FALSE(fs::exists(scratch.dir / "opened.txt"));
}

TEST(DemoEndToEnd, NoBidAndServerErrorReachTheHostAsErrors) {
    {
        Scratch scratch;
        ServerProcess server("nobid");
        DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base()});
        ASSERT_EQ(run.status, 0) << run.err;
        ASSERT_EQ(run.out.size(), 1u);
        EXPECT_EQ(json::parse(run.out[0]),
                  json::parse(R"({"event":"onQuovSDKAdLoadFailed","domain":"QAPP","code":204,"description":null})"));
    }
    {
        Scratch scratch;
        ServerProcess server("error");
        DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base()});
        ASSERT_EQ(run.status, 0) << run.err;
        ASSERT_EQ(run.out.size(), 1u);
        const json failed = json::parse(run.out[0]);
        EXPECT_EQ(failed["domain"], " QuovADSDK Error");
        EXPECT_EQ(failed["code"], 4001);
        EXPECT_EQ(failed["description"], "协商失败");
        EXPECT_NE(run.err.find("Reqeust failed, response: "), std::string::npos) << run.err;
    }
}

TEST(DemoEndToEnd, BadTrackerIsTriedThreeTimesPerAddress) {
    Scratch scratch;
    ServerProcess server("bad-tracker");
    DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base()});
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(trackerHits(server.stats(), "/track/view").size(), 3u);
    EXPECT_NE(run.err.find("Report ad show failed, "), std::string::npos) << run.err;
}

TEST(DemoEndToEnd, ScreenshotShowsTheMaskAndTheImage) {
    Scratch scratch;
    ServerProcess server("normal");
    const fs::path png = scratch.dir / "shot.png";
    DemoRun run = runDemo(scratch, {"--headless", "--bid-server", server.base(), "--screen", "375x812",
                                    "--scale", "2", "--screenshot", png.string()});
    ASSERT_EQ(run.status, 0) << run.err;
    SDL_Surface* raw = IMG_Load(png.c_str());
    ASSERT_NE(raw, nullptr) << IMG_GetError();
    SDL_Surface* shot = SDL_ConvertSurfaceFormat(raw, SDL_PIXELFORMAT_RGBA32, 0);
    SDL_FreeSurface(raw);
    ASSERT_EQ(shot->w, 750);
    ASSERT_EQ(shot->h, 1624);
    auto px = [&](int x, int y) {
        const auto* row = static_cast<const std::uint8_t*>(shot->pixels) + y * shot->pitch;
        return std::array<int, 3>{row[x * 4], row[x * 4 + 1], row[x * 4 + 2]};
    };
    // Outside the image: the host's frame under an 80 % black mask, so dark.
    for (auto p : {px(4, 4), px(740, 1600)}) EXPECT_LT(p[0] + p[1] + p[2], 3 * 60);
    // Inside the box: the portrait creative's blue background, unmasked.
    // 600x900 creative in a 318.75 x 478.125 box centred at (187.5, 406) points.
    const auto inside = px(static_cast<int>((28.125 + 318.75 / 10) * 2), 406 * 2);
    EXPECT_NEAR(inside[0], 30, 12);
    EXPECT_NEAR(inside[1], 64, 12);
    EXPECT_NEAR(inside[2], 175, 12);
    SDL_FreeSurface(shot);
}

}  // namespace
