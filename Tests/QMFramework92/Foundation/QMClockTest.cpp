#include "Foundation/QMClock.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "Tests/Support/LogCapture.h"

namespace {

std::tm calendarOf(const QMDateTime& utc) {
    std::tm calendar{};
    calendar.tm_year = utc.year - 1900;
    calendar.tm_mon = utc.month - 1;
    calendar.tm_mday = utc.day;
    calendar.tm_hour = utc.hour;
    calendar.tm_min = utc.minute;
    calendar.tm_sec = utc.second;
    return calendar;
}

TEST(QMClock, GetUtcReadsThePresentTime) {
    QMDateTime utc{};
    const std::time_t before = std::time(nullptr);
    QMClock::GetUtc(&utc);
    const std::time_t after = std::time(nullptr);
    std::tm calendar = calendarOf(utc);
    const std::time_t read = timegm(&calendar);
    // time() may lag behind the finer clock by a tick.
    EXPECT_GE(read, before);
    EXPECT_LE(read, after + 1);
}

TEST(QMClock, DayOfTheWeekCountsFromSunday) {
    QMDateTime utc{};
    QMClock::GetUtc(&utc);
    std::tm calendar = calendarOf(utc);
    timegm(&calendar);
    EXPECT_EQ(utc.dayOfWeek, calendar.tm_wday);
}

TEST(QMClock, LocalTimeZoneDoesNotMatter) {
    QMDateTime utc{};
    const std::time_t before = std::time(nullptr);
    setenv("TZ", "XYZ-9", 1);
    QMClock::GetUtc(&utc);
    unsetenv("TZ");
    tzset();
    std::tm calendar = calendarOf(utc);
    EXPECT_LT(timegm(&calendar) - before, 3600);
}

TEST(QMClock, NullPointerIsLogged) {
    wpp_test::LogCapture log;
    QMClock::GetUtc(nullptr);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] GetUtc()@QMClock("), 1U);
    EXPECT_EQ(log.count(" : invalid arg"), 1U);
}

}  // namespace
