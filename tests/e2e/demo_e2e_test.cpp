// quov-demo against quov-bid-server, both as real processes on loopback.
#include <gtest/gtest.h>
#include <httplib.h>
#include <nlohmann/json.hpp>

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Lines = std::vector<std::string>;

const fs::path kBuild = QUOV_TEST_BINARY_DIR;

std::string readFile(const fs::path& p) {
    std::stringstream s;
    s << std::ifstream(p).rdbuf();
    return s.str();
}

Lines lines(const std::string& text) {
    Lines out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

std::string quoted(const std::string& s) { return "'" + s + "'"; }

struct DemoRun {
    int status = -1;
    Lines out, events;  // stdout lines, and the event of each
    std::string err;
};

/// A scratch directory and the sample bid server as a child process, whose first line says where it listens.
class Session {
public:
    explicit Session(const std::string& scenario) {
        char tmpl[] = "/tmp/quov-e2e-XXXXXX";
        dir = ::mkdtemp(tmpl);
        out_ = ::popen(("echo $$; exec " + quoted(kBuild / "tools" / "quov-bid-server") + " --port 0 --scenario " +
                        scenario + " 2>" + quoted(dir / "server.err"))
                           .c_str(),
                       "r");
        char url[256] = {};
        if (std::fscanf(out_, "%d listening on %255s%*c", &pid_, url) == 2) base = url;
    }
    ~Session() {
        stop();
        fs::remove_all(dir);
    }
    /// Ends the server as a terminal would; its exit status. What it wrote after the port line is kept in rest.
    int stop() {
        if (!out_) return -1;
        ::kill(pid_, SIGTERM);
        for (int c; (c = std::fgetc(out_)) != EOF;) rest += char(c);
        const int status = ::pclose(out_);
        out_ = nullptr;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    /// The tracker hits' parameters at one endpoint.
    std::vector<json> hits(const std::string& endpoint) const {
        auto res = httplib::Client(base).Get("/stats");
        std::vector<json> out;
        if (!res || res->status != 200) return out;
        for (const auto& hit : json::parse(res->body).value("tracking", json::array()))
            if (hit.value("endpoint", "") == endpoint) out.push_back(hit["params"]);
        return out;
    }
    /// Runs the demo headless against the server, with an opener that records each URL and opens only deep links.
    DemoRun demo(std::vector<std::string> args) const {
        const fs::path exe = kBuild / "examples" / "quov-demo", opener = dir / "opener.sh";
        if (!fs::exists(exe)) ADD_FAILURE() << exe << " is not built (QUOV_BUILD_EXAMPLES=OFF?)";
        std::ofstream(opener) << "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" << (dir / "opened.txt").string()
                              << "'\ncase \"$1\" in quovdemo://*) exit 0;; *) exit 1;; esac\n";
        fs::permissions(opener, fs::perms::owner_all);
        std::string command = quoted(exe);
        for (const auto& a : args) command += " " + quoted(a);
        command += " --headless --bid-server " + base + " --url-opener " + quoted(opener);
        DemoRun run;
        const int status = std::system((command + " >" + quoted(dir / "demo.out") + " 2>" + quoted(dir / "demo.err")).c_str());
        run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        run.out = lines(readFile(dir / "demo.out"));
        for (const auto& l : run.out) run.events.push_back(json::parse(l).value("event", "?"));
        run.err = readFile(dir / "demo.err");
        return run;
    }

    fs::path dir;
    std::string base;
    std::string rest;

private:
    int pid_ = -1;
    FILE* out_ = nullptr;
};

TEST(DemoEndToEnd, ClickFiresTrackersWithFilledMacrosAndOpensOnlyTheDeepLinkCloseNeither) {
    const struct {
        std::vector<std::string> args;
        const char* last;
    } cases[] = {
        // The portrait creative's box on 375x812 points sits around the screen's centre.
        {{"--touch", "187,406"}, "onQuovSDKAdClicked"},
        {{"--close"}, "onQuovSDKAdClosed"},
        {{"--key", "a,escape"}, "onQuovSDKAdClosed"},  // keys through SDL's queue; other keys pass
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args[0]);
        Session session("normal");
        ASSERT_FALSE(session.base.empty());
        std::vector<std::string> args = c.args;
        args.insert(args.end(), {"--imei", "IM-1"});
        const DemoRun run = session.demo(args);
        ASSERT_EQ(run.status, 0) << run.err;
        EXPECT_EQ(run.events, (Lines{"onQuovSDKAdLoaded", "onQuovSDKAdDisplayed", c.last}));
        const auto views = session.hits("/track/view"), clicks = session.hits("/track/click");
        ASSERT_EQ(views.size(), 1u);
        EXPECT_EQ(views[0].value("imei", ""), "IM-1");
        const bool clicked = std::string(c.last) == "onQuovSDKAdClicked";
        ASSERT_EQ(clicks.size(), clicked ? 1u : 0u);
        const Lines opened = lines(readFile(session.dir / "opened.txt"));
        if (!clicked) {
            EXPECT_TRUE(opened.empty());
            continue;
        }
        EXPECT_EQ(clicks[0].value("imei", ""), "IM-1");
        EXPECT_EQ(clicks[0].value("oaid", ""), "__OAID__") << "an empty OAID is left in place";
        EXPECT_NE(clicks[0].value("abs_down_x", "__ABS_DOWN_X__"), "__ABS_DOWN_X__");
        EXPECT_NE(clicks[0].value("click_up_time", "__CLICK_UP_TIME__"), "__CLICK_UP_TIME__");
        ASSERT_EQ(opened.size(), 1u) << "the deep link opened: nothing else tried";
        EXPECT_EQ(opened[0].rfind("quovdemo://", 0), 0u) << opened[0];
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
        Session session(scenario);
        // A screenshot is asked for but never possible: the demo still ends by itself.
        const DemoRun run = session.demo({"--timeout", "20", "--screenshot", (session.dir / "never.png").string()});
        ASSERT_EQ(run.status, 0) << run.err;
        ASSERT_EQ(run.out.size(), 1u);
        EXPECT_EQ(json::parse(run.out[0]), json::parse(failed));
        if (std::string(scenario) == "error") {
            EXPECT_NE(run.err.find("Reqeust failed, response: "), run.err.npos);
        }
        EXPECT_EQ(session.stop(), 0);
        EXPECT_EQ(session.rest, "") << "standard output carries only the port line";
        const std::string log = readFile(session.dir / "server.err");
        EXPECT_NE(log.find("POST /network?appid="), std::string::npos) << log;
        EXPECT_NE(log.find("/network                  1"), std::string::npos) << "the summary on exit\n" << log;
    }
}

}  // namespace
