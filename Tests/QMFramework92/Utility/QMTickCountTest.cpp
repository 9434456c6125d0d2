#include "Utility/QMTickCount.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <ctime>

#include "Pattern/QMSingleton.h"
#include "Tests/Support/LogCapture.h"

namespace {

enum class Clock { kReal, kFake, kBroken };
std::atomic<Clock> clockKind{Clock::kReal};
timespec fakeTime{};

}  // namespace

// Every clock_gettime of this program comes through here; the linker gives the functions their names.
extern "C" int __real_clock_gettime(clockid_t clock, timespec* out);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* out) {
    if (clock != CLOCK_MONOTONIC || clockKind == Clock::kReal) {
        return __real_clock_gettime(clock, out);
    }
    if (clockKind == Clock::kBroken) {
        errno = EINVAL;
        return -1;
    }
    *out = fakeTime;
    return 0;
}

namespace {

class QMTickCountTest : public testing::Test {
protected:
    void TearDown() override {
        clockKind = Clock::kReal;
        qm_DestroySingletons();
    }

    static std::uint32_t tickAt(std::time_t seconds, long nanoseconds) {
        fakeTime.tv_sec = seconds;
        fakeTime.tv_nsec = nanoseconds;
        clockKind = Clock::kFake;
        return QMTickCount::getInstance()->GetTickCount();
    }
};

TEST_F(QMTickCountTest, SecondsAndNanosecondsBecomeMilliseconds) {
    EXPECT_EQ(tickAt(0, 0), 0U);
    EXPECT_EQ(tickAt(12, 345678901), 12345U);
}

TEST_F(QMTickCountTest, PartsOfAMillisecondAreCutOff) {
    EXPECT_EQ(tickAt(0, 999999), 0U);
    EXPECT_EQ(tickAt(0, 1000000), 1U);
    EXPECT_EQ(tickAt(1, 999999999), 1999U);
}

TEST_F(QMTickCountTest, CountWrapsAfter32Bits) {
    EXPECT_EQ(tickAt(4294967, 294999999), 0xFFFFFFFEU);
    EXPECT_EQ(tickAt(4294967, 295000000), 0xFFFFFFFFU);
    EXPECT_EQ(tickAt(4294967, 296000000), 0U);
    EXPECT_EQ(tickAt(4294967, 297000000), 1U);
}

TEST_F(QMTickCountTest, CountFollowsTheMonotonicClock) {
    const auto nowMs = [] {
        const auto now = std::chrono::steady_clock::now().time_since_epoch();
        return static_cast<std::uint32_t>(std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
    };
    const std::uint32_t before = nowMs();
    const std::uint32_t tick = QMTickCount::getInstance()->GetTickCount();
    const std::uint32_t after = nowMs();
    EXPECT_LE(tick - before, after - before);
}

TEST_F(QMTickCountTest, ClockThatCannotBeReadIsLoggedAndGivesZero) {
    clockKind = Clock::kBroken;
    wpp_test::LogCapture log;
    EXPECT_EQ(QMTickCount::getInstance()->GetTickCount(), 0U);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] GetTickCount()@QMTickCount("), 1U);
    EXPECT_EQ(log.count(" : std library error [22 : Invalid argument] , clock_gettime()"), 1U);
}

}  // namespace
