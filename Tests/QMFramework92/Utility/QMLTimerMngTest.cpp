#include "Utility/QMLTimerMng.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/QMThreadMng.h"
#include "Pattern/QMSingleton.h"
#include "Tests/QMFramework92/Foundation/PriorityRights.h"
#include "Tests/QMFramework92/Utility/FailingJoin.h"
#include "Tests/QMFramework92/Utility/FakeNiceValues.h"
#include "Tests/QMFramework92/Utility/NamedThreads.h"
#include "Tests/QMFramework92/Utility/TestTimers.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"
#include "Tests/Support/SyslogCapture.h"
#include "inc/QMFramework.h"

namespace {

using wpp_test::ActingTimer;
using wpp_test::CountingTimer;
using wpp_test::EmptyHeap;
using wpp_test::FailingJoin;
using wpp_test::FakeNiceValues;
using wpp_test::LogCapture;
using wpp_test::mayUseNice;
using wpp_test::NoMoreThreads;
using wpp_test::SyslogCapture;
using wpp_test::threadsNamed;
using wpp_test::waitUntil;

constexpr unsigned kHourMs = 3600000;

std::size_t timerThreads() {
    return threadsNamed("KLTimerSubMng_");
}

/// A joined thread may stay listed for a moment.
bool timerThreadsEnd() {
    return waitUntil([] { return timerThreads() == 0; });
}

class QMLTimerMngTest : public testing::Test {
protected:
    void TearDown() override {
        QMLTimerMng::StopThreads();
        qm_DestroySingletons();
    }

    /// Priorities are changed on a thread of its own, so that the test program keeps its own.
    static void onAnotherThread(const std::function<void()>& step) { std::thread(step).join(); }

    /// AddTimer by a thread with this nice value on a machine that allows every one. The timer is gone again.
    static int rowForNice(int nice) {
        int row = QMLTimerMng::kNoRow;
        onAnotherThread([&] {
            FakeNiceValues::setOwn(nice);
            CountingTimer timer;
            row = QMLTimerMng::getInstance()->AddTimer(&timer, kHourMs);
            for (int other = 0; other < QMLTimerMng::kRowCount; ++other) {
                EXPECT_EQ(QMLTimerMng::getInstance()->GetSubMng(other)->Remove(&timer), other == row) << nice;
            }
        });
        return row;
    }

