#include "platform/UrlOpener.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using quov::platform::makeProgramURLOpener;

namespace {

std::string slurp(const fs::path& path) {
    std::ifstream in(path);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// A stand-in for xdg-open that records each argument it gets, fails for URLs
// containing "fail", and on "hold" stays alive until the test drops a file.
class UrlOpenerTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/quov-opener-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        dir_ = pattern;
        script_ = dir_ / "record-open";
        std::ofstream(script_) << "#!/bin/sh\n"
                                  "d='" << dir_.string() << "'\n"
                                  "printf '%s\\n' \"$1\" >> \"$d/calls\"\n"
                                  "case \"$1\" in\n"
                                  "  *fail*) exit 1 ;;\n"
                                  "  *inspect*) ls /proc/$$/fd > \"$d/fds\"; pwd > \"$d/cwd\";\n"
                                  "             readlink /proc/$$/fd/0 > \"$d/stdin\" ;;\n"
                                  "  *hold*) echo $$ > \"$d/held.tmp\"; mv \"$d/held.tmp\" \"$d/held\"\n"
                                  "          while [ ! -e \"$d/release\" ]; do sleep 0.02; done ;;\n"
                                  "esac\n"
                                  "exit 0\n";
        ::chmod(script_.c_str(), 0755);
    }
    void TearDown() override {
        std::ofstream(dir_ / "release");  // never leave a held child behind
        std::error_code ec;
        fs::remove_all(dir_, ec);
    }

