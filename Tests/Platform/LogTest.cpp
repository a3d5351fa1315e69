#include "Platform/System/Log.h"

#include "CapturedStream.h"
#include "Support/Testing.h"

TEST(Log, WritesErrorsAloneToStandardErrorWhereThereIsNoJournal)
{
    if (::access("/run/systemd/journal/socket", W_OK) == 0)
        GTEST_SKIP() << "there is a journal";
    CapturedStream captured(STDERR_FILENO);
    const tdw::Log log("org.tidewell.Tidewell", "Test");
    log.debug("1");
    log.info("2");
    log.notice("3");
    log.error("cannot\nconnect to \x1b[31m\xff");
    EXPECT_EQ(captured.text(),
        "org.tidewell.Tidewell (Test): cannot\\nconnect to \\u001b[31m\xef\xbf\xbd\n");
}
