#include "Foundation/QMThreadMng.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <functional>
#include <limits>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "Pattern/QMSingleton.h"
#include "Tests/QMFramework92/Foundation/PriorityRights.h"
#include "Tests/Support/LogCapture.h"

namespace {

using wpp_test::LogCapture;
using wpp_test::mayUseNice;
using wpp_test::niceOf;

constexpr pid_t kNoSuchThread = std::numeric_limits<pid_t>::max();

static_assert(std::is_base_of_v<QMSubject, QMThreadMng>);

class QMThreadMngTest : public testing::Test {
protected:
    void TearDown() override { qm_DestroySingletons(); }

    /// Priorities are changed on a thread of its own, so that the test program keeps its own.
    static void onAnotherThread(const std::function<void()>& step) { std::thread(step).join(); }

    /// SetPriority on the calling thread as a registered one, judged by the rights of this process.
    static void expectNice(int priority, int nice) {
        QMThreadMng* registry = QMThreadMng::getInstance();
        const bool allowed = mayUseNice(nice);
        LogCapture log;
        registry->RegisterThread(pthread_self(), "priority", 0, 0);
        EXPECT_EQ(registry->SetPriority(pthread_self(), priority, gettid()), allowed) << priority;
        EXPECT_EQ(niceOf(gettid()) == nice, allowed) << priority;
        EXPECT_EQ(log.count(", setpriority()"), allowed ? 0U : 1U) << priority;
        registry->UnregisterThread(pthread_self());
    }
};

struct PriorityRow {
    int priority;
    int nice;
};

std::vector<PriorityRow> priorityRows() {
    struct Band {
        int first;
        int last;
        int nice;
    };
    const std::vector<Band> bands{
        {177, 177, -20}, {178, 178, -19}, {179, 180, -18}, {181, 182, -17}, {183, 184, -16},
        {185, 186, -15}, {187, 188, -14}, {189, 190, -13}, {191, 192, -12}, {193, 194, -11},
        {195, 196, -10}, {197, 197, -9},  {198, 198, -8},  {199, 199, -7},  {200, 200, -6},
        {201, 210, -5},  {211, 220, -4},  {221, 230, -3},  {231, 240, -2},  {241, 250, -1},
        {251, 251, 0},   {252, 252, 1},   {253, 253, 2},   {254, 254, 3},   {255, 255, 4}};
    std::vector<PriorityRow> rows;
    for (const Band& band : bands) {
        for (int priority = band.first; priority <= band.last; ++priority) {
            rows.push_back({priority, band.nice});
        }
    }
    return rows;
}

TEST_F(QMThreadMngTest, EveryPriorityOfTheScaleHasItsNiceValue) {
    const std::vector<PriorityRow> rows = priorityRows();
    ASSERT_EQ(rows.size(), 79U);
    for (const PriorityRow& row : rows) {
        onAnotherThread([&row] { expectNice(row.priority, row.nice); });
    }
}

TEST_F(QMThreadMngTest, PriorityBelowTheScaleTakesNiceMinus20) {
    onAnotherThread([] { expectNice(150, -20); });
    onAnotherThread([] { expectNice(-1, -20); });
}

TEST_F(QMThreadMngTest, PriorityAboveTheScaleTakesNiceMinus1) {
    onAnotherThread([] { expectNice(300, -1); });
    onAnotherThread([] { expectNice(256, -1); });
}

TEST_F(QMThreadMngTest, NiceMinus5ReadsBackAs201) {
    onAnotherThread([] {
        const bool allowed = setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), -5) == 0;
        const int expected = allowed ? 201 : 251;
        EXPECT_EQ(QMThreadMng::getInstance()->GetPriority(pthread_self(), gettid()), expected);
    });
}

TEST_F(QMThreadMngTest, NiceMinus1ReadsBackAs241WhateverErrnoHeld) {
    onAnotherThread([] {
        const bool allowed = setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), -1) == 0;
        const int expected = allowed ? 241 : 251;
        errno = EACCES;  // what an earlier call left there must not look like a failure
        EXPECT_EQ(QMThreadMng::getInstance()->GetPriority(pthread_self(), gettid()), expected);
    });
}

TEST_F(QMThreadMngTest, NiceOutsideTheTableReadsBackAsMinus1Silently) {
    onAnotherThread([] {
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 10);
        LogCapture log;
        EXPECT_EQ(QMThreadMng::getInstance()->GetPriority(pthread_self(), gettid()), -1);
        EXPECT_EQ(log.text(), "");
    });
}

