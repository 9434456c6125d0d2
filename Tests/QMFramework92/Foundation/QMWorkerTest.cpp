#include "Foundation/QMWorker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/QMThreadMng.h"
#include "Foundation/QMUnitFrame.h"
#include "Pattern/QMSingleton.h"
#include "Tests/QMFramework92/Foundation/FailingPipe.h"
#include "Tests/QMFramework92/Foundation/MsgBoxActors.h"
#include "Tests/Support/FailingCall.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using wpp_test::FailingCall;
using wpp_test::FailingPipe;
using wpp_test::FunctionHandler;
using wpp_test::Gate;
using wpp_test::kGenerousLimit;
using wpp_test::LogCapture;
using wpp_test::messageOf;
using wpp_test::Recorder;
using wpp_test::Stopwatch;
using wpp_test::SystemCall;
using wpp_test::waitUntil;

constexpr std::uint32_t kUnitId = 12;
constexpr std::uint32_t kSid = 1;

class QMWorkerTest : public testing::Test {
protected:
    void TearDown() override { qm_DestroySingletons(); }

    /// The threads that are there when no worker runs; the first start of one may bring the sanitizer's own.
    static std::size_t threadsWithoutWorker() {
        std::thread([] {}).join();
        return wpp_test::threadCount();
    }

    /// Whether a started worker hands a message to its handler.
    static bool serves(QMWorker& worker) {
        Recorder recorder;
        EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(777, &recorder));
        EXPECT_EQ(worker.GetMsgBox().PushMsg(messageOf(777, 1, "serves")), 0);
        const bool served = recorder.waitForEntries(1) == std::vector<std::string>{"message 1 serves"};
        EXPECT_TRUE(worker.GetMsgBox().RemoveHandler(777));
        return served;
    }
};

TEST_F(QMWorkerTest, StartedWorkerDeliversAndStopsSilently) {
    LogCapture log;
    Recorder recorder;
    QMWorker worker(kUnitId);
    EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(kSid, &recorder));
    EXPECT_TRUE(worker.Start("worker"));
    EXPECT_EQ(worker.GetMsgBox().PushMsg(messageOf(kSid, 3, "abc")), 0);
    EXPECT_EQ(worker.GetMsgBox().SetEvent(kSid, 4, false), 0);
    EXPECT_EQ(recorder.waitForEntries(2).size(), 2U);
    EXPECT_TRUE(worker.Stop(10000));
    EXPECT_THAT(recorder.entries(), ElementsAre("message 3 abc", "event 1 4"));
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMWorkerTest, ThreadHasItsNameAndTheWorkersRegistryValue) {
    QMThreadRecord record{};
    QMEvent looked;
    FunctionHandler looking([&](std::uint32_t, std::uint32_t) {
        QMThreadMng::getInstance()->FindThread(pthread_self(), record);
        looked.SetEvent();
    });
    QMWorker worker(kUnitId, 4711);
    EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(kSid, &looking));
    EXPECT_TRUE(worker.Start("named worker"));
    EXPECT_EQ(worker.GetMsgBox().SetEvent(kSid, 0, false), 0);
    EXPECT_EQ(QMEvent::WaitEvent(&looked, 10000), 0);
    EXPECT_TRUE(worker.Stop(10000));
    EXPECT_STREQ(record.name, "named worker");
    EXPECT_EQ(record.registryValue, 4711U);
}

TEST_F(QMWorkerTest, FullQueueShowsTheWorkersUnitId) {
    LogCapture log;
    Gate gate;
    QMWorker worker(kUnitId);
    EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(kSid, &gate));
    EXPECT_TRUE(worker.Start("full"));
    EXPECT_EQ(worker.GetMsgBox().SetEvent(kSid, 0, false), 0);
    gate.waitUntilEntered();
    for (int i = 0; i < 256; ++i) {
        EXPECT_EQ(worker.GetMsgBox().PushMsg(messageOf(99, 0)), 0);
    }
    EXPECT_EQ(worker.GetMsgBox().PushMsg(messageOf(99, 0)), 3);
    EXPECT_EQ(log.count(" : msg queue is full : worker[12]"), 1U);
    gate.open();
}

