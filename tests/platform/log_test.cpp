#include "platform/runtime/Log.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

using namespace quov::platform;

TEST(Log, FillsPlaceholdersInOrderAndRendersAbsentAsNull) {
    quov::test::LogCapture log;
    QVLog("Init Finished, AppId: %@ AppKey %@", orNull(std::nullopt), orNull(std::string("")));
    QVLog("GET URL WITH retry, %lu, %@", "3", "http://x/?a=%41");
    QVLog("100% of %@ and %@", "one");  // a lone % is text; unfilled placeholders stay
    EXPECT_EQ(log.lines(), (std::vector<std::string>{"Init Finished, AppId: (null) AppKey ",
                                                     "GET URL WITH retry, 3, http://x/?a=%41", "100% of one and %@"}));
}

TEST(Log, DefaultHandlerShowsControlCharactersAsEscapesSoNoLineIsForged) {
    const std::pair<std::string, std::string> cases[] = {
        {"Reqeust failed, response: x\nInit Finished, AppId: forged",
         "Reqeust failed, response: x\\nInit Finished, AppId: forged"},
        {"a\r\tb", "a\\r\\tb"},
        {"\x1b[2J\x1b]0;title\x07", "\\x1b[2J\\x1b]0;title\\x07"},
        {std::string("nul\0del\x7f", 8), "nul\\x00del\\x7f"},
        {"csi \xc2\x9b" "31m", "csi \\u009b31m"},
        {"协商失败 é \xc2\xa0ok", "协商失败 é \xc2\xa0ok"},  // printable UTF-8 stays
    };
    for (const auto& [in, shown] : cases) {
        testing::internal::CaptureStderr();
        logLine(in);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), shown + "\n");
    }
}

TEST(Log, HandlerGetsLevelsAndUnchangedTextWhileTheDefaultHidesDebugUntilAsked) {
    std::vector<std::pair<quov::LogLevel, std::string>> seen;
    quov::setLogHandler([&](quov::LogLevel level, const std::string& line) { seen.emplace_back(level, line); });
    logLine("info\nline");
    QVDebug("why: %@", "refused");
    quov::setLogHandler({});
    EXPECT_EQ(seen, (std::vector<std::pair<quov::LogLevel, std::string>>{
                        {quov::LogLevel::Info, "info\nline"}, {quov::LogLevel::Debug, "why: refused"}}));
    testing::internal::CaptureStderr();
    for (bool wanted : {false, true, false}) quov::setDebugLogging(wanted), QVDebug("shown: %@", wanted ? "yes" : "no");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "shown: yes\n");
    quov::test::LogCapture capture;  // the line-only sink is for Info lines
    logDebug("debug");
    logLine("info");
    EXPECT_EQ(capture.lines(), std::vector<std::string>{"info"});
}

}  // namespace