TEST_F(QMThreadMngTest, PriorityOfNoThreadIsLoggedAndZero) {
    LogCapture log;
    EXPECT_EQ(QMThreadMng::getInstance()->GetPriority(pthread_self(), kNoSuchThread), 0);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] GetPriority()@QMThreadMng("), 1U);
    EXPECT_EQ(log.count(" : std library error [3 : No such process] , getpriority()"), 1U);
}

TEST_F(QMThreadMngTest, SettingThePriorityOfNoThreadIsLoggedAndFails) {
    LogCapture log;
    EXPECT_FALSE(QMThreadMng::getInstance()->SetPriority(pthread_self(), 252, kNoSuchThread));
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] SetPriority()@QMThreadMng("), 1U);
    EXPECT_EQ(log.count(" : std library error [3 : No such process] , setpriority()"), 1U);
}

TEST_F(QMThreadMngTest, UnregisteredThreadGetsItsNiceValueButReportsFalse) {
    onAnotherThread([] {
        LogCapture log;
        EXPECT_FALSE(QMThreadMng::getInstance()->SetPriority(pthread_self(), 254, gettid()));
        EXPECT_EQ(niceOf(gettid()), 3);
        EXPECT_EQ(log.text(), "");
    });
}

TEST_F(QMThreadMngTest, CurrentThreadPriorityFollowsItsNiceValue) {
    onAnotherThread([] {
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 2);
        EXPECT_EQ(QMThreadMng::getInstance()->GetCurrentThreadPriority(), 253);
    });
}

TEST_F(QMThreadMngTest, CurrentThreadWithNiceOutsideTheTableIsLogged) {
    onAnotherThread([] {
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 7);
        LogCapture log;
        EXPECT_EQ(QMThreadMng::getInstance()->GetCurrentThreadPriority(), -1);
        ASSERT_EQ(log.lines().size(), 1U);
        EXPECT_EQ(log.count("[error] GetCurrentThreadPriority()@QMThreadMng("), 1U);
        EXPECT_EQ(log.count(" : error : nice[7]"), 1U);
    });
}

TEST_F(QMThreadMngTest, RecordHoldsWhatWasRegistered) {
    QMThreadMng* registry = QMThreadMng::getInstance();
    registry->RegisterThread(pthread_self(), "recorded", 251, 4000);
    QMThreadRecord record{};
    ASSERT_TRUE(registry->FindThread(pthread_self(), record));
    EXPECT_TRUE(pthread_equal(record.handle, pthread_self()));
    EXPECT_EQ(record.priority, 251);
    EXPECT_STREQ(record.name, "recorded");
    EXPECT_EQ(record.registryValue, 4000U);
    EXPECT_EQ(record.counters[0], 0U);
    EXPECT_EQ(record.counters[1], 0U);
    EXPECT_EQ(record.flag, 1U);
}

TEST_F(QMThreadMngTest, RecordedNameIsCutAt255Characters) {
    QMThreadMng* registry = QMThreadMng::getInstance();
    registry->RegisterThread(pthread_self(), std::string(300, 'n').c_str(), 251, 0);
    QMThreadRecord record{};
    ASSERT_TRUE(registry->FindThread(pthread_self(), record));
    EXPECT_EQ(std::string(record.name), std::string(255, 'n'));
}

TEST_F(QMThreadMngTest, SetPriorityUpdatesTheRecord) {
    onAnotherThread([] {
        QMThreadMng* registry = QMThreadMng::getInstance();
        registry->RegisterThread(pthread_self(), "recorded", 251, 0);
        EXPECT_TRUE(registry->SetPriority(pthread_self(), 255, gettid()));
        QMThreadRecord record{};
        ASSERT_TRUE(registry->FindThread(pthread_self(), record));
        EXPECT_EQ(record.priority, 255);
    });
}

TEST_F(QMThreadMngTest, UnregisteredThreadIsNotFound) {
    QMThreadMng* registry = QMThreadMng::getInstance();
    registry->RegisterThread(pthread_self(), "recorded", 251, 0);
    registry->UnregisterThread(pthread_self());
    registry->UnregisterThread(pthread_self());
    QMThreadRecord record{};
    record.priority = 77;
    EXPECT_FALSE(registry->FindThread(pthread_self(), record));
    EXPECT_EQ(record.priority, 77);
}

TEST_F(QMThreadMngTest, ThreadsMayRegisterAtOnce) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 200;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([] {
            QMThreadMng* registry = QMThreadMng::getInstance();
            QMThreadRecord record{};
            for (int round = 0; round < kRounds; ++round) {
                registry->RegisterThread(pthread_self(), "one of many", 251, 0);
                EXPECT_TRUE(registry->FindThread(pthread_self(), record));
                registry->UnregisterThread(pthread_self());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
