#include "Foundation/QMClock.h"

#include <gtest/gtest.h>
#include <sys/time.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "Tests/Support/LogCapture.h"

namespace {

std::atomic<bool> nextReadFails{false};
std::atomic<bool> nextConversionFails{false};

}  // namespace

// Every call of this program comes through here; the linker gives the functions their names.
extern "C" int __real_gettimeofday(timeval* time, void* zone);
extern "C" int __wrap_gettimeofday(timeval* time, void* zone) {
    if (nextReadFails.exchange(false)) {
        errno = EINVAL;
        return -1;
    }
    return __real_gettimeofday(time, zone);
}

extern "C" std::tm* __real_gmtime_r(const std::time_t* seconds, std::tm* out);
extern "C" std::tm* __wrap_gmtime_r(const std::time_t* seconds, std::tm* out) {
    if (nextConversionFails.exchange(false)) {
        errno = EOVERFLOW;
        return nullptr;
    }
    return __real_gmtime_r(seconds, out);
}

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

TEST(QMClock, ClockThatCannotBeReadIsLoggedAndLeavesTheResult) {
    wpp_test::LogCapture log;
    QMDateTime utc{1, 2, 3, 4, 5, 6, 7};
    nextReadFails = true;
    QMClock::GetUtc(&utc);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] GetUtc()@QMClock("), 1U);
    EXPECT_EQ(log.count(" : std library error [22 : Invalid argument] , gettimeofday()"), 1U);
    EXPECT_EQ(utc.year, 1);
    EXPECT_EQ(utc.second, 7);
}

TEST(QMClock, TimeThatHasNoCalendarFormIsLoggedAndLeavesTheResult) {
    wpp_test::LogCapture log;
    QMDateTime utc{1, 2, 3, 4, 5, 6, 7};
    nextConversionFails = true;
    QMClock::GetUtc(&utc);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] GetUtc()@QMClock("), 1U);
    EXPECT_EQ(log.count(" : std library error [75 : Value too large for defined data type] , gmtime_r()"),
              1U);
    EXPECT_EQ(utc.year, 1);
    EXPECT_EQ(utc.second, 7);
}

}  // namespace
