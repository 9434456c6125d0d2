#include "Utility/QMLTimerSubMng.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/QMThreadMng.h"
#include "Pattern/QMSingleton.h"
#include "Tests/QMFramework92/Utility/FailingJoin.h"
#include "Tests/QMFramework92/Utility/FakeNiceValues.h"
#include "Tests/QMFramework92/Utility/FakeTickSource.h"
#include "Tests/QMFramework92/Utility/NamedThreads.h"
#include "Tests/QMFramework92/Utility/TestTimers.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"

namespace {

using std::chrono::milliseconds;
using wpp_test::ActingTimer;
using wpp_test::CountingTimer;
using wpp_test::EmptyHeap;
using wpp_test::FailingJoin;
using wpp_test::FakeNiceValues;
using wpp_test::FakeTickSource;
using wpp_test::kGenerousLimit;
using wpp_test::LogCapture;
using wpp_test::NoMoreThreads;
using wpp_test::Stopwatch;
using wpp_test::threadsNamed;
using wpp_test::waitUntil;

constexpr std::uint32_t kJoinLimitMs = 10000;
constexpr std::uint32_t kConfiguration = 30;
constexpr int kPriority = 198;
constexpr std::uint32_t kHourMs = 3600000;

class QMLTimerSubMngTest : public testing::Test {
protected:
    void TearDown() override { qm_DestroySingletons(); }

    static bool waitForCount(const CountingTimer& timer, int count) {
        return waitUntil([&timer, count] { return timer.count() >= count; });
    }

    /// What the registry knows of the thread that fires a timer.
    static QMThreadRecord recordOfTimerThread(QMLTimerSubMng& subMng) {
        QMThreadRecord record{};
        std::atomic<bool> done{false};
        ActingTimer timer([&] {
            if (!done) {
                EXPECT_TRUE(QMThreadMng::getInstance()->FindThread(pthread_self(), record));
                done = true;
            }
        });
        EXPECT_TRUE(subMng.Add(&timer, 1));
        EXPECT_TRUE(waitUntil([&done] { return done.load(); }));
        EXPECT_TRUE(subMng.Remove(&timer));
        return record;
    }

    FakeNiceValues niceValues;
};

TEST_F(QMLTimerSubMngTest, KeepsItsConfigurationAndItsPriority) {
    QMLTimerSubMng subMng(50, 200);
    EXPECT_EQ(subMng.GetConfiguration(), 50U);
    EXPECT_EQ(subMng.GetThreadPriority(), 200);
}

TEST_F(QMLTimerSubMngTest, ThreadRunsUnderItsNameValueAndPriority) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    LogCapture log;
    ASSERT_TRUE(subMng.Start("KLTimerSubMng_7"));
    const QMThreadRecord record = recordOfTimerThread(subMng);
    EXPECT_STREQ(record.name, "KLTimerSubMng_7");
    EXPECT_EQ(record.registryValue, 4000U);
    EXPECT_EQ(record.priority, kPriority);
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMLTimerSubMngTest, ThreadIsNamedAfterTheClassByDefault) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    ASSERT_TRUE(subMng.Start());
    EXPECT_STREQ(recordOfTimerThread(subMng).name, "QMLTimerSubMng");
}

TEST_F(QMLTimerSubMngTest, ThreadHasItsPriorityWhenStartReturns) {
    for (int round = 0; round < 50; ++round) {
        QMLTimerSubMng subMng(kConfiguration, kPriority);
        ASSERT_TRUE(subMng.Start());
        QMThreadRecord record = recordOfTimerThread(subMng);
        ASSERT_EQ(record.priority, kPriority) << round;
    }
}

