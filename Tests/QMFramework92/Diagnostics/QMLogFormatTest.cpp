#include "Diagnostics/private/QMLogFormat.h"

#include <gtest/gtest.h>

#include <array>
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

TEST(TextWriter, PiecesStandInTheirOrder) {
    std::array<char, 64> buffer;
    qm_detail::TextWriter text(buffer);
    EXPECT_STREQ(buffer.data(), "");
    text.append('[', "word", "] ", -7, ':', std::numeric_limits<int>::min());
    text.pad(2);
    text.append('.');
    EXPECT_STREQ(buffer.data(), "[word] -7:-2147483648  .");
    EXPECT_EQ(text.length(), 24U);
}

TEST(TextWriter, WhatDoesNotFitIsCutAndTheTextEnds) {
    std::array<char, 6> buffer;
    qm_detail::TextWriter text(buffer);
    text.append("abc", 12345, 'd');
    text.pad(9);
    EXPECT_STREQ(buffer.data(), "abc12");
    EXPECT_EQ(text.length(), 5U);
}

TEST(TextWriter, NullTextIsShownAsSuch) {
    std::array<char, 16> buffer;
    qm_detail::TextWriter text(buffer);
    const char* const none = nullptr;
    text.append(none);
    EXPECT_STREQ(buffer.data(), "(null)");
}

TEST(TextWriter, TwoDigitsAreTheLeastThatAreShown) {
    std::array<char, 32> buffer;
    qm_detail::TextWriter text(buffer);
    for (const int number : {0, 9, 10, 123, -5}) {
        text.appendTwoDigits(number);
        text.append(' ');
    }
    EXPECT_STREQ(buffer.data(), "00 09 10 123 -5 ");
}

}  // namespace