    static bool waitForCount(const CountingTimer& timer, int count) {
        return waitUntil([&timer, count] { return timer.count() >= count; });
    }
};

struct ThreadFacts {
    std::string name;
    int priority;
    int nice;
    unsigned registryValue;
};

ThreadFacts factsOfRow(int row) {
    ThreadFacts facts{};
    std::atomic<bool> done{false};
    ActingTimer timer([&] {
        if (!done) {
            QMThreadRecord record{};
            EXPECT_TRUE(QMThreadMng::getInstance()->FindThread(pthread_self(), record));
            facts = {record.name, record.priority, FakeNiceValues::niceOf(gettid()), record.registryValue};
            done = true;
        }
    });
    QMLTimerSubMng* const subMng = QMLTimerMng::getInstance()->GetSubMng(row);
    EXPECT_TRUE(subMng->Add(&timer, 1));
    EXPECT_TRUE(waitUntil([&done] { return done.load(); }));
    EXPECT_TRUE(subMng->Remove(&timer));
    return facts;
}

TEST_F(QMLTimerMngTest, FiveRowsHaveTheirBandsConfigurationsAndPriorities) {
    struct Expected {
        int lowest;
        int highest;
        unsigned configuration;
        int priority;
    };
    constexpr std::array<Expected, 5> kExpected{{
        {177, 207, 30, 196},
        {208, 219, 30, 197},
        {220, 231, 30, 198},
        {232, 243, 30, 199},
        {244, 255, 50, 200},
    }};
    const FakeNiceValues nice;
    const QMLTimerMng* const manager = QMLTimerMng::getInstance();
    for (int row = 0; row < 5; ++row) {
        const Expected& expected = kExpected[static_cast<std::size_t>(row)];
        ASSERT_NE(manager->GetBand(row), nullptr);
        EXPECT_EQ(manager->GetBand(row)->lowest, expected.lowest) << row;
        EXPECT_EQ(manager->GetBand(row)->highest, expected.highest) << row;
        ASSERT_NE(manager->GetSubMng(row), nullptr);
        EXPECT_EQ(manager->GetSubMng(row)->GetConfiguration(), expected.configuration) << row;
        EXPECT_EQ(manager->GetSubMng(row)->GetThreadPriority(), expected.priority) << row;
    }
    EXPECT_EQ(QMLTimerMng::kRowCount, 5);
}

TEST_F(QMLTimerMngTest, RowsOutsideTheFiveDoNotExist) {
    const QMLTimerMng* const manager = QMLTimerMng::getInstance();
    for (const int row : {-2, -1, 5, 6}) {
        EXPECT_EQ(manager->GetSubMng(row), nullptr) << row;
        EXPECT_EQ(manager->GetBand(row), nullptr) << row;
    }
}

TEST_F(QMLTimerMngTest, ThreadsRunUnderTheirNamesAtNiceMinus10ToMinus6) {
    const FakeNiceValues nice;
    LogCapture log;
    for (int row = 0; row < 5; ++row) {
        const ThreadFacts facts = factsOfRow(row);
        EXPECT_EQ(facts.name, "KLTimerSubMng_" + std::to_string(row));
        EXPECT_EQ(facts.priority, 196 + row);
        EXPECT_EQ(facts.nice, -10 + row);
        EXPECT_EQ(facts.registryValue, 4000U);
    }
    QMLTimerMng::StopThreads();
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMLTimerMngTest, EveryNiceValueGoesToTheRowWhoseBandHoldsItsPriority) {
    const FakeNiceValues fake;
    LogCapture log;
    for (int nice = -20; nice <= -5; ++nice) {
        EXPECT_EQ(rowForNice(nice), 0) << nice;  // priorities 177 to 201
    }
    EXPECT_EQ(rowForNice(-4), 1);  // 211
    EXPECT_EQ(rowForNice(-3), 2);  // 221
    EXPECT_EQ(rowForNice(-2), 2);  // 231
    EXPECT_EQ(rowForNice(-1), 3);  // 241
    for (int nice = 0; nice <= 4; ++nice) {
        EXPECT_EQ(rowForNice(nice), 4) << nice;  // 251 to 255
    }
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMLTimerMngTest, NiceValuesWithoutAPriorityGoToNoRow) {
    const FakeNiceValues fake;
    QMLTimerMng::getInstance();
    for (int nice = 5; nice <= 19; ++nice) {
        LogCapture log;
        EXPECT_EQ(rowForNice(nice), -1) << nice;
        EXPECT_EQ(log.count("[error] AddTimer()@QMLTimerMng("), 1U) << nice;
        EXPECT_EQ(log.lines().back().substr(log.lines().back().find(" : ")), " : error") << nice;
    }
}

TEST_F(QMLTimerMngTest, ThreadAtNiceMinus4AddsToRow1WhereItMayHaveThatPriority) {
    const bool allowed = mayUseNice(-4);
    LogCapture log;
    onAnotherThread([allowed] {
        EXPECT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), -4) == 0, allowed);
        const int priority = QMThreadMng::getInstance()->GetCurrentThreadPriority();
        EXPECT_EQ(priority, allowed ? 211 : 251);
        CountingTimer timer;
        const int row = QMLTimerMng::getInstance()->AddTimer(&timer, kHourMs);
        EXPECT_EQ(row, allowed ? 1 : 4);
        EXPECT_TRUE(QMLTimerMng::getInstance()->GetSubMng(row)->Remove(&timer));
    });
}

TEST_F(QMLTimerMngTest, ThreadAtPriority255AddsToRow4) {
    LogCapture log;
    onAnotherThread([] {
        QMThreadMng::getInstance()->SetPriority(pthread_self(), 255, gettid());
        EXPECT_EQ(QMThreadMng::getInstance()->GetCurrentThreadPriority(), 255);
        CountingTimer timer;
        EXPECT_EQ(QMLTimerMng::getInstance()->AddTimer(&timer, 1), 4);
        EXPECT_TRUE(waitForCount(timer, 2));
        EXPECT_TRUE(QMLTimerMng::getInstance()->GetSubMng(4)->Remove(&timer));
    });
}

