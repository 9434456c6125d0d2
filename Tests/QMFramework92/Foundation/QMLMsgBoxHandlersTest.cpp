// The handlers of a message box: how they come and go, also while the box's thread is in one, and what happens
// when they throw or many threads push at once.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Diagnostics/QMLog.h"
#include "Foundation/QMLMsgBox.h"
#include "Pattern/QMSingleton.h"
#include "Tests/QMFramework92/Foundation/MsgBoxActors.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/LogCapture.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using wpp_test::BoxRun;
using wpp_test::FunctionHandler;
using wpp_test::Gate;
using wpp_test::LogCapture;
using wpp_test::messageOf;
using wpp_test::Recorder;
using wpp_test::waitUntil;

constexpr std::uint32_t kSid = 1;
constexpr std::uint32_t kOther = 2;

class QMLMsgBoxHandlers : public testing::Test {
protected:
    void TearDown() override { qm_DestroySingletons(); }

    Recorder recorder;
    QMLMsgBox box;
};

TEST_F(QMLMsgBoxHandlers, RegisteredHandlerIsFoundAndItsIdIsTheBoxesOwn) {
    LogCapture log;
    EXPECT_TRUE(box.RegisterHandler(kSid, &recorder));
    EXPECT_EQ(box.FindHandler(kSid), &recorder);
    EXPECT_TRUE(box.IsOwnUnit(kSid));
    EXPECT_EQ(box.FindHandler(kOther), nullptr);
    EXPECT_FALSE(box.IsOwnUnit(kOther));
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMLMsgBoxHandlers, SmallestAndLargestIdAreIdsLikeOthers) {
    Recorder other;
    EXPECT_TRUE(box.RegisterHandler(0, &recorder));
    EXPECT_TRUE(box.RegisterHandler(0xFFFFFFFFU, &other));
    EXPECT_EQ(box.FindHandler(0), &recorder);
    EXPECT_EQ(box.FindHandler(0xFFFFFFFFU), &other);
}

TEST_F(QMLMsgBoxHandlers, OneHandlerMayStandUnderSeveralIds) {
    EXPECT_TRUE(box.RegisterHandler(kSid, &recorder));
    EXPECT_TRUE(box.RegisterHandler(kOther, &recorder));
    EXPECT_TRUE(box.RemoveHandler(kSid));
    EXPECT_EQ(box.FindHandler(kOther), &recorder);
}

TEST_F(QMLMsgBoxHandlers, NullHandlerIsRefused) {
    LogCapture log;
    EXPECT_FALSE(box.RegisterHandler(kSid, nullptr));
    EXPECT_FALSE(box.IsOwnUnit(kSid));
    EXPECT_EQ(log.count("[error] RegisterHandler()@QMLMsgBox("), 1U);
    EXPECT_EQ(log.count(" : invalid arg"), 1U);
}

TEST_F(QMLMsgBoxHandlers, TakenIdIsRefusedAndKeepsItsHandler) {
    Recorder other;
    EXPECT_TRUE(box.RegisterHandler(kSid, &recorder));
    LogCapture log;
    EXPECT_FALSE(box.RegisterHandler(kSid, &other));
    EXPECT_EQ(box.FindHandler(kSid), &recorder);
    EXPECT_EQ(log.count("[error] RegisterHandler()@QMLMsgBox("), 1U);
    EXPECT_EQ(log.count(" : id[1] is taken"), 1U);
}

TEST_F(QMLMsgBoxHandlers, RegistrationWithoutMemoryIsRefused) {
    LogCapture log;
    // The first log line of a process sets up what the later ones share.
    QM_LOG_ERROR("warm up\n");
    log.clear();
    bool registered = true;
    {
        const wpp_test::EmptyHeap heap;
        registered = box.RegisterHandler(kSid, &recorder);
    }
    EXPECT_FALSE(registered);
    EXPECT_FALSE(box.IsOwnUnit(kSid));
    EXPECT_EQ(log.count("[error] RegisterHandler()@QMLMsgBox("), 1U);
    EXPECT_EQ(log.count(" : std library error [12 : "), 1U);
}

TEST_F(QMLMsgBoxHandlers, RemovedHandlerIsGoneAndItsIdIsFreeAgain) {
    EXPECT_TRUE(box.RegisterHandler(kSid, &recorder));
    EXPECT_TRUE(box.RemoveHandler(kSid));
    EXPECT_EQ(box.FindHandler(kSid), nullptr);
    EXPECT_FALSE(box.RemoveHandler(kSid));
    EXPECT_TRUE(box.RegisterHandler(kSid, &recorder));
}

