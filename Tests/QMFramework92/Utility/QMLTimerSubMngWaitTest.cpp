// How the timer thread waits: for how long, between which hooks, and what becomes of a wait that fails.

#include <gtest/gtest.h>

#include <chrono>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "Pattern/QMSingleton.h"
#include "Tests/QMFramework92/Utility/FakeNiceValues.h"
#include "Tests/QMFramework92/Utility/TestTimers.h"
#include "Tests/QMFramework92/Utility/WaitWatch.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/LogCapture.h"
#include "Utility/QMLTimerSubMng.h"

namespace {

using std::chrono::milliseconds;
using wpp_test::CountingTimer;
using wpp_test::FakeNiceValues;
using wpp_test::LogCapture;
using wpp_test::Stopwatch;
using wpp_test::waitUntil;
using wpp_test::WaitWatch;

constexpr std::uint32_t kJoinLimitMs = 10000;
constexpr std::uint32_t kHourMs = 3600000;

class QMLTimerSubMngWaitTest : public testing::Test {
protected:
    void TearDown() override {
        subMng.Stop(kJoinLimitMs);
        qm_DestroySingletons();
    }

    void start() {
        watch.follow("watched");
        ASSERT_TRUE(subMng.Start("watched"));
        ASSERT_TRUE(waitForWaits(1));
    }

    static bool waitForWaits(std::size_t count) {
        return waitUntil([count] { return WaitWatch::limits().size() >= count; });
    }

    static bool waitForCount(const CountingTimer& timer, int count) {
        return waitUntil([&timer, count] { return timer.count() >= count; });
    }

    FakeNiceValues niceValues;
    WaitWatch watch;
    QMLTimerSubMng subMng{30, 198};
};

TEST_F(QMLTimerSubMngWaitTest, ThreadWithoutTimersWaitsWithoutLimit) {
    start();
    EXPECT_LT(WaitWatch::limits().back(), 0);
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, kHourMs));
    ASSERT_TRUE(waitForWaits(2));
    EXPECT_GT(WaitWatch::limits().back(), 0);
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngWaitTest, ThreadWaitsForTheNextDueTimer) {
    start();
    CountingTimer slow;
    CountingTimer quick;
    ASSERT_TRUE(subMng.Add(&slow, 2 * kHourMs));
    ASSERT_TRUE(waitForWaits(2));
    ASSERT_TRUE(subMng.Add(&quick, kHourMs));
    ASSERT_TRUE(waitForWaits(3));
    EXPECT_LE(WaitWatch::limits().back(), static_cast<int>(kHourMs));
    EXPECT_GT(WaitWatch::limits().back(), static_cast<int>(kHourMs) - 60000);
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngWaitTest, LongestIntervalIsWaitedForInPartsThatAWaitCanTake) {
    start();
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, 0xFFFFFFFF));
    ASSERT_TRUE(waitForWaits(2));
    EXPECT_GT(WaitWatch::limits().back(), INT_MAX - 60000);
    EXPECT_EQ(timer.count(), 0);
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngWaitTest, EachWaitLiesBetweenTheWatchdogsHooks) {
    start();
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, 1));
    ASSERT_TRUE(waitForCount(timer, 3));
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
    const std::vector<std::string> steps = WaitWatch::steps();
    ASSERT_GE(steps.size(), 9U);
    ASSERT_EQ(steps.size() % 3, 0U);
    for (std::size_t i = 0; i < steps.size(); i += 3) {
        EXPECT_EQ(steps[i], "enter");
        EXPECT_EQ(steps[i + 1], "wait");
        EXPECT_EQ(steps[i + 2], "leave");
    }
}

TEST_F(QMLTimerSubMngWaitTest, FailedWaitIsReportedAndWaitedAgain) {
    LogCapture log;
    start();
    CountingTimer timer;
    WaitWatch::failNext(2);
    const Stopwatch stopwatch;
    ASSERT_TRUE(subMng.Add(&timer, 1));
    EXPECT_TRUE(waitForCount(timer, 3));
    EXPECT_EQ(WaitWatch::failuresLeft(), 0);
    // A wait that fails at once is not tried again at once.
    EXPECT_GE(stopwatch.elapsed(), milliseconds(199));
    EXPECT_EQ(log.count("ASSERT Failed! - QMFramework92/Utility/private/QMLTimerSubMng("), 2U);
    EXPECT_GT(log.count("dumpDirectly()@QMCallStack("), 0U);
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngWaitTest, ThreadWhoseWaitsAllFailCanBeStopped) {
    LogCapture log;
    start();
    WaitWatch::failNext(INT_MAX);
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, kHourMs));
    ASSERT_TRUE(log.waitFor("ASSERT Failed! - QMFramework92/Utility/private/QMLTimerSubMng("));
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
    EXPECT_EQ(timer.count(), 0);
}

}  // namespace
