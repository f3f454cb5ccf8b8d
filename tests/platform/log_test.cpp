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

TEST(Log, DefaultSinkIsStandardErrorAfterACaptureEnds) {
    {
        quov::test::LogCapture log;
        quov::platform::logLine("captured");
        EXPECT_EQ(log.lines().size(), 1u);
    }
    testing::internal::CaptureStderr();
    quov::platform::logLine("to stderr");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "to stderr\n");
}

}  // namespace