    std::vector<std::string> calls() const {
        std::vector<std::string> lines;
        std::istringstream in(slurp(dir_ / "calls"));
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

    // Asks for every URL at once and returns the answers in asking order.
    std::vector<bool> openAll(const quov::platform::URLOpener& opener,
                              const std::vector<std::optional<std::string>>& urls) {
        std::vector<int> answers(urls.size(), -1);
        std::size_t got = 0;
        for (std::size_t i = 0; i < urls.size(); ++i)
            opener(urls[i], [&, i](bool opened) {
                EXPECT_EQ(answers[i], -1) << "answered twice: " << urls[i].value_or("(null)");
                answers[i] = opened;
                ++got;
            });
        EXPECT_EQ(got, 0u) << "answers must come through the loop, never inline";
        EXPECT_TRUE(loop_.runUntil([&] { return got == urls.size(); }, 20s));
        return std::vector<bool>(answers.begin(), answers.end());
    }

    quov::MainLoop loop_;
    fs::path dir_;
    fs::path script_;
};

TEST_F(UrlOpenerTest, RefusesHostileAndLocalStringsWithoutSpawning) {
    const std::vector<std::optional<std::string>> hostile = {
        std::nullopt,
        "",
        "-e",
        "--help",
        "--new-window=https://example.com",
        "example.com",                     // no scheme
        "/usr/bin/xterm",                  // a path
        "relative/path:thing",
        ":nothing",
        "https:",                          // nothing after the scheme
        "c:evil",                          // a drive letter, not a scheme
        "1http://example.com",             // schemes start with a letter
        "ht tp://example.com",
        "https://",                        // no host
        "https://:443/x",
        "https://example.com/a b",
        "https://example.com/\tb",
        "https://example.com/\nb",
        "https://example.com/\rb",
        std::string("https://example.com/\0b", 22),
        "https://example.com/\x1b[31m",
        "https://example.com/\x7f",
        "https://ex\xc3\xa4mple.com/",     // raw non-ASCII
        "https://example.com/%zz",         // broken escape
        "https://example.com/%4",
        "https://example.com/`id`",
        "https://example.com/\"q\"",
        "https://example.com/<x>",
        "file:///etc/passwd",
        "FILE:///etc/passwd",
        "file:relative",
        "javascript:alert(1)",
        "data:text/html,hi",
        "about:blank",
        "view-source:https://example.com",
        "https://example.com/" + std::string(40000, 'a'),
    };
    const auto answers = openAll(makeProgramURLOpener(script_.string(), loop_), hostile);
    for (std::size_t i = 0; i < hostile.size(); ++i)
        EXPECT_FALSE(answers[i]) << "opened: " << hostile[i].value_or("(null)");
    EXPECT_FALSE(fs::exists(dir_ / "calls")) << "spawned for: " << slurp(dir_ / "calls");
}

TEST_F(UrlOpenerTest, AnswersWhetherTheProgramExitedZeroAndPassesTheURLVerbatim) {
    struct Case {
        std::string url;
        bool opened;
    };
    const std::vector<Case> cases = {
        {"https://example.com/landing?x=1#top", true},
        {"http://127.0.0.1:9/fail", false},
        {"myapp://item/42?ref=ad", true},  // deep links of an app's own scheme
        {"myapp://fail", false},
        {"mailto:someone@example.com", true},
        {"HTTPS://EXAMPLE.COM/%41", true},
        // Shell syntax stays inert text: no shell ever sees it.
        {"https://example.com/?a=1&b=$(touch%20pwned);c='d'|e", false},
        {"https://example.com/?a=1&b=$(touch%20pwned);c='d'", true},
    };
    std::vector<std::optional<std::string>> urls;
    for (const auto& c : cases) urls.push_back(c.url);
    const auto answers = openAll(makeProgramURLOpener(script_.string(), loop_), urls);
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(answers[i], cases[i].opened) << cases[i].url;

    auto got = calls();
    std::vector<std::string> expected;
    for (const auto& c : cases)
        if (c.url.find('|') == std::string::npos) expected.push_back(c.url);
    std::sort(got.begin(), got.end());  // children run concurrently
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(got, expected);
    EXPECT_FALSE(fs::exists("/pwned"));
    EXPECT_FALSE(fs::exists(dir_ / "pwned"));
}

TEST_F(UrlOpenerTest, MissingProgramMeansNotOpened) {
    const auto answers =
        openAll(makeProgramURLOpener((dir_ / "no-such-opener").string(), loop_),
                {"https://example.com/"});
    EXPECT_FALSE(answers.at(0));
    const auto onPath = openAll(makeProgramURLOpener("quov-no-such-opener-on-path", loop_),
                                {"https://example.com/"});
    EXPECT_FALSE(onPath.at(0));
}

TEST_F(UrlOpenerTest, ChildGetsOnlyStdioWithStdinFromDevNullInRoot) {
    // A descriptor the host opened without O_CLOEXEC, at a number no shell uses.
    const int leaked = ::fcntl(STDERR_FILENO, F_DUPFD, 900);
    ASSERT_GE(leaked, 900);
    const auto answers = openAll(makeProgramURLOpener(script_.string(), loop_),
                                 {"https://example.com/inspect"});
    ::close(leaked);
    ASSERT_TRUE(answers.at(0));

    std::istringstream fds(slurp(dir_ / "fds"));
    std::vector<int> open;
    for (int fd; fds >> fd;) open.push_back(fd);
    EXPECT_NE(std::find(open.begin(), open.end(), 0), open.end());
    EXPECT_EQ(std::find(open.begin(), open.end(), leaked), open.end())
        << "the child inherited fd " << leaked;
    EXPECT_EQ(slurp(dir_ / "cwd"), "/\n");
    EXPECT_EQ(slurp(dir_ / "stdin"), "/dev/null\n");
}

TEST_F(UrlOpenerTest, ChildStillRunningAfterPatienceCountsAsOpenedAndIsReapedLater) {
    const auto opener = makeProgramURLOpener(script_.string(), loop_, 50ms);
    const auto answers = openAll(opener, {"https://example.com/hold"});
    EXPECT_TRUE(answers.at(0));

    // The answer came while the child was still held.
    ASSERT_TRUE(fs::exists(dir_ / "held"));
    const pid_t pid = std::stoi(slurp(dir_ / "held"));
    EXPECT_EQ(::kill(pid, 0), 0);

    // Once released it exits and is reaped: kill() stops finding it even as a zombie.
    std::ofstream(dir_ / "release");
    bool gone = false;
    for (int i = 0; i < 2000 && !gone; ++i) {
        gone = ::kill(pid, 0) != 0 && errno == ESRCH;
        if (!gone) ::usleep(10000);
    }
    EXPECT_TRUE(gone) << "child " << pid << " left as a zombie";

    // The opener still works after its worker went idle.
    EXPECT_FALSE(openAll(opener, {"myapp://fail"}).at(0));
}

}  // namespace