TEST_F(QMWorkerTest, SecondStartIsRefusedAndTheFirstGoesOn) {
    QMWorker worker(kUnitId);
    EXPECT_TRUE(worker.Start("first"));
    LogCapture log;
    EXPECT_FALSE(worker.Start("second"));
    EXPECT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count(" : error [second]"), 1U);
    EXPECT_TRUE(serves(worker));
}

TEST_F(QMWorkerTest, StopOfAWorkerThatDoesNotRunIsHarmless) {
    LogCapture log;
    QMWorker worker(kUnitId);
    EXPECT_TRUE(worker.Stop(0));
    EXPECT_TRUE(worker.Start("worker"));
    EXPECT_TRUE(worker.Stop(10000));
    EXPECT_TRUE(worker.Stop(10000));
    EXPECT_TRUE(worker.Start("worker"));
    EXPECT_TRUE(serves(worker));
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMWorkerTest, WorkerStopsWhenItIsDestroyed) {
    Recorder recorder;
    const std::size_t threads = threadsWithoutWorker();
    {
        QMWorker worker(kUnitId);
        EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(kSid, &recorder));
        EXPECT_TRUE(worker.Start("destroyed"));
        EXPECT_EQ(worker.GetMsgBox().PushMsg(messageOf(kSid, 1)), 0);
        EXPECT_THAT(recorder.waitForEntries(1), ElementsAre("message 1"));
    }
    EXPECT_TRUE(waitUntil([threads] { return wpp_test::threadCount() <= threads; }));
}

TEST_F(QMWorkerTest, HundredRestartsServeAndLeaveNothingBehind) {
    QMWorker worker(kUnitId);
    ASSERT_TRUE(worker.Start("warm up"));
    ASSERT_TRUE(worker.Stop(10000));
    const std::set<int> descriptors = wpp_test::openDescriptors();
    const std::size_t threads = wpp_test::threadCount();
    for (int i = 0; i < 100; ++i) {
        worker.GetMsgBox().RequestStop();
        ASSERT_TRUE(worker.Start("again"));
        ASSERT_TRUE(serves(worker));
        ASSERT_TRUE(worker.Stop(10000));
        worker.GetMsgBox().PushMsg(messageOf(kSid, 1, "left over"));
    }
    EXPECT_EQ(wpp_test::openDescriptors(), descriptors);
    // A joined thread may stay listed for a moment.
    EXPECT_TRUE(waitUntil([threads] { return wpp_test::threadCount() <= threads; }));
}

TEST_F(QMWorkerTest, SlowHandlerMakesStopReportAndStillJoin) {
    LogCapture log;
    QMEvent entered;
    FunctionHandler slow([&](std::uint32_t, std::uint32_t) {
        entered.SetEvent();
        log.waitFor("Error, QMThread::WaitExit() timed out[50ms]. thread name[slow]");
    });
    QMWorker worker(kUnitId);
    EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(kSid, &slow));
    EXPECT_TRUE(worker.Start("slow"));
    EXPECT_EQ(worker.GetMsgBox().SetEvent(kSid, 0, false), 0);
    ASSERT_EQ(QMEvent::WaitEvent(&entered, 10000), 0);
    const Stopwatch stopwatch;
    EXPECT_TRUE(worker.Stop(50));
    EXPECT_GE(stopwatch.elapsed(), milliseconds(49));
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
    EXPECT_EQ(log.count("timed out[50ms]. thread name[slow]"), 1U);
}

TEST_F(QMWorkerTest, StopWaitsForAUnitThatSendsToItself) {
    constexpr std::uint32_t kLast = 1000;
    std::atomic<std::uint32_t> reached{0};
    QMUnitFrame unit(3);
    FunctionHandler sending([&](std::uint32_t msgId, const void*, std::uint32_t) {
        reached = msgId;
        if (msgId < kLast) {
            EXPECT_EQ(unit.SendMsgSelf(msgId + 1, 0, nullptr, 0), 0);
        }
    });
    QMWorker worker(kUnitId);
    EXPECT_TRUE(unit.Register(&worker.GetMsgBox(), kSid, &sending));
    EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(kSid, &sending));
    EXPECT_TRUE(worker.Start("self"));
    EXPECT_EQ(unit.SendMsgSelf(1, 0, nullptr, 0), 0);
    EXPECT_TRUE(waitUntil([&] { return reached > 0; }));
    EXPECT_TRUE(worker.Stop(10000));
    EXPECT_EQ(reached, kLast);
    unit.Unregister();
}

