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

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using Lines = std::vector<std::string>;

const fs::path kBuild = QUOV_TEST_BINARY_DIR;

Lines readLines(const fs::path& p) {
    Lines out;
    std::ifstream in(p);
    for (std::string l; std::getline(in, l);) out.push_back(l);
    return out;
}

std::string quoted(const std::string& s) { return "'" + s + "'"; }

/// A scratch directory and the sample bid server as a child process, whose first line says where it listens.
struct Session {
    Session() {
        char tmpl[] = "/tmp/quov-e2e-XXXXXX";
        dir = ::mkdtemp(tmpl);
        out = ::popen(("echo $$; exec " + quoted(kBuild / "tools" / "quov-bid-server") + " --port 0 2>/dev/null").c_str(),
                      "r");
        char url[256] = {};
        if (std::fscanf(out, "%d listening on %255s%*c", &pid, url) == 2) base = url;
    }
    ~Session() {
        ::kill(pid, SIGTERM);
        ::pclose(out);
        fs::remove_all(dir);
    }
    /// The tracker hits' parameters at one endpoint.
    std::vector<json> hits(const std::string& endpoint) const {
        auto res = httplib::Client(base).Get("/stats");
        std::vector<json> found;
        if (!res || res->status != 200) return found;
        for (const auto& hit : json::parse(res->body).value("tracking", json::array()))
            if (hit.value("endpoint", "") == endpoint) found.push_back(hit["params"]);
        return found;
    }
    /// The demo's exit status, run headless with an opener that records each URL and opens only deep links.
    int demo(const std::string& input, const std::string& value) const {
        const fs::path opener = dir / "opener.sh";
        std::ofstream(opener) << "#!/bin/sh\nprintf '%s\\n' \"$1\" >> '" << (dir / "opened.txt").string()
                              << "'\ncase \"$1\" in quovdemo://*) exit 0;; *) exit 1;; esac\n";
        fs::permissions(opener, fs::perms::owner_all);
        const std::string command = quoted(kBuild / "examples" / "quov-demo") + " " + input + " " + quoted(value) +
                                    " --imei IM-1 --headless --bid-server " + base + " --url-opener " +
                                    quoted(opener) + " >" + quoted(dir / "demo.out") + " 2>" + quoted(dir / "demo.err");
        const int status = std::system(command.c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    fs::path dir;
    std::string base;
    int pid = -1;
    FILE* out = nullptr;
};

TEST(DemoEndToEnd, ClickFiresTrackersWithFilledMacrosAndOpensOnlyTheDeepLinkAKeyClosesWithNeither) {
    const std::tuple<const char*, const char*, const char*> cases[] = {  // input, its value, the last event
        // The portrait creative's box on 375x812 points sits around the screen's centre.
        {"--touch", "187,406", "onQuovSDKAdClicked"},
        {"--key", "a,escape", "onQuovSDKAdClosed"},  // keys through SDL's queue; other keys pass
    };
    for (const auto& [input, value, last] : cases) {
        SCOPED_TRACE(input);
        Session session;
        ASSERT_FALSE(session.base.empty());
        ASSERT_EQ(session.demo(input, value), 0) << testing::PrintToString(readLines(session.dir / "demo.err"));
        Lines events;
        for (const auto& l : readLines(session.dir / "demo.out")) events.push_back(json::parse(l).value("event", "?"));
        EXPECT_EQ(events, (Lines{"onQuovSDKAdLoaded", "onQuovSDKAdDisplayed", last}));
        const auto views = session.hits("/track/view"), clicks = session.hits("/track/click");
        ASSERT_EQ(views.size(), 1u);
        EXPECT_EQ(views[0].value("imei", ""), "IM-1");
        const bool clicked = std::string(last) == "onQuovSDKAdClicked";
        ASSERT_EQ(clicks.size(), clicked ? 1u : 0u);
        const Lines opened = readLines(session.dir / "opened.txt");
        ASSERT_EQ(opened.size(), clicked ? 1u : 0u) << "the deep link opened: nothing else tried";
        if (!clicked) continue;
        EXPECT_EQ(clicks[0].value("oaid", ""), "__OAID__") << "an empty OAID is left in place";
        EXPECT_NE(clicks[0].value("click_up_time", "__CLICK_UP_TIME__"), "__CLICK_UP_TIME__");
    }
}

}  // namespace
