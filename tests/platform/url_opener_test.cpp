#include "platform/opener/UrlOpener.h"

#include <quov/MainLoop.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using quov::platform::makeProgramURLOpener;
using quov::platform::setAllowedURLSchemes;
using URLs = std::vector<std::optional<std::string>>;

namespace {

std::string slurp(const fs::path& path) {
    std::stringstream s;
    s << std::ifstream(path).rdbuf();
    return s.str();
}

// A stand-in for xdg-open that records each argument, fails for URLs containing
// "fail" and reports its surroundings on "inspect".
class UrlOpenerTest : public ::testing::Test {
protected:
    void SetUp() override {
        char pattern[] = "/tmp/quov-opener-XXXXXX";
        ASSERT_NE(::mkdtemp(pattern), nullptr);
        dir_ = pattern;
        script_ = (dir_ / "record-open").string();
        std::ofstream(script_) << "#!/bin/sh\nd='" << dir_.string() << "'\nprintf '%s\\n' \"$1\" >> \"$d/calls\"\n"
            "case \"$1\" in\n  *fail*) exit 1 ;;\n"
            "  *inspect*) ls /proc/$$/fd > \"$d/fds\"; pwd > \"$d/cwd\"; env > \"$d/env\"\n"
            "             readlink /proc/$$/fd/0 > \"$d/stdin\" ;;\nesac\n";
        ::chmod(script_.c_str(), 0755);
    }
    void TearDown() override {
        setAllowedURLSchemes({});
        fs::remove_all(dir_);
    }

    // Asks for every URL at once; the answers in asking order.
    std::vector<bool> openAll(const URLs& urls, std::string program = {}) {
        const auto opener = makeProgramURLOpener(program.empty() ? script_ : program, loop_);
        std::vector<int> answers(urls.size(), -1);
        std::size_t got = 0;
        for (std::size_t i = 0; i < urls.size(); ++i)
            opener(urls[i], [&, i](bool opened) {
                EXPECT_EQ(answers[i], -1) << "answered twice: " << urls[i].value_or("(null)");
                answers[i] = opened, ++got;
            });
        EXPECT_EQ(got, 0u) << "answers must come through the loop, never inline";
        EXPECT_TRUE(loop_.runUntil([&] { return got == urls.size(); }, 20s));
        return std::vector<bool>(answers.begin(), answers.end());
    }

    quov::MainLoop loop_;
    fs::path dir_;
    std::string script_;
};

TEST_F(UrlOpenerTest, HandsOnOnlyHttpAndRegisteredSchemesVerbatimAndAnswersWhetherTheProgramExitedZero) {
    EXPECT_EQ(setAllowedURLSchemes({"MyApp", "x", "1app", "my app", "file", "JavaScript", "", "shop+v2"}),
              (std::vector<std::string>{"x", "1app", "my app", "file", "JavaScript", ""}))
        << "the refused ones";
    URLs urls = {  // hostile or local: refused without spawning
        std::nullopt, "", "-e", "--new-window=https://example.com", "example.com", "/usr/bin/xterm", ":nothing",
        "https:", "c:evil", "1http://example.com", "ht tp://example.com", "https://", "https://:443/x",
        "https://example.com/a b", "https://example.com/\nb", std::string("https://example.com/\0b", 22),
        "https://example.com/\x1b[31m", "https://example.com/\x7f", "https://ex\xc3\xa4mple.com/",
        "https://example.com/%zz", "https://example.com/`id`", "https://example.com/<x>", "javascript:alert(1)",
        "ghelp:///proc/self/cwd", "https://example.com/" + std::string(40000, 'a'),
    };
    std::vector<bool> expected(urls.size(), false);
    const std::pair<std::string, bool> cases[] = {
        {"https://example.com/landing?x=1#top", true}, {"http://127.0.0.1:9/fail", false},
        {"myapp://item/42?ref=ad", true},              {"MYAPP://fail", false},
        {"HTTPS://EXAMPLE.COM/%41", true},             {"shop+v2:open", true},
        {"https://example.com/?a=1&b=$(touch%20pwned);c='d'", true},  // inert: no shell
        {"myapp2://item", false}, {"vscode://file/etc/passwd", false}, {"file:///etc/passwd", false},
    };
    std::multiset<std::string> spawned;  // the children run concurrently
    for (const auto& [url, opened] : cases) {
        urls.push_back(url);
        expected.push_back(opened);
        if (opened || url.find("fail") != std::string::npos) spawned.insert(url);
    }
    EXPECT_EQ(openAll(urls), expected);
    std::istringstream in(slurp(dir_ / "calls"));
    std::multiset<std::string> got;
    for (std::string line; std::getline(in, line);) got.insert(line);
    EXPECT_EQ(got, spawned);

    setAllowedURLSchemes({"other"});  // a later list replaces the earlier one
    EXPECT_FALSE(openAll({"myapp://item/1"})[0]);
    for (const auto& program : {(dir_ / "no-such-opener").string(), std::string("quov-none")})
        EXPECT_FALSE(openAll({"https://example.com/"}, program)[0]);
}

TEST_F(UrlOpenerTest, ChildGetsOnlyStdioWithStdinFromDevNullInRootAndNoSecrets) {
    const int leaked = ::fcntl(STDERR_FILENO, F_DUPFD, 900);  // opened by the host without O_CLOEXEC
    ASSERT_GE(leaked, 900);
    ::setenv("QUOV_TEST_SECRET", "token", 1);
    ::setenv("XDG_CURRENT_DESKTOP", "test", 1);
    const bool opened = openAll({"https://e.com/inspect"})[0];
    ::unsetenv("QUOV_TEST_SECRET");
    ::close(leaked);
    ASSERT_TRUE(opened);
    const std::string fds = "\n" + slurp(dir_ / "fds");
    EXPECT_EQ(fds.find("\n" + std::to_string(leaked) + "\n"), std::string::npos) << fds;
    EXPECT_EQ(slurp(dir_ / "cwd"), "/\n");
    EXPECT_EQ(slurp(dir_ / "stdin"), "/dev/null\n");
    const std::string env = slurp(dir_ / "env");
    EXPECT_EQ(env.find("QUOV_TEST_SECRET"), std::string::npos) << env;
    EXPECT_NE(env.find("XDG_CURRENT_DESKTOP=test"), std::string::npos) << env;
}

}  // namespace
