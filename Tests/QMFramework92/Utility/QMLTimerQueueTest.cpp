#include "Utility/QMLTimerQueue.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <deque>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Tests/QMFramework92/Utility/TestTimers.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/LogCapture.h"

namespace {

using testing::ElementsAre;
using wpp_test::ActingTimer;
using wpp_test::CountingTimer;
using wpp_test::EmptyHeap;
using wpp_test::heapTakes;
using wpp_test::LogCapture;

constexpr std::uint32_t kLastTick = 0xFFFFFFFF;

std::uint32_t dueOf(const QMLTimerQueue& queue, const QMLTimer& timer) {
    QMLTimerEntry entry{};
    EXPECT_TRUE(queue.find(&timer, entry));
    return entry.dueMs;
}

TEST(QMLTimerQueue, AddedTimerIsDueOneIntervalLater) {
    QMLTimerQueue queue;
    CountingTimer timer;
    ASSERT_TRUE(queue.add(&timer, 100, 5000));
    EXPECT_EQ(queue.firePass(5099), 0U);
    EXPECT_EQ(timer.count(), 0);
    EXPECT_EQ(queue.firePass(5100), 1U);
    EXPECT_EQ(timer.count(), 1);
}

TEST(QMLTimerQueue, EntryHoldsTimerIntervalDueTimeAndFlagZero) {
    QMLTimerQueue queue;
    CountingTimer timer;
    ASSERT_TRUE(queue.add(&timer, 100, 5000));
    QMLTimerEntry entry{nullptr, 1, 2, 3};
    ASSERT_TRUE(queue.find(&timer, entry));
    EXPECT_EQ(entry.timer, &timer);
    EXPECT_EQ(entry.intervalMs, 100U);
    EXPECT_EQ(entry.dueMs, 5100U);
    EXPECT_EQ(entry.flag, 0U);
}

TEST(QMLTimerQueue, FiringTimerSeesTheDueTimeThatIsServed) {
    QMLTimerQueue queue;
    CountingTimer timer;
    ASSERT_TRUE(queue.add(&timer, 100, 5000));
    queue.firePass(5130);
    ASSERT_EQ(timer.seen().size(), 1U);
    EXPECT_EQ(timer.seen()[0].timer, &timer);
    EXPECT_EQ(timer.seen()[0].intervalMs, 100U);
    EXPECT_EQ(timer.seen()[0].dueMs, 5100U);
    EXPECT_EQ(timer.seen()[0].flag, 0U);
}

TEST(QMLTimerQueue, FiredTimerIsDueAgainOneIntervalAfterItsDueTime) {
    QMLTimerQueue queue;
    CountingTimer timer;
    ASSERT_TRUE(queue.add(&timer, 100, 0));
    for (std::uint32_t round = 1; round <= 50; ++round) {
        queue.firePass(round * 100 + round % 7);
        EXPECT_EQ(dueOf(queue, timer), (round + 1) * 100);
    }
    EXPECT_EQ(timer.count(), 50);
}

TEST(QMLTimerQueue, TimerLateBySeveralIntervalsFiresOnceAndKeepsItsGrid) {
    QMLTimerQueue queue;
    CountingTimer timer;
    ASSERT_TRUE(queue.add(&timer, 100, 0));
    EXPECT_EQ(queue.firePass(1234), 1U);
    EXPECT_EQ(timer.count(), 1);
    EXPECT_EQ(dueOf(queue, timer), 1300U);
}

TEST(QMLTimerQueue, NextDueTimeAlwaysLiesAhead) {
    for (const std::uint32_t pass : {100U, 199U, 200U, 201U, 299U, 300U}) {
        QMLTimerQueue queue;
        CountingTimer timer;
        ASSERT_TRUE(queue.add(&timer, 100, 0));
        queue.firePass(pass);
        EXPECT_EQ(dueOf(queue, timer), (pass / 100 + 1) * 100) << pass;
        EXPECT_EQ(queue.firePass(pass), 0U) << pass;
    }
}

TEST(QMLTimerQueue, IntervalZeroIsServedAsOneMillisecond) {
    QMLTimerQueue queue;
    CountingTimer timer;
    ASSERT_TRUE(queue.add(&timer, 0, 10));
    EXPECT_EQ(queue.firePass(10), 0U);
    EXPECT_EQ(queue.nextWait(10), 1U);
    EXPECT_EQ(queue.firePass(11), 1U);
    EXPECT_EQ(queue.firePass(11), 0U);
    EXPECT_EQ(queue.firePass(12), 1U);
    EXPECT_EQ(timer.seen()[0].intervalMs, 1U);
}

TEST(QMLTimerQueue, NullTimerIsRefused) {
    QMLTimerQueue queue;
    QMLTimerEntry entry{};
    EXPECT_FALSE(queue.add(nullptr, 100, 0));
    EXPECT_FALSE(queue.find(nullptr, entry));
    EXPECT_FALSE(queue.remove(nullptr));
    EXPECT_EQ(queue.size(), 0U);
}

TEST(QMLTimerQueue, TimerAddedTwiceIsThereOnceWithItsFirstInterval) {
    QMLTimerQueue queue;
    CountingTimer timer;
    EXPECT_TRUE(queue.add(&timer, 100, 0));
    EXPECT_FALSE(queue.add(&timer, 10, 50));
    EXPECT_EQ(queue.size(), 1U);
    EXPECT_EQ(dueOf(queue, timer), 100U);
    EXPECT_EQ(queue.firePass(100), 1U);
    EXPECT_TRUE(queue.remove(&timer));
    EXPECT_EQ(queue.size(), 0U);
}

TEST(QMLTimerQueue, RemovedTimerFiresNoMoreAndMayBeAddedAgain) {
    QMLTimerQueue queue;
    CountingTimer timer;
    CountingTimer other;
    ASSERT_TRUE(queue.add(&timer, 100, 0));
    ASSERT_TRUE(queue.add(&other, 100, 0));
    EXPECT_TRUE(queue.remove(&timer));
    EXPECT_FALSE(queue.remove(&timer));
    EXPECT_EQ(queue.firePass(100), 1U);
    EXPECT_EQ(timer.count(), 0);
    EXPECT_EQ(other.count(), 1);
    EXPECT_TRUE(queue.add(&timer, 30, 110));
    EXPECT_EQ(queue.firePass(140), 1U);
    EXPECT_EQ(timer.count(), 1);
}

TEST(QMLTimerQueue, UnknownTimerIsNotFoundAndLeavesTheEntryAlone) {
    QMLTimerQueue queue;
    CountingTimer timer;
    QMLTimerEntry entry{nullptr, 1, 2, 3};
    EXPECT_FALSE(queue.find(&timer, entry));
    EXPECT_EQ(entry.intervalMs, 1U);
    EXPECT_EQ(entry.dueMs, 2U);
    EXPECT_EQ(entry.flag, 3U);
}

TEST(QMLTimerQueue, ClearedQueueHasNothingToFire) {
    QMLTimerQueue queue;
    CountingTimer timer;
    ASSERT_TRUE(queue.add(&timer, 1, 0));
    queue.clear();
    EXPECT_EQ(queue.size(), 0U);
    EXPECT_EQ(queue.firePass(1000), 0U);
    EXPECT_EQ(queue.nextWait(1000), std::nullopt);
}

TEST(QMLTimerQueue, TimersFireInTheOrderOfTheirDueTimes) {
    QMLTimerQueue queue;
    std::vector<int> order;
    ActingTimer third([&order] { order.push_back(3); });
    ActingTimer first([&order] { order.push_back(1); });
    ActingTimer second([&order] { order.push_back(2); });
    ASSERT_TRUE(queue.add(&third, 30, 0));
    ASSERT_TRUE(queue.add(&first, 10, 0));
    ASSERT_TRUE(queue.add(&second, 20, 0));
    EXPECT_EQ(queue.firePass(35), 3U);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST(QMLTimerQueue, NoTimerDueNowAndDueLaterAreToldApart) {
    QMLTimerQueue queue;
    CountingTimer timer;
    EXPECT_EQ(queue.nextWait(0), std::nullopt);
    ASSERT_TRUE(queue.add(&timer, 100, 0));
    EXPECT_EQ(queue.nextWait(0), 100U);
    EXPECT_EQ(queue.nextWait(99), 1U);
    EXPECT_EQ(queue.nextWait(100), 0U);
    EXPECT_EQ(queue.nextWait(5000), 0U);
}

TEST(QMLTimerQueue, NextWaitIsThatOfTheEarliestTimer) {
    QMLTimerQueue queue;
    CountingTimer slow;
    CountingTimer quick;
    ASSERT_TRUE(queue.add(&slow, 500, 0));
    ASSERT_TRUE(queue.add(&quick, 200, 0));
    EXPECT_EQ(queue.nextWait(0), 200U);
    queue.firePass(200);
    EXPECT_EQ(queue.nextWait(200), 200U);
    queue.firePass(400);
    EXPECT_EQ(queue.nextWait(400), 100U);
    queue.remove(&slow);
    EXPECT_EQ(queue.nextWait(400), 200U);
}

TEST(QMLTimerQueue, WaitIsLimitedToWhatAWaitOnEventsCanTake) {
    QMLTimerQueue queue;
    CountingTimer timer;
    ASSERT_TRUE(queue.add(&timer, 0x7FFFFFFF, 0));
    EXPECT_EQ(queue.nextWait(0), 0x7FFFFFFFU);
    queue.clear();
    ASSERT_TRUE(queue.add(&timer, 0x80000000, 0));
    EXPECT_EQ(queue.nextWait(0), 0x7FFFFFFFU);
    EXPECT_EQ(queue.nextWait(1), 0x7FFFFFFFU);
    EXPECT_EQ(queue.nextWait(2), 0x7FFFFFFEU);
}

TEST(QMLTimerQueue, TimersBeforeAtAndAfterTheWrapFireInTheirTime) {
    QMLTimerQueue queue;
    CountingTimer before;
    CountingTimer at;
    CountingTimer after;
    const std::uint32_t start = kLastTick - 99;  // 100 ms before the wrap
    ASSERT_TRUE(queue.add(&after, 150, start));
    ASSERT_TRUE(queue.add(&at, 100, start));
    ASSERT_TRUE(queue.add(&before, 50, start));
    EXPECT_EQ(dueOf(queue, at), 0U);
    EXPECT_EQ(dueOf(queue, after), 50U);

    EXPECT_EQ(queue.firePass(kLastTick - 50), 0U);
    EXPECT_EQ(queue.firePass(kLastTick - 49), 1U);
    EXPECT_EQ(before.count(), 1);
    EXPECT_EQ(dueOf(queue, before), 0U);
    EXPECT_EQ(queue.firePass(kLastTick), 0U);
    EXPECT_EQ(queue.nextWait(kLastTick), 1U);
    EXPECT_EQ(queue.firePass(0), 2U);
    EXPECT_EQ(before.count(), 2);
    EXPECT_EQ(at.count(), 1);
    EXPECT_EQ(queue.firePass(49), 0U);
    EXPECT_EQ(queue.firePass(50), 2U);
    EXPECT_EQ(after.count(), 1);
    EXPECT_EQ(before.count(), 3);
}

TEST(QMLTimerQueue, OnePassOverTheWrapFiresWhatFellDueOnBothSides) {
    QMLTimerQueue queue;
    std::vector<std::uint32_t> dues;
    CountingTimer before;
    CountingTimer after;
    ASSERT_TRUE(queue.add(&before, 1000, kLastTick - 1500));
    ASSERT_TRUE(queue.add(&after, 2000, kLastTick - 1500));
    EXPECT_EQ(queue.firePass(600), 2U);
    EXPECT_EQ(before.seen()[0].dueMs, kLastTick - 500);
    EXPECT_EQ(after.seen()[0].dueMs, 499U);
    EXPECT_EQ(dueOf(queue, before), 1499U);
    EXPECT_EQ(dueOf(queue, after), 2499U);
}

TEST(QMLTimerQueue, LongestIntervalSpansTheWrap) {
    QMLTimerQueue queue;
    CountingTimer timer;
    const std::uint32_t start = 4000000000U;
    ASSERT_TRUE(queue.add(&timer, 0xFFFFFFFF, start));
    EXPECT_EQ(dueOf(queue, timer), start - 1);
    // A thread wakes at least this often: its waits are limited.
    EXPECT_EQ(queue.firePass(start + 0x7FFFFFFF), 0U);
    EXPECT_EQ(queue.nextWait(start + 0x7FFFFFFF), 0x7FFFFFFFU);
    EXPECT_EQ(queue.firePass(start - 2), 0U);
    EXPECT_EQ(queue.nextWait(start - 2), 1U);
    EXPECT_EQ(queue.firePass(start - 1), 1U);
    EXPECT_EQ(dueOf(queue, timer), start - 2);
    EXPECT_EQ(queue.nextWait(start - 1), 0x7FFFFFFFU);
}

TEST(QMLTimerQueue, ThousandWrapsLeaveTheGridWhereItWas) {
    QMLTimerQueue queue;
    CountingTimer timer;
    constexpr std::uint32_t kInterval = 0x40000000;
    ASSERT_TRUE(queue.add(&timer, kInterval, 7));
    std::uint32_t tick = 7;
    for (int quarter = 1; quarter <= 4000; ++quarter) {
        tick += kInterval;
        ASSERT_EQ(queue.firePass(tick - 1), 0U);
        ASSERT_EQ(queue.firePass(tick), 1U);
    }
    EXPECT_EQ(dueOf(queue, timer), 7 + kInterval);
}

TEST(QMLTimerQueue, StandardExceptionIsLoggedAndTheOthersFire) {
    QMLTimerQueue queue;
    ActingTimer thrower([] { throw std::runtime_error("no fuel"); });
    CountingTimer before;
    CountingTimer after;
    ASSERT_TRUE(queue.add(&before, 10, 0));
    ASSERT_TRUE(queue.add(&thrower, 20, 0));
    ASSERT_TRUE(queue.add(&after, 30, 0));
    LogCapture log;
    EXPECT_EQ(queue.firePass(30), 3U);
    EXPECT_EQ(before.count(), 1);
    EXPECT_EQ(after.count(), 1);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] firePass()@QMLTimerQueue("), 1U);
    EXPECT_EQ(log.count(" : catch exception. timer["), 1U);
    EXPECT_EQ(log.count("] interval[20], what [no fuel]"), 1U);
}

TEST(QMLTimerQueue, OtherExceptionIsLoggedAsUnknownAndTheTimerStays) {
    QMLTimerQueue queue;
    ActingTimer thrower([] { throw 5; });
    ASSERT_TRUE(queue.add(&thrower, 20, 0));
    LogCapture log;
    EXPECT_EQ(queue.firePass(20), 1U);
    EXPECT_EQ(log.count(", what [unknown]"), 1U);
    EXPECT_EQ(queue.firePass(40), 1U);
    EXPECT_EQ(log.count(", what [unknown]"), 2U);
}

TEST(QMLTimerQueue, TimerMayRemoveAndDestroyItselfWhileItFires) {
    QMLTimerQueue queue;
    CountingTimer other;
    std::unique_ptr<ActingTimer> timer;
    timer = std::make_unique<ActingTimer>([&] {
        queue.remove(timer.get());
        // The function that runs lives in the timer, so it is moved out of harm's way first.
        const std::unique_ptr<ActingTimer> last = std::move(timer);
    });
    ASSERT_TRUE(queue.add(timer.get(), 10, 0));
    ASSERT_TRUE(queue.add(&other, 20, 0));
    EXPECT_EQ(queue.firePass(20), 2U);
    EXPECT_EQ(other.count(), 1);
    EXPECT_EQ(queue.size(), 1U);
    EXPECT_EQ(queue.firePass(30), 0U);
}

TEST(QMLTimerQueue, TimerThatRemovedItselfMayThrow) {
    QMLTimerQueue queue;
    ActingTimer timer([&] {
        queue.remove(&timer);
        throw std::runtime_error("gone");
    });
    ASSERT_TRUE(queue.add(&timer, 10, 0));
    LogCapture log;
    EXPECT_EQ(queue.firePass(10), 1U);
    EXPECT_EQ(log.count("interval[10], what [gone]"), 1U);
    EXPECT_EQ(queue.size(), 0U);
}

TEST(QMLTimerQueue, TimerMayRemoveTheNextOneWhileItFires) {
    QMLTimerQueue queue;
    auto victim = std::make_unique<CountingTimer>();
    ActingTimer timer([&] {
        queue.remove(victim.get());
        victim.reset();
    });
    ASSERT_TRUE(queue.add(&timer, 10, 0));
    ASSERT_TRUE(queue.add(victim.get(), 20, 0));
    EXPECT_EQ(queue.firePass(20), 1U);
    EXPECT_EQ(queue.size(), 1U);
}

TEST(QMLTimerQueue, TimerMayClearTheQueueWhileItFires) {
    QMLTimerQueue queue;
    CountingTimer other;
    ActingTimer timer([&queue] { queue.clear(); });
    ASSERT_TRUE(queue.add(&timer, 10, 0));
    ASSERT_TRUE(queue.add(&other, 20, 0));
    EXPECT_EQ(queue.firePass(20), 1U);
    EXPECT_EQ(other.count(), 0);
    EXPECT_EQ(queue.size(), 0U);
}

TEST(QMLTimerQueue, TimerAddedWhileOneFiresIsNotServedInTheSamePass) {
    QMLTimerQueue queue;
    CountingTimer added;
    ActingTimer timer([&] { queue.add(&added, 0, 10); });
    ASSERT_TRUE(queue.add(&timer, 10, 0));
    EXPECT_EQ(queue.firePass(10), 1U);
    EXPECT_EQ(added.count(), 0);
    EXPECT_EQ(queue.firePass(11), 1U);
    EXPECT_EQ(added.count(), 1);
}

TEST(QMLTimerQueue, PassTakesNoMemory) {
    QMLTimerQueue queue;
    int fired = 0;
    std::deque<ActingTimer> timers;
    for (std::uint32_t i = 0; i < 100; ++i) {
        timers.emplace_back([&fired] { ++fired; });
        ASSERT_TRUE(queue.add(&timers.back(), 1 + i, 0));
    }
    const std::size_t before = heapTakes();
    for (std::uint32_t tick = 1; tick <= 1000; ++tick) {
        queue.firePass(tick);
        queue.nextWait(tick);
    }
    EXPECT_EQ(heapTakes(), before);
    EXPECT_GT(fired, 1000);
}

TEST(QMLTimerQueue, TimerThatFindsNoMemoryIsRefusedAndMayBeAddedLater) {
    QMLTimerQueue queue;
    CountingTimer present;
    CountingTimer timer;
    ASSERT_TRUE(queue.add(&present, 10, 0));
    bool added = true;
    {
        const EmptyHeap heap;
        added = queue.add(&timer, 10, 0);
    }
    EXPECT_FALSE(added);
    EXPECT_EQ(queue.size(), 1U);
    EXPECT_EQ(queue.firePass(10), 1U);
    EXPECT_TRUE(queue.add(&timer, 10, 10));
    EXPECT_EQ(queue.firePass(20), 2U);
}

/// Both inner orders of the queue must agree after any course of events.
TEST(QMLTimerQueue, ManyTimersKeepTheirGridsThroughAddsAndRemoves) {
    QMLTimerQueue queue;
    std::deque<CountingTimer> timers(200);
    std::vector<std::uint32_t> addedAt(timers.size());
    std::uint32_t tick = kLastTick - 3000;
    for (std::uint32_t i = 0; i < timers.size(); ++i) {
        addedAt[i] = tick;
        ASSERT_TRUE(queue.add(&timers[i], 1 + i, tick));
        if (i % 3 == 2) {
            ASSERT_TRUE(queue.remove(&timers[i - 1]));
        }
        tick += 7;
        queue.firePass(tick);
    }
    for (int step = 0; step < 500; ++step) {
        tick += 11;
        queue.firePass(tick);
    }
    for (std::uint32_t i = 0; i < timers.size(); ++i) {
        QMLTimerEntry entry{};
        if (!queue.find(&timers[i], entry)) {
            EXPECT_EQ(i % 3, 1U);
            continue;
        }
        EXPECT_EQ((entry.dueMs - addedAt[i]) % (1 + i), 0U) << i;
        EXPECT_LE(entry.dueMs - tick - 1, i) << i;
    }
}

}  // namespace