TEST_F(QMLMsgBoxHandlers, EntriesThatWaitWhenTheirHandlerGoesAreDropped) {
    Gate gate;
    EXPECT_TRUE(box.RegisterHandler(kSid, &recorder));
    EXPECT_TRUE(box.RegisterHandler(kOther, &gate));
    BoxRun run(box);
    ASSERT_EQ(box.PushMsg(messageOf(kOther, 0)), 0);
    gate.waitUntilEntered();
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 1)), 0);
    EXPECT_EQ(box.SetEvent(kSid, 1, false), 0);
    auto removal = std::async(std::launch::async, [&] { return box.RemoveHandler(kSid); });
    EXPECT_EQ(removal.wait_for(milliseconds(20)), std::future_status::timeout);
    gate.open();
    EXPECT_TRUE(removal.get());
    const std::size_t delivered = recorder.entries().size();
    run.stop();
    EXPECT_EQ(recorder.entries().size(), delivered);
}

TEST_F(QMLMsgBoxHandlers, RemovalWaitsForTheCallThatRuns) {
    QMEvent entered;
    std::atomic<bool> removalBegun{false};
    std::atomic<bool> callEnded{false};
    FunctionHandler slow([&](std::uint32_t, std::uint32_t) {
        entered.SetEvent();
        waitUntil([&] { return removalBegun.load(); });
        QMEvent never;
        QMEvent::WaitEvent(&never, 50);
        callEnded = true;
    });
    EXPECT_TRUE(box.RegisterHandler(kSid, &slow));
    BoxRun run(box);
    EXPECT_EQ(box.SetEvent(kSid, 0, false), 0);
    ASSERT_EQ(QMEvent::WaitEvent(&entered, 10000), 0);
    removalBegun = true;
    EXPECT_TRUE(box.RemoveHandler(kSid));
    EXPECT_TRUE(callEnded);
}

TEST_F(QMLMsgBoxHandlers, PushDoesNotWaitForTheCallThatRuns) {
    Gate gate;
    EXPECT_TRUE(box.RegisterHandler(kSid, &gate));
    BoxRun run(box);
    EXPECT_EQ(box.SetEvent(kSid, 0, false), 0);
    gate.waitUntilEntered();
    EXPECT_EQ(box.PushMsg(messageOf(kOther, 0, "bytes")), 0);
    EXPECT_EQ(box.SetEvent(kOther, 0, true), 0);
    gate.open();
}

/// Removes itself from its box and is gone before its call returns.
class LeavingHandler : public QMIMsgHandler {
public:
    LeavingHandler(QMLMsgBox& ownBox, std::atomic<int>& callCounter) : box(ownBox), calls(callCounter) {}

    void OnMessage(std::uint32_t, const void*, std::uint32_t) override { leave(); }
    void OnEvent(std::uint32_t, std::uint32_t) override { leave(); }

private:
    void leave() {
        ++calls;
        EXPECT_TRUE(box.RemoveHandler(kSid));
        delete this;
    }

    QMLMsgBox& box;
    std::atomic<int>& calls;
};

TEST_F(QMLMsgBoxHandlers, HandlerMayRemoveAndDestroyItselfWithinAMessage) {
    std::atomic<int> calls{0};
    EXPECT_TRUE(box.RegisterHandler(kSid, std::make_unique<LeavingHandler>(box, calls).release()));
    BoxRun run(box);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 1, "bytes")), 0);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 2, "bytes")), 0);
    run.finish();
    EXPECT_EQ(calls, 1);
}

TEST_F(QMLMsgBoxHandlers, HandlerMayRemoveAndDestroyItselfWithinAnEvent) {
    std::atomic<int> calls{0};
    EXPECT_TRUE(box.RegisterHandler(kSid, std::make_unique<LeavingHandler>(box, calls).release()));
    BoxRun run(box);
    EXPECT_EQ(box.SetEvent(kSid, 1, false), 0);
    EXPECT_EQ(box.SetEvent(kSid, 2, false), 0);
    run.finish();
    EXPECT_EQ(calls, 1);
}

TEST_F(QMLMsgBoxHandlers, HandlerMayRemoveAnotherAndRegisterAThird) {
    auto doomed = std::make_unique<Recorder>();
    FunctionHandler replacing([&](std::uint32_t, std::uint32_t) {
        EXPECT_TRUE(box.RemoveHandler(kOther));
        doomed.reset();
        EXPECT_TRUE(box.RegisterHandler(kOther, &recorder));
    });
    EXPECT_TRUE(box.RegisterHandler(kSid, &replacing));
    EXPECT_TRUE(box.RegisterHandler(kOther, doomed.get()));
    BoxRun run(box);
    EXPECT_EQ(box.SetEvent(kSid, 0, false), 0);
    EXPECT_EQ(box.SetEvent(kOther, 5, false), 0);
    run.finish();
    EXPECT_THAT(recorder.entries(), ElementsAre("event 2 5"));
}