TEST_F(QMWorkerTest, UnitsMessagesAndEventsReachItsHandler) {
    Recorder recorder;
    QMWorker worker(kUnitId);
    QMUnitFrame unit(3);
    EXPECT_TRUE(unit.Register(&worker.GetMsgBox(), 40, &recorder));
    EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(40, &recorder));
    EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(41, &recorder));
    EXPECT_TRUE(worker.Start("unit"));
    EXPECT_EQ(unit.SendMsgSelf(5, 0, "text", 4), 0);
    EXPECT_EQ(recorder.waitForEntries(1).size(), 1U);
    EXPECT_EQ(unit.SendEvtSelf(41, 6), 0);
    EXPECT_THAT(recorder.waitForEntries(2), ElementsAre("message 5 text", "event 41 6"));
}

TEST_F(QMWorkerTest, StopFromItsOwnHandlerOnlyRequestsIt) {
    std::atomic<int> result{-1};
    std::atomic<int> startResult{-1};
    LogCapture log;
    QMWorker worker(kUnitId);
    FunctionHandler stopping([&](std::uint32_t, std::uint32_t) {
        startResult = worker.Start("inner") ? 1 : 0;
        result = worker.Stop(10000) ? 1 : 0;
    });
    EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(kSid, &stopping));
    EXPECT_TRUE(worker.Start("outer"));
    EXPECT_EQ(worker.GetMsgBox().SetEvent(kSid, 0, false), 0);
    EXPECT_TRUE(waitUntil([&] { return result != -1; }));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(startResult, 0);
    EXPECT_TRUE(worker.Stop(10000));
    EXPECT_EQ(log.count(" : error [inner]"), 1U);
    EXPECT_TRUE(worker.Start("outer again"));
    EXPECT_TRUE(serves(worker));
}

TEST_F(QMWorkerTest, ThreadThatCannotBeCreatedLeavesTheWorkerNotRunning) {
    QMWorker worker(kUnitId);
    {
        LogCapture log;
        wpp_test::NoMoreThreads limit;
        EXPECT_FALSE(worker.Start("unborn"));
        EXPECT_EQ(log.count(" : QMThread::Start() failed !! [unborn]"), 1U);
    }
    EXPECT_TRUE(worker.Stop(0));
    EXPECT_TRUE(worker.Start("born"));
    EXPECT_TRUE(serves(worker));
}

TEST_F(QMWorkerTest, StartThatCannotWaitForTheReadySignalFailsAndTheNextServes) {
    QMWorker worker(kUnitId);
    {
        LogCapture log;
        const FailingCall noWait(SystemCall::kEpollCreate, EMFILE);
        EXPECT_FALSE(worker.Start("blind"));
    }
    EXPECT_TRUE(worker.Start("seeing"));
    EXPECT_TRUE(serves(worker));
}

TEST_F(QMWorkerTest, ThreadOfABoxThatCannotBeInitializedReturnsMinus1) {
    LogCapture log;
    const FailingPipe noDescriptors(3);
    QMWorker worker(kUnitId);
    QMThread<QMWorker> thread(&worker);
    EXPECT_EQ(thread.Entry(), -1);
}

TEST_F(QMWorkerTest, ThreadThatIsNotReadyAfter3SecondsIsTakenAway) {
    LogCapture log;
    const FailingPipe noDescriptors(3);
    QMWorker worker(kUnitId);
    const std::size_t threads = threadsWithoutWorker();
    const Stopwatch stopwatch;
    EXPECT_FALSE(worker.Start("never ready"));
    EXPECT_GE(stopwatch.elapsed(), milliseconds(2999));
    EXPECT_LT(stopwatch.elapsed(), milliseconds(3000) + kGenerousLimit);
    EXPECT_TRUE(waitUntil([threads] { return wpp_test::threadCount() <= threads; }));
    EXPECT_TRUE(worker.Stop(0));
}