TEST_F(QMLTimerSubMngTest, TimersFireWhereThePriorityIsNotToBeHad) {
    FakeNiceValues::refuseRaises();
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    LogCapture log;
    EXPECT_FALSE(subMng.Start());
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count(", setpriority()"), 1U);
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, 1));
    EXPECT_TRUE(waitForCount(timer, 3));
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngTest, SecondStartOfARunningThreadFailsAndTheFirstRunsOn) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    ASSERT_TRUE(subMng.Start("first"));
    LogCapture log;
    EXPECT_FALSE(subMng.Start("second"));
    EXPECT_EQ(log.count(" : error [second]"), 1U);
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, 1));
    EXPECT_TRUE(waitForCount(timer, 3));
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngTest, ThreadThatCannotBeCreatedFailsTheStartAndMayBeStartedLater) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    LogCapture log;
    {
        const NoMoreThreads limit;
        EXPECT_FALSE(subMng.Start("unborn"));
    }
    EXPECT_EQ(log.count("QMThread::Start() failed !! [unborn]"), 1U);
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
    EXPECT_TRUE(subMng.Start("born"));
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, 1));
    EXPECT_TRUE(waitForCount(timer, 1));
    subMng.Remove(&timer);
}

TEST_F(QMLTimerSubMngTest, TraitsRefuseAStartWithoutAnOwner) {
    QMThread<QMLTimerSubMng> thread(nullptr, QMLTimerSubMng::kRegistryValue);
    LogCapture log;
    EXPECT_FALSE(thread.Start("orphan"));
    EXPECT_EQ(log.count(" : error [orphan]"), 1U);
}

TEST_F(QMLTimerSubMngTest, TimerFiresAgainAndAgainNeverEarly) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    ASSERT_TRUE(subMng.Start());
    CountingTimer timer;
    const Stopwatch stopwatch;
    ASSERT_TRUE(subMng.Add(&timer, 50));
    ASSERT_TRUE(waitForCount(timer, 3));
    // The tick that an interval begins with may be almost over.
    EXPECT_GE(stopwatch.elapsed(), milliseconds(149));
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
    EXPECT_TRUE(subMng.Remove(&timer));
    const std::vector<QMLTimerEntry> seen = timer.seen();
    for (std::size_t i = 1; i < seen.size(); ++i) {
        EXPECT_EQ((seen[i].dueMs - seen[i - 1].dueMs) % 50, 0U);
    }
}

TEST_F(QMLTimerSubMngTest, TimerOfTheDefaultSourceIsDueOneIntervalFromNow) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    CountingTimer timer;
    const std::uint32_t before = QMTickCount::getInstance()->GetTickCount();
    ASSERT_TRUE(subMng.Add(&timer, kHourMs));
    const std::uint32_t after = QMTickCount::getInstance()->GetTickCount();
    QMLTimerEntry entry{};
    ASSERT_TRUE(subMng.Find(&timer, &entry));
    EXPECT_LE(entry.dueMs - kHourMs - before, after - before);
}

TEST_F(QMLTimerSubMngTest, AddingTheSameTimerTwiceLeavesOneEntry) {
    FakeTickSource ticks;
    QMLTimerSubMng subMng(kConfiguration, kPriority, ticks);
    CountingTimer timer;
    EXPECT_TRUE(subMng.Add(&timer, 10));
    EXPECT_FALSE(subMng.Add(&timer, 20));
    EXPECT_EQ(subMng.Count(), 1U);
    ticks.advance(20);
    subMng.RunTimerPass();
    EXPECT_EQ(timer.count(), 1);
    EXPECT_TRUE(subMng.Remove(&timer));
    EXPECT_FALSE(subMng.Find(&timer));
    EXPECT_FALSE(subMng.Remove(&timer));
}

TEST_F(QMLTimerSubMngTest, NullTimerIsRefusedSilently) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    LogCapture log;
    EXPECT_FALSE(subMng.Add(nullptr, 10));
    EXPECT_FALSE(subMng.Find(nullptr));
    EXPECT_FALSE(subMng.Remove(nullptr));
    EXPECT_EQ(subMng.Count(), 0U);
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMLTimerSubMngTest, TimerThatFindsNoMemoryIsRefused) {
    FakeTickSource ticks;
    QMLTimerSubMng subMng(kConfiguration, kPriority, ticks);
    CountingTimer timer;
    bool added = true;
    {
        const EmptyHeap heap;
        added = subMng.Add(&timer, 10);
    }
    EXPECT_FALSE(added);
    EXPECT_FALSE(subMng.Find(&timer));
    EXPECT_TRUE(subMng.Add(&timer, 10));
}