TEST_F(QMLMsgBoxHandlers, HandlerThatThrowsIsLoggedAndTheLoopGoesOn) {
    FunctionHandler throwing(
        [](std::uint32_t, const void*, std::uint32_t) { throw std::runtime_error("no message"); },
        [](std::uint32_t, std::uint32_t) { throw std::runtime_error("no event"); });
    EXPECT_TRUE(box.RegisterHandler(kSid, &throwing));
    EXPECT_TRUE(box.RegisterHandler(kOther, &recorder));
    LogCapture log;
    BoxRun run(box);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 7, "bytes")), 0);
    EXPECT_EQ(box.SetEvent(kSid, 8, false), 0);
    EXPECT_EQ(box.SetEvent(kOther, 9, false), 0);
    EXPECT_THAT(recorder.waitForEntries(1), ElementsAre("event 2 9"));
    EXPECT_TRUE(box.RemoveHandler(kSid));
    EXPECT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.count("[error] Run()@QMLMsgBox("), 2U);
    EXPECT_EQ(log.count(" : catch exception. SID[1] messageId[7], what [no message]"), 1U);
    EXPECT_EQ(log.count(" : catch exception. eventId[1], what [no event]"), 1U);
}

TEST_F(QMLMsgBoxHandlers, WhatIsNoStandardExceptionIsLoggedAsUnknown) {
    FunctionHandler throwing([](std::uint32_t, const void*, std::uint32_t) { throw 5; },
                             [](std::uint32_t, std::uint32_t) { throw 6; });
    EXPECT_TRUE(box.RegisterHandler(kSid, &throwing));
    LogCapture log;
    BoxRun run(box);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 7)), 0);
    EXPECT_EQ(box.SetEvent(kSid, 8, false), 0);
    run.finish();
    EXPECT_EQ(log.count(" : catch exception. SID[1] messageId[7], what [unknown]"), 1U);
    EXPECT_EQ(log.count(" : catch exception. eventId[1], what [unknown]"), 1U);
}

/// The number of a pusher and of its message, in the bytes of the message.
struct Numbered {
    std::uint32_t pusher;
    std::uint32_t number;
};

TEST_F(QMLMsgBoxHandlers, MessagesOfEachOfManyPushersArriveWholeAndInTheirOrder) {
    constexpr std::uint32_t kPushers = 4;
    constexpr std::uint32_t kMessages = 2000;
    constexpr std::uint32_t kMostUnderWay = 50;  // of each pusher, so that the queue never fills
    std::array<std::atomic<std::uint32_t>, kPushers> arrived{};
    FunctionHandler checking([&](std::uint32_t msgId, const void* buffer, std::uint32_t size) {
        Numbered numbered{};
        ASSERT_EQ(size, sizeof(numbered));
        std::memcpy(&numbered, buffer, sizeof(numbered));
        ASSERT_LT(numbered.pusher, kPushers);
        EXPECT_EQ(msgId, numbered.number);
        EXPECT_EQ(numbered.number, arrived[numbered.pusher]++);
    });
    EXPECT_TRUE(box.RegisterHandler(kSid, &checking));
    BoxRun run(box);
    std::vector<std::thread> pushers;
    for (std::uint32_t pusher = 0; pusher < kPushers; ++pusher) {
        pushers.emplace_back([&, pusher] {
            for (std::uint32_t number = 0; number < kMessages; ++number) {
                ASSERT_TRUE(waitUntil([&] { return number - arrived[pusher] < kMostUnderWay; }));
                const Numbered numbered{pusher, number};
                EXPECT_EQ(box.PushMsg({kSid, number, 0, &numbered, sizeof(numbered), 0}), 0);
            }
        });
    }
    for (std::thread& pusher : pushers) {
        pusher.join();
    }
    run.finish();
    for (const auto& count : arrived) {
        EXPECT_EQ(count, kMessages);
    }
}

TEST_F(QMLMsgBoxHandlers, HandlersComeAndGoWhileOtherThreadsPush) {
    constexpr int kRounds = 500;
    std::atomic<bool> over{false};
    std::atomic<int> calls{0};
    LogCapture log;
    BoxRun run(box);
    std::thread pusher([&] {
        while (!over) {
            box.PushMsg(messageOf(kSid, 1, "bytes"));
            box.SetEvent(kSid, 1, true);
            std::this_thread::yield();
        }
    });
    for (int round = 0; round < kRounds; ++round) {
        const auto handler =
            std::make_unique<FunctionHandler>([&](std::uint32_t, const void*, std::uint32_t) { ++calls; },
                                              [&](std::uint32_t, std::uint32_t) { ++calls; });
        EXPECT_TRUE(box.RegisterHandler(kSid, handler.get()));
        EXPECT_TRUE(box.IsOwnUnit(kSid));
        EXPECT_TRUE(box.RemoveHandler(kSid));
    }
    over = true;
    pusher.join();
    EXPECT_TRUE(box.RegisterHandler(kSid, &recorder));
    while (box.PushMsg(messageOf(kSid, 77)) == QMIMsgBox::kQueueFull) {
        std::this_thread::yield();
    }
    run.finish();
    EXPECT_THAT(recorder.entries(), testing::Contains("message 77"));
}

}  // namespace