TEST_F(QMWorkerTest, StartsAndStopsOfManyThreadsTakeTurns) {
    LogCapture log;
    QMWorker worker(kUnitId);
    std::vector<std::thread> users;
    for (int user = 0; user < 3; ++user) {
        users.emplace_back([&worker] {
            for (int round = 0; round < 30; ++round) {
                worker.Start("contended");
                EXPECT_TRUE(worker.Stop(10000));
            }
        });
    }
    for (std::thread& user : users) {
        user.join();
    }
    EXPECT_TRUE(worker.Start("at last"));
    EXPECT_TRUE(serves(worker));
}

TEST_F(QMWorkerTest, RestartsWhileOthersPushLoseNothingThatCameAfterTheStart) {
    constexpr int kRestarts = 50;
    LogCapture log;
    std::atomic<bool> over{false};
    std::atomic<unsigned> delivered{0};
    FunctionHandler counting([&](std::uint32_t, const void* buffer, std::uint32_t size) {
        EXPECT_EQ(std::string(static_cast<const char*>(buffer), size), "under load");
        ++delivered;
    });
    QMWorker worker(kUnitId);
    EXPECT_TRUE(worker.GetMsgBox().RegisterHandler(kSid, &counting));
    std::vector<std::thread> pushers;
    for (int i = 0; i < 2; ++i) {
        pushers.emplace_back([&] {
            while (!over) {
                if (worker.GetMsgBox().PushMsg(messageOf(kSid, 1, "under load")) == QMIMsgBox::kQueueFull) {
                    // Each refusal is a line in the log.
                    std::this_thread::sleep_for(milliseconds(1));
                }
            }
        });
    }
    for (int restart = 0; restart < kRestarts; ++restart) {
        ASSERT_TRUE(worker.Start("loaded"));
        const unsigned before = delivered;
        EXPECT_TRUE(waitUntil([&] { return delivered > before; }));
        // The pushers may keep the queue filled for as long as they are let.
        ASSERT_TRUE(worker.Stop(QM_WAIT_INFINITE));
    }
    over = true;
    for (std::thread& pusher : pushers) {
        pusher.join();
    }
}

TEST_F(QMWorkerTest, TwoWorkersSendToEachOther) {
    constexpr std::uint32_t kExchanges = 1000;
    QMWorker left(1);
    QMWorker right(2);
    std::atomic<std::uint32_t> last{0};
    const auto answeringTo = [&last](QMWorker& peer) {
        return FunctionHandler([&last, &peer](std::uint32_t msgId, const void* buffer, std::uint32_t size) {
            const std::string text(static_cast<const char*>(buffer), size);
            EXPECT_EQ(text, std::to_string(msgId));
            EXPECT_EQ(last.exchange(msgId), msgId - 1);
            if (msgId < kExchanges) {
                EXPECT_EQ(peer.GetMsgBox().PushMsg(messageOf(kSid, msgId + 1, std::to_string(msgId + 1))), 0);
            }
        });
    };
    FunctionHandler leftHandler = answeringTo(right);
    FunctionHandler rightHandler = answeringTo(left);
    EXPECT_TRUE(left.GetMsgBox().RegisterHandler(kSid, &leftHandler));
    EXPECT_TRUE(right.GetMsgBox().RegisterHandler(kSid, &rightHandler));
    EXPECT_TRUE(left.Start("left"));
    EXPECT_TRUE(right.Start("right"));
    EXPECT_EQ(left.GetMsgBox().PushMsg(messageOf(kSid, 1, "1")), 0);
    EXPECT_TRUE(waitUntil([&] { return last == kExchanges; }));
    EXPECT_TRUE(left.Stop(10000));
    EXPECT_TRUE(right.Stop(10000));
}

}  // namespace