TEST_F(QMLTimerSubMngTest, FindFillsTheEntryThatIsGiven) {
    FakeTickSource ticks(100);
    QMLTimerSubMng subMng(kConfiguration, kPriority, ticks);
    CountingTimer timer;
    QMLTimerEntry entry{nullptr, 1, 2, 3};
    EXPECT_FALSE(subMng.Find(&timer, &entry));
    EXPECT_EQ(entry.dueMs, 2U);
    ASSERT_TRUE(subMng.Add(&timer, 10));
    EXPECT_TRUE(subMng.Find(&timer));
    EXPECT_TRUE(subMng.Find(&timer, &entry));
    EXPECT_EQ(entry.timer, &timer);
    EXPECT_EQ(entry.intervalMs, 10U);
    EXPECT_EQ(entry.dueMs, 110U);
    EXPECT_EQ(entry.flag, 0U);
}

TEST_F(QMLTimerSubMngTest, PassTellsNoTimerFromTheNextWait) {
    FakeTickSource ticks;
    QMLTimerSubMng subMng(kConfiguration, kPriority, ticks);
    EXPECT_EQ(subMng.RunTimerPass(), std::nullopt);
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, 10));
    EXPECT_EQ(subMng.RunTimerPass(), 10U);
    ticks.advance(4);
    EXPECT_EQ(subMng.RunTimerPass(), 6U);
    EXPECT_EQ(timer.count(), 0);
    ticks.advance(6);
    EXPECT_EQ(subMng.RunTimerPass(), 10U);
    EXPECT_EQ(timer.count(), 1);
}

TEST_F(QMLTimerSubMngTest, TimeThatFiringTakesIsNotWaitedForAgain) {
    FakeTickSource ticks;
    QMLTimerSubMng subMng(kConfiguration, kPriority, ticks);
    ActingTimer slow([&ticks] { ticks.advance(7); });
    ASSERT_TRUE(subMng.Add(&slow, 10));
    ticks.advance(10);
    EXPECT_EQ(subMng.RunTimerPass(), 3U);
}

TEST_F(QMLTimerSubMngTest, TimerThatFellDueDuringThePassIsDueNow) {
    FakeTickSource ticks;
    QMLTimerSubMng subMng(kConfiguration, kPriority, ticks);
    ActingTimer slow([&ticks] { ticks.advance(25); });
    ASSERT_TRUE(subMng.Add(&slow, 10));
    ticks.advance(10);
    EXPECT_EQ(subMng.RunTimerPass(), 0U);
}

TEST_F(QMLTimerSubMngTest, DueTimersStillFireAfterTheTickHasWrapped) {
    FakeTickSource ticks(0xFFFFFFFF - 99);
    QMLTimerSubMng subMng(kConfiguration, kPriority, ticks);
    CountingTimer before;
    CountingTimer at;
    CountingTimer after;
    CountingTimer longest;
    ASSERT_TRUE(subMng.Add(&before, 60));
    ASSERT_TRUE(subMng.Add(&at, 100));
    ASSERT_TRUE(subMng.Add(&after, 140));
    ASSERT_TRUE(subMng.Add(&longest, 0xFFFFFFFF));
    for (int ms = 0; ms < 150; ++ms) {
        ticks.advance(1);
        subMng.RunTimerPass();
    }
    EXPECT_EQ(before.count(), 2);
    EXPECT_EQ(at.count(), 1);
    EXPECT_EQ(after.count(), 1);
    EXPECT_EQ(longest.count(), 0);
    subMng.Remove(&before);
    subMng.Remove(&at);
    subMng.Remove(&after);
    ticks.set(0xFFFFFFFF - 101);
    EXPECT_EQ(subMng.RunTimerPass(), 1U);
    ticks.advance(1);
    subMng.RunTimerPass();
    EXPECT_EQ(longest.count(), 1);
}