TEST_F(QMLTimerMngTest, ThreadAtNice10IsRefusedAndLogged) {
    QMLTimerMng::getInstance();
    LogCapture log;
    onAnotherThread([] {
        ASSERT_EQ(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 10), 0);
        CountingTimer timer;
        EXPECT_EQ(QMLTimerMng::getInstance()->AddTimer(&timer, 1), -1);
    });
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_NE(log.lines()[0].find(" : error : nice[10]"), std::string::npos);
    EXPECT_EQ(log.count("[error] AddTimer()@QMLTimerMng("), 1U);
    EXPECT_EQ(log.lines()[1].substr(log.lines()[1].find(" : ")), " : error");
}

TEST_F(QMLTimerMngTest, NullTimerIsRefusedSilently) {
    QMLTimerMng* const manager = QMLTimerMng::getInstance();
    LogCapture log;
    EXPECT_EQ(manager->AddTimer(nullptr, 10), -1);
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMLTimerMngTest, TimerAddedTwiceIsRefusedAndLoggedAndIsThereOnce) {
    const FakeNiceValues fake;
    QMLTimerMng* const manager = QMLTimerMng::getInstance();
    CountingTimer timer;
    LogCapture log;
    EXPECT_EQ(manager->AddTimer(&timer, kHourMs), 4);
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(manager->AddTimer(&timer, kHourMs), -1);
    EXPECT_EQ(log.count(" : error"), 1U);
    EXPECT_EQ(manager->GetSubMng(4)->Count(), 1U);
    EXPECT_TRUE(manager->GetSubMng(4)->Remove(&timer));
}

TEST_F(QMLTimerMngTest, TimerThatFindsNoMemoryIsRefusedAndLogged) {
    const FakeNiceValues fake;
    QMLTimerMng* const manager = QMLTimerMng::getInstance();
    CountingTimer timer;
    LogCapture log;
    // The first log line of a process sets up what the later ones share.
    manager->AddTimer(&timer, kHourMs);
    manager->AddTimer(&timer, kHourMs);
    manager->GetSubMng(4)->ClearAll();
    log.clear();
    int row = 0;
    {
        const EmptyHeap heap;
        row = manager->AddTimer(&timer, kHourMs);
    }
    EXPECT_EQ(row, -1);
    EXPECT_EQ(log.count("[error] AddTimer()@QMLTimerMng("), 1U);
    EXPECT_FALSE(manager->GetSubMng(4)->Find(&timer));
}

TEST_F(QMLTimerMngTest, RowsWithoutTheRightToTheirPriorityServeTimersAllTheSame) {
    const FakeNiceValues fake;
    FakeNiceValues::refuseRaises();
    LogCapture log;
    std::deque<CountingTimer> timers(5);
    for (int row = 0; row < 5; ++row) {
        ASSERT_TRUE(
            QMLTimerMng::getInstance()->GetSubMng(row)->Add(&timers[static_cast<std::size_t>(row)], 1));
    }
    EXPECT_EQ(log.count(", setpriority()"), 5U);
    for (const CountingTimer& timer : timers) {
        EXPECT_TRUE(waitForCount(timer, 3));
    }
    QMLTimerMng::StopThreads();
}

TEST_F(QMLTimerMngTest, RowWhoseThreadCannotBeCreatedIsKept) {
    const FakeNiceValues fake;
    LogCapture log;
    {
        const NoMoreThreads limit;
        QMLTimerMng::getInstance();
    }
    EXPECT_EQ(log.count("QMThread::Start() failed !! [KLTimerSubMng_"), 5U);
    CountingTimer timer;
    EXPECT_EQ(QMLTimerMng::getInstance()->AddTimer(&timer, kHourMs), 4);
    EXPECT_TRUE(QMLTimerMng::getInstance()->GetSubMng(4)->Start("late"));
    EXPECT_TRUE(QMLTimerMng::getInstance()->GetSubMng(4)->Remove(&timer));
}

TEST_F(QMLTimerMngTest, StopWithoutAManagerMakesNone) {
    LogCapture log;
    const FakeNiceValues fake;
    FakeNiceValues::refuseRaises();
    QMLTimerMng::StopThreads();
    // Making one would have tried to raise the priorities.
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMLTimerMngTest, StoppedThreadsFireNoMoreAndMayBeStoppedAgain) {
    const FakeNiceValues fake;
    CountingTimer timer;
    QMLTimerMng* const manager = QMLTimerMng::getInstance();
    EXPECT_EQ(manager->AddTimer(&timer, 1), 4);
    ASSERT_TRUE(waitForCount(timer, 1));
    LogCapture log;
    QMLTimerMng::StopThreads();
    EXPECT_TRUE(timerThreadsEnd());
    QMLTimerMng::StopThreads();
    EXPECT_EQ(log.text(), "");
    EXPECT_TRUE(manager->GetSubMng(4)->Remove(&timer));
}

