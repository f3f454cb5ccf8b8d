#include "platform/runtime/Log.h"
#include "support/LogCapture.h"

#include <gtest/gtest.h>

namespace {

TEST(Log, FillsPlaceholdersInOrderAndRendersAbsentAsNull) {
    quov::test::LogCapture log;
    quov::platform::QVLog("Init Finished, AppId: %@ AppKey %@", quov::platform::orNull(std::nullopt),
                          quov::platform::orNull(std::string("")));
    quov::platform::QVLog("GET URL WITH retry, %lu, %@", "3", "http://x/?a=%41");
    quov::platform::QVLog("Please call `setup` initialize first");
    // Placeholders beyond the arguments stay as written; a lone % is text.
    quov::platform::QVLog("100% of %@ and %@", "one");
    EXPECT_EQ(log.lines(), (std::vector<std::string>{
                               "Init Finished, AppId: (null) AppKey ",
                               "GET URL WITH retry, 3, http://x/?a=%41",
                               "Please call `setup` initialize first",
                               "100% of one and %@",
                           }));
}

}  // namespace

namespace {

TEST(Log, DefaultHandlerShowsControlCharactersAsEscapesSoNoLineIsForged) {
    struct Case {
        std::string in;
        std::string shown;
    };
    const Case cases[] = {
        {"Reqeust failed, response: x\nInit Finished, AppId: forged",
         "Reqeust failed, response: x\\nInit Finished, AppId: forged"},
        {"a\r\tb", "a\\r\\tb"},
        {"\x1b[2J\x1b]0;title\x07", "\\x1b[2J\\x1b]0;title\\x07"},
        {std::string("nul\0del\x7f", 8), "nul\\x00del\\x7f"},
        {"csi \xc2\x9b" "31m", "csi \\u009b31m"},
        {"协商失败 é \xc2\xa0ok", "协商失败 é \xc2\xa0ok"},  // printable UTF-8 stays
    };
    for (const Case& c : cases) {
        testing::internal::CaptureStderr();
        quov::platform::logLine(c.in);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), c.shown + "\n");
    }
}

TEST(Log, HandlerGetsLevelsAndUnchangedTextWhileTheDefaultHidesDebugUntilAsked) {
    std::vector<std::pair<quov::LogLevel, std::string>> seen;
    quov::setLogHandler([&](quov::LogLevel level, const std::string& line) { seen.emplace_back(level, line); });
    EXPECT_TRUE(quov::platform::debugLogWanted());
    quov::platform::logLine("info\nline");
    quov::platform::QVDebug("why: %@", "refused");
    quov::setLogHandler({});
    EXPECT_EQ(seen, (std::vector<std::pair<quov::LogLevel, std::string>>{
                        {quov::LogLevel::Info, "info\nline"}, {quov::LogLevel::Debug, "why: refused"}}));

    testing::internal::CaptureStderr();
    quov::platform::QVDebug("hidden %@", "1");
    quov::setDebugLogging(true);
    quov::platform::QVDebug("shown %@", "2");
    quov::setDebugLogging(false);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "shown 2\n");

    // The line-only sink is for Info lines: hosts that match texts see no new ones.
    quov::test::LogCapture capture;
    quov::platform::logDebug("debug");
    quov::platform::logLine("info");
    EXPECT_EQ(capture.lines(), std::vector<std::string>{"info"});
}

}  // namespace