TEST_F(QMLTimerSubMngTest, RunningThreadServesTimersOverTheWrap) {
    // The real time, moved so that it wraps while the test runs.
    class NearTheWrap : public QMTickSource {
    public:
        NearTheWrap() : offset(0xFFFFFFFF - 30 - QMTickCount::getInstance()->GetTickCount()) {}
        std::uint32_t GetTickCount() override { return QMTickCount::getInstance()->GetTickCount() + offset; }

    private:
        const std::uint32_t offset;
    } ticks;
    QMLTimerSubMng subMng(kConfiguration, kPriority, ticks);
    CountingTimer timer;
    const Stopwatch stopwatch;
    ASSERT_TRUE(subMng.Add(&timer, 10));
    ASSERT_TRUE(subMng.Start());
    EXPECT_TRUE(waitUntil([&ticks] { return ticks.GetTickCount() < 0x80000000; }));
    EXPECT_TRUE(waitForCount(timer, timer.count() + 3));
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngTest, ClearedTimersFireNoMore) {
    FakeTickSource ticks;
    QMLTimerSubMng subMng(kConfiguration, kPriority, ticks);
    std::deque<CountingTimer> timers(3);
    for (CountingTimer& timer : timers) {
        ASSERT_TRUE(subMng.Add(&timer, 10));
    }
    subMng.ClearAll();
    EXPECT_EQ(subMng.Count(), 0U);
    ticks.advance(10);
    EXPECT_EQ(subMng.RunTimerPass(), std::nullopt);
    EXPECT_EQ(timers[0].count(), 0);
}

TEST_F(QMLTimerSubMngTest, TimersAddedBeforeTheStartFireAfterIt) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, 1));
    ASSERT_TRUE(subMng.Start());
    EXPECT_TRUE(waitForCount(timer, 2));
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngTest, ShorterTimerWakesAThreadThatWaitsForALongerOne) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    ASSERT_TRUE(subMng.Start());
    CountingTimer slow;
    CountingTimer quick;
    ASSERT_TRUE(subMng.Add(&slow, kHourMs));
    ASSERT_TRUE(subMng.Add(&quick, 5));
    EXPECT_TRUE(waitForCount(quick, 2));
    EXPECT_EQ(slow.count(), 0);
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngTest, StoppedThreadFiresNoMoreAndItsTimersStay) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    CountingTimer timer;
    ASSERT_TRUE(subMng.Start());
    ASSERT_TRUE(subMng.Add(&timer, 1));
    ASSERT_TRUE(waitForCount(timer, 1));
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
    QMLTimerEntry entry{};
    ASSERT_TRUE(subMng.Find(&timer, &entry));
    const int fired = timer.count();
    // Long past its due time, it has not fired: the entry stands where it stood.
    EXPECT_TRUE(waitUntil(
        [&entry] { return QMTickCount::getInstance()->GetTickCount() - entry.dueMs - 20 < 1000000; }));
    EXPECT_EQ(timer.count(), fired);
    EXPECT_EQ(subMng.Count(), 1U);
}

TEST_F(QMLTimerSubMngTest, StartAfterStopServesTheTimersAgain) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, 1));
    for (int round = 0; round < 20; ++round) {
        ASSERT_TRUE(subMng.Start());
        ASSERT_TRUE(waitForCount(timer, timer.count() + 2));
        ASSERT_TRUE(subMng.Stop(kJoinLimitMs));
    }
}

TEST_F(QMLTimerSubMngTest, StopsBeforeTheStartDoNotEndTheNewRun) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    LogCapture log;
    for (int i = 0; i < 5; ++i) {
        EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
    }
    ASSERT_TRUE(subMng.Start());
    CountingTimer timer;
    ASSERT_TRUE(subMng.Add(&timer, 1));
    EXPECT_TRUE(waitForCount(timer, 10));
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMLTimerSubMngTest, StopRightAfterTheStartIsNeverLost) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    for (int round = 0; round < 100; ++round) {
        ASSERT_TRUE(subMng.Start());
        ASSERT_TRUE(subMng.Stop(kJoinLimitMs));
    }
}

TEST_F(QMLTimerSubMngTest, StopsAndStartsFromManyThreadsEndWithTheLastOne) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    LogCapture log;  // a Start that comes second is refused and logged
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&subMng] {
            for (int round = 0; round < 20; ++round) {
                subMng.Start();
                subMng.Stop(kJoinLimitMs);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(subMng.Start());
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngTest, StopOfANeverStartedThreadReturnsTrueAtOnce) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    const Stopwatch stopwatch;
    EXPECT_TRUE(subMng.Stop(60000));
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
}

