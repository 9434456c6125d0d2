#include "Tests/Support/SyslogCapture.h"

#include <gtest/gtest.h>
#include <syslog.h>

namespace {

using wpp_test::SyslogCapture;

TEST(SyslogCapture, RecordsPriorityAndText) {
    const SyslogCapture capture;
    syslog(LOG_WARNING, "n[%d]", 5);
    ASSERT_EQ(capture.records().size(), 1U);
    EXPECT_EQ(capture.records()[0].priority, LOG_WARNING);
    EXPECT_EQ(capture.records()[0].text, "n[5]");
    EXPECT_TRUE(capture.contains(LOG_WARNING, "n["));
    EXPECT_FALSE(capture.contains(LOG_ERR, "n["));
}

TEST(SyslogCapture, RecordsOpeningAndClosing) {
    const SyslogCapture capture;
    openlog("name", LOG_PID, LOG_USER);
    closelog();
    ASSERT_EQ(capture.openings().size(), 1U);
    EXPECT_EQ(capture.openings()[0].identity, "name");
    EXPECT_EQ(capture.closings(), 1U);
}

TEST(SyslogCapture, ForgetsWhatCameBeforeIt) {
    syslog(LOG_WARNING, "early");
    const SyslogCapture capture;
    EXPECT_TRUE(capture.records().empty());
}

}  // namespace