TEST_F(QMLTimerMngTest, ThreadThatCannotBeJoinedIsLogged) {
    const FakeNiceValues fake;
    QMLTimerMng::getInstance();
    LogCapture log;
    const FailingJoin failing(1);
    QMLTimerMng::StopThreads();
    EXPECT_EQ(log.count("[error] StopThreads()@QMLTimerMng("), 1U);
    EXPECT_EQ(log.count(" : failed to end timer submng"), 1U);
}

TEST_F(QMLTimerMngTest, DestructionEndsTheThreadsAndLogsTheOneThatCannotBeJoined) {
    // Without StopThreads the destructor finds the threads running; they are idle, so none of them misses the
    // singletons that have gone before.
    const FakeNiceValues fake;
    QMLTimerMng::getInstance();
    EXPECT_EQ(timerThreads(), 5U);
    LogCapture log;
    const FailingJoin failing(1);
    qm_DestroySingletons();
    EXPECT_TRUE(timerThreadsEnd());
    EXPECT_EQ(log.count("[error] ~QMLTimerMng()@QMLTimerMng("), 1U);
    EXPECT_EQ(log.count(" : failed to end timer submng"), 1U);
}

TEST_F(QMLTimerMngTest, ThreadsThatComeAtOnceShareOneManager) {
    const FakeNiceValues fake;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            CountingTimer timer;
            const int row = QMLTimerMng::getInstance()->AddTimer(&timer, 1);
            EXPECT_EQ(row, 4);
            EXPECT_TRUE(waitForCount(timer, 3));
            EXPECT_TRUE(QMLTimerMng::getInstance()->GetSubMng(row)->Remove(&timer));
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(timerThreads(), 5U);
}

/// The framework's whole life around the timers.
class QMLTimerMngLife : public testing::Test {
protected:
    void TearDown() override { qm_FwTerminate(); }

    SyslogCapture systemLog;
    FakeNiceValues niceValues;
};

TEST_F(QMLTimerMngLife, TerminationEndsTheTimerThreadsAndInitialisationBringsThemBack) {
    std::deque<CountingTimer> timers(20);
    for (int life = 0; life < 3; ++life) {
        ASSERT_NE(qm_FwInitialize("WppReceiver", -1), 0);
        std::vector<std::thread> adders;
        for (int group = 0; group < 4; ++group) {
            adders.emplace_back([&timers, group] {
                constexpr std::array<int, 4> kRows{1, 2, 2, 3};  // of nice -4 to -1
                FakeNiceValues::setOwn(group - 4);
                for (int i = 0; i < 5; ++i) {
                    QMLTimer& timer = timers[static_cast<std::size_t>(5 * group + i)];
                    EXPECT_EQ(QMLTimerMng::getInstance()->AddTimer(&timer, 1),
                              kRows[static_cast<std::size_t>(group)]);
                }
            });
        }
        for (std::thread& adder : adders) {
            adder.join();
        }
        for (const CountingTimer& timer : timers) {
            ASSERT_TRUE(waitUntil([&timer, count = timer.count() + 2] { return timer.count() >= count; }));
        }
        LogCapture log;
        qm_FwTerminate();
        EXPECT_EQ(log.text(), "");
        EXPECT_TRUE(timerThreadsEnd());
    }
}

TEST_F(QMLTimerMngLife, TerminationIsSafeInWhateverOrderTheSingletonsWereMade) {
    for (int life = 0; life < 3; ++life) {
        CountingTimer timer;
        const bool managerFirst = life == 1;
        if (managerFirst) {
            QMLTimerMng::getInstance();
        }
        ASSERT_NE(qm_FwInitialize("WppReceiver", -1), 0);
        ASSERT_EQ(QMLTimerMng::getInstance()->AddTimer(&timer, 1), 4);
        ASSERT_TRUE(waitUntil([&timer] { return timer.count() >= 2; }));
        qm_FwTerminate();
    }
}

TEST_F(QMLTimerMngLife, TerminationWithoutTimersMakesNone) {
    ASSERT_NE(qm_FwInitialize("WppReceiver", -1), 0);
    FakeNiceValues::refuseRaises();
    LogCapture log;
    qm_FwTerminate();
    EXPECT_EQ(log.text(), "");
}

}  // namespace