TEST_F(QMLTimerSubMngTest, StopReportsATimerThatHoldsItUpAndStillJoins) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    LogCapture log;
    ASSERT_TRUE(subMng.Start("held up"));
    std::atomic<bool> firing{false};
    ActingTimer timer([&] {
        firing = true;
        log.waitFor("timed out[50ms]. thread name[held up]");
    });
    ASSERT_TRUE(subMng.Add(&timer, 1));
    ASSERT_TRUE(waitUntil([&firing] { return firing.load(); }));
    EXPECT_TRUE(subMng.Stop(50));
    EXPECT_EQ(log.count("timed out[50ms]. thread name[held up]"), 1U);
}

TEST_F(QMLTimerSubMngTest, StopOfAThreadThatCannotBeJoinedFails) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    ASSERT_TRUE(subMng.Start());
    LogCapture log;
    const FailingJoin failing(1);
    EXPECT_FALSE(subMng.Stop(kJoinLimitMs));
    EXPECT_EQ(log.count(", pthread_join() failed !! ret[35]"), 1U);
}

TEST_F(QMLTimerSubMngTest, DestructionEndsTheThread) {
    {
        QMLTimerSubMng subMng(kConfiguration, kPriority);
        ASSERT_TRUE(subMng.Start("short-lived"));
        EXPECT_EQ(threadsNamed("short-lived"), 1U);
    }
    // A joined thread may stay listed for a moment.
    EXPECT_TRUE(waitUntil([] { return threadsNamed("short-lived") == 0; }));
}

TEST_F(QMLTimerSubMngTest, RemovedTimerIsNotRunningAndMayBeDestroyed) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    ASSERT_TRUE(subMng.Start());
    for (int round = 0; round < 200; ++round) {
        const auto timer = std::make_unique<CountingTimer>();
        ASSERT_TRUE(subMng.Add(timer.get(), 0));
        if (round % 4 == 0) {
            ASSERT_TRUE(waitForCount(*timer, 1));
        }
        ASSERT_TRUE(subMng.Remove(timer.get()));
    }
}

TEST_F(QMLTimerSubMngTest, ExceptionOfATimerIsLoggedAndTheOthersFireOn) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    LogCapture log;
    ASSERT_TRUE(subMng.Start());
    ActingTimer thrower([] { throw std::runtime_error("no fuel"); });
    CountingTimer other;
    ASSERT_TRUE(subMng.Add(&thrower, 1));
    ASSERT_TRUE(subMng.Add(&other, 1));
    EXPECT_TRUE(log.waitFor("interval[1], what [no fuel]"));
    EXPECT_TRUE(waitForCount(other, other.count() + 3));
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngTest, TimerThatChangesItsOwnSubManagerDoesNoHarm) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    ASSERT_TRUE(subMng.Start());
    CountingTimer added;
    std::atomic<int> rounds{0};
    ActingTimer timer([&] {
        if (++rounds % 2 == 1) {
            EXPECT_TRUE(subMng.Add(&added, 1));
        } else {
            EXPECT_TRUE(subMng.Remove(&added));
        }
    });
    ASSERT_TRUE(subMng.Add(&timer, 2));
    EXPECT_TRUE(waitUntil([&rounds] { return rounds >= 20; }));
    EXPECT_TRUE(subMng.Stop(kJoinLimitMs));
}

TEST_F(QMLTimerSubMngTest, TimersMayComeAndGoFromManyThreads) {
    QMLTimerSubMng subMng(kConfiguration, kPriority);
    ASSERT_TRUE(subMng.Start());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&subMng] {
            std::deque<CountingTimer> timers(20);
            for (int round = 0; round < 10; ++round) {
                for (CountingTimer& timer : timers) {
                    EXPECT_TRUE(subMng.Add(&timer, 1));
                }
                EXPECT_TRUE(waitForCount(timers.back(), round + 1));
                for (CountingTimer& timer : timers) {
                    EXPECT_TRUE(subMng.Remove(&timer));
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(subMng.Count(), 0U);
}

}  // namespace
