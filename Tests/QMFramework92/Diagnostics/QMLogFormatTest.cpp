#include "Diagnostics/private/QMLogFormat.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <limits>
#include <string>

namespace {

class QMLogFormat : public testing::Test {
protected:
    void SetUp() override { useTimeZone("UTC0"); }
    void TearDown() override {
        unsetenv("TZ");
        tzset();
    }

    static void useTimeZone(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }

    static std::string compose(std::time_t seconds, long microseconds) {
        qm_detail::TimestampedLine out{};
        timeval time{};
        time.tv_sec = seconds;
        time.tv_usec = static_cast<suseconds_t>(microseconds);
        EXPECT_TRUE(qm_detail::composeTimestampedLine(time, "the line", out));
        return out.data();
    }
};

constexpr std::time_t k2021February3rd040506 = 1612325106;

TEST_F(QMLogFormat, TimestampShowsTwoDigitYearAndMilliseconds) {
    EXPECT_EQ(compose(k2021February3rd040506, 123456), "21/02/03 04:05:06.123 the line");
}

TEST_F(QMLogFormat, MillisecondsAreLeftAlignedInThreeColumns) {
    EXPECT_EQ(compose(k2021February3rd040506, 7999), "21/02/03 04:05:06.7   the line");
}

TEST_F(QMLogFormat, TimestampIsLocalTime) {
    useTimeZone("XYZ-2");
    EXPECT_EQ(compose(k2021February3rd040506, 0), "21/02/03 06:05:06.0   the line");
}

TEST_F(QMLogFormat, LongLineIsCutWhereTheCopyEnds) {
    qm_detail::TimestampedLine out{};
    timeval time{};
    ASSERT_TRUE(qm_detail::composeTimestampedLine(time, std::string(2000, 'x').c_str(), out));
    EXPECT_EQ(std::string(out.data()).size(), out.size() - 1);
}

TEST_F(QMLogFormat, TimeWithoutCalendarFormLeavesTheCopyUntouched) {
    // A 32-bit clock has no such time: its last second is a day in 2038.
    constexpr bool kEveryTimeHasACalendarForm = sizeof(std::time_t) <= 4;
    qm_detail::TimestampedLine out{};
    timeval time{};
    time.tv_sec = std::numeric_limits<std::time_t>::max();
    EXPECT_EQ(qm_detail::composeTimestampedLine(time, "the line", out), kEveryTimeHasACalendarForm);
    EXPECT_EQ(out[0] != '\0', kEveryTimeHasACalendarForm);
}

TEST_F(QMLogFormat, BaseNameIsWhatFollowsTheLastSlash) {
    EXPECT_STREQ(qm_detail::baseName("a/b/c"), "c");
    EXPECT_STREQ(qm_detail::baseName("c"), "c");
    EXPECT_STREQ(qm_detail::baseName("a/"), "");
}

}  // namespace
