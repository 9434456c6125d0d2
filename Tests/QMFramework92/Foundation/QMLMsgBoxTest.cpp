#include "Foundation/QMLMsgBox.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Diagnostics/QMLog.h"
#include "Pattern/QMSingleton.h"
#include "Tests/QMFramework92/Foundation/FailingPipe.h"
#include "Tests/QMFramework92/Foundation/MsgBoxActors.h"
#include "Tests/Support/FailingCall.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/LogCapture.h"

namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using wpp_test::BoxRun;
using wpp_test::EmptyHeap;
using wpp_test::FailingCall;
using wpp_test::FailingPipe;
using wpp_test::Gate;
using wpp_test::kGenerousLimit;
using wpp_test::LogCapture;
using wpp_test::messageOf;
using wpp_test::Recorder;
using wpp_test::Stopwatch;
using wpp_test::SystemCall;
using wpp_test::waitUntil;

constexpr const char* kBanner = "ASSERT Failed! - QMFramework92/Foundation/private/QMLMsgBox(";
constexpr std::uint32_t kGate = 1000;
constexpr std::uint32_t kSid = 1;
constexpr int kEvent = 2;

/// A box, a recorder for the messages of kSid and the events of kEvent, and a gate.
class QMLMsgBoxTest : public testing::Test {
protected:
    QMLMsgBoxTest() {
        EXPECT_TRUE(box.RegisterHandler(kSid, &recorder));
        EXPECT_TRUE(box.RegisterHandler(kEvent, &recorder));
        EXPECT_TRUE(box.RegisterHandler(kGate, &gate));
    }
    void TearDown() override { qm_DestroySingletons(); }

    /// Keeps the running box's thread busy until the gate is opened.
    void holdLoop() {
        ASSERT_EQ(box.PushMsg(messageOf(kGate, 0)), 0);
        gate.waitUntilEntered();
    }

    /// Accepted pushes without a buffer until one is refused.
    int pushUntilRefused() {
        int accepted = 0;
        while (accepted < 1000 && box.PushMsg(messageOf(kSid, 0)) == 0) {
            ++accepted;
        }
        return accepted;
    }

    int setEventsUntilRefused() {
        int accepted = 0;
        while (accepted < 1000 && box.SetEvent(kEvent, 0, false) == 0) {
            ++accepted;
        }
        return accepted;
    }

    /// The first log line of a process sets up what the later ones share.
    static void warmUp(LogCapture& log) {
        QM_LOG_ERROR("warm up\n");
        log.clear();
    }

    Recorder recorder;
    Gate gate;
    QMLMsgBox box;
};

TEST_F(QMLMsgBoxTest, MessageReachesTheHandlerOfItsSidWithACopyOfItsBytes) {
    BoxRun run(box);
    holdLoop();
    std::string bytes = "hello";
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 42, bytes)), 0);
    bytes = "spoilt";
    gate.open();
    EXPECT_THAT(recorder.waitForEntries(1), ElementsAre("message 42 hello"));
}

TEST_F(QMLMsgBoxTest, MessageIdDoesNotSelectTheHandler) {
    BoxRun run(box);
    EXPECT_EQ(box.PushMsg(messageOf(99, kSid)), 0);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 99)), 0);
    run.finish();
    EXPECT_THAT(recorder.entries(), ElementsAre("message 99"));
}

TEST_F(QMLMsgBoxTest, EventReachesTheHandlerOfItsIdWithItsParameter) {
    BoxRun run(box);
    EXPECT_EQ(box.SetEvent(kEvent, 0xFFFFFFFFU, false), 0);
    EXPECT_THAT(recorder.waitForEntries(1), ElementsAre("event 2 4294967295"));
}

TEST_F(QMLMsgBoxTest, NegativeEventIdSelectsTheHandlerOfTheSame32Bits) {
    Recorder other;
    EXPECT_TRUE(box.RegisterHandler(0xFFFFFFFEU, &other));
    BoxRun run(box);
    EXPECT_EQ(box.SetEvent(-2, 5, false), 0);
    run.finish();
    EXPECT_THAT(other.entries(), ElementsAre("event 4294967294 5"));
}

TEST_F(QMLMsgBoxTest, EntriesWithoutAHandlerAreDroppedSilently) {
    LogCapture log;
    BoxRun run(box);
    EXPECT_EQ(box.PushMsg(messageOf(99, 1, "nobody")), 0);
    EXPECT_EQ(box.SetEvent(99, 1, false), 0);
    EXPECT_EQ(box.SetEvent(kEvent, 1, false), 0);
    run.finish();
    EXPECT_THAT(recorder.entries(), ElementsAre("event 2 1"));
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMLMsgBoxTest, BufferOf1ByteAndOf256BytesIsAccepted) {
    BoxRun run(box);
    std::string most(256, 'a');
    most.back() = 'z';
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 1, "x")), 0);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 2, most)), 0);
    run.finish();
    EXPECT_THAT(recorder.entries(), ElementsAre("message 1 x", "message 2 " + most));
}

TEST_F(QMLMsgBoxTest, BufferOf257BytesIsRefusedWithItsAddressItsSizeAndTenFrames) {
    LogCapture log;
    const std::string tooMany(257, 'a');
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 1, tooMany)), 2);
    std::array<char, 40> address{};
    std::snprintf(address.data(), address.size(), "0x%08x",
                  static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(tooMany.data()) & 0xFFFFFFFFU));
    EXPECT_EQ(log.count("[error] PushMsg()@QMLMsgBox("), 1U);
    EXPECT_EQ(log.count(" : param is NG [" + std::string(address.data()) + "][257]"), 1U);
    const std::size_t frames = log.count("dumpDirectly()@QMCallStack(");
    EXPECT_GT(frames, 0U);
    EXPECT_LE(frames, 10U);
    EXPECT_EQ(pushUntilRefused(), 256);
}

TEST_F(QMLMsgBoxTest, BufferOfNoBytesOrOfFarTooManyIsRefused) {
    LogCapture log;
    const char byte = 'x';
    EXPECT_EQ(box.PushMsg({kSid, 1, 0, &byte, 0, 0}), 2);
    EXPECT_EQ(log.count("][0]"), 1U);
    EXPECT_EQ(box.PushMsg({kSid, 1, 0, &byte, 0xFFFFFFFFU, 0}), 2);
    EXPECT_EQ(log.count("][-1]"), 1U);
}

TEST_F(QMLMsgBoxTest, MessageWithoutABufferBringsNullAnd0WhateverItsSizeSays) {
    std::vector<std::uint32_t> sizes;
    std::vector<const void*> buffers;
    wpp_test::FunctionHandler handler([&](std::uint32_t, const void* buffer, std::uint32_t size) {
        buffers.push_back(buffer);
        sizes.push_back(size);
    });
    EXPECT_TRUE(box.RegisterHandler(5, &handler));
    BoxRun run(box);
    for (const std::uint32_t size : {0U, 1U, 257U, 0xFFFFFFFFU}) {
        EXPECT_EQ(box.PushMsg({5, 1, 0, nullptr, size, 0}), 0);
    }
    run.finish();
    EXPECT_THAT(sizes, ElementsAre(0, 0, 0, 0));
    EXPECT_THAT(buffers, testing::Each(nullptr));
}

TEST_F(QMLMsgBoxTest, The256thPendingMessageIsAcceptedAndThe257thRefused) {
    LogCapture log;
    for (int i = 1; i <= 256; ++i) {
        EXPECT_EQ(box.PushMsg(messageOf(kSid, 0, "bytes")), 0) << i;
    }
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 0, "bytes")), 3);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] PushMsg()@QMLMsgBox("), 1U);
    EXPECT_EQ(log.count(" : msg queue is full : worker[0]"), 1U);
    EXPECT_EQ(box.SetEvent(kEvent, 0, false), 0);
}

TEST_F(QMLMsgBoxTest, BadParameterIsSeenBeforeTheFullQueue) {
    LogCapture log;
    EXPECT_EQ(pushUntilRefused(), 256);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 0, std::string(257, 'a'))), 2);
}

TEST_F(QMLMsgBoxTest, The256thPendingEventIsAcceptedAndThe257thRefused) {
    LogCapture log;
    for (int i = 1; i <= 256; ++i) {
        EXPECT_EQ(box.SetEvent(kEvent, 0, false), 0) << i;
    }
    EXPECT_EQ(log.text(), "");
    EXPECT_EQ(box.SetEvent(kEvent, 0, false), 3);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] SetEvent()@QMLMsgBox("), 1U);
    EXPECT_EQ(log.count(" : event is full : worker[0]"), 1U);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 0)), 0);
}

TEST_F(QMLMsgBoxTest, FullQueuesShowTheUnitIdOfTheRun) {
    LogCapture log;
    BoxRun run(box, 0xFFFFFFFDU);
    holdLoop();
    EXPECT_EQ(pushUntilRefused(), 256);
    EXPECT_EQ(setEventsUntilRefused(), 256);
    EXPECT_EQ(log.count(" : msg queue is full : worker[-3]"), 1U);
    EXPECT_EQ(log.count(" : event is full : worker[-3]"), 1U);
    gate.open();
    run.stop();
    EXPECT_EQ(recorder.entries().size(), 512U);
}

TEST_F(QMLMsgBoxTest, DeliveredEntryMakesRoomForAnother) {
    LogCapture log;
    BoxRun run(box);
    holdLoop();
    EXPECT_EQ(pushUntilRefused(), 256);
    gate.open();
    EXPECT_EQ(recorder.waitForEntries(256).size(), 256U);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 0)), 0);
    EXPECT_EQ(recorder.waitForEntries(257).size(), 257U);
}

TEST_F(QMLMsgBoxTest, ReplaceLeavesOneEventOfThatIdBehindAllOthers) {
    EXPECT_TRUE(box.RegisterHandler(3, &recorder));
    BoxRun run(box);
    holdLoop();
    EXPECT_EQ(box.SetEvent(kEvent, 1, false), 0);
    EXPECT_EQ(box.SetEvent(3, 2, false), 0);
    EXPECT_EQ(box.SetEvent(kEvent, 3, false), 0);
    EXPECT_EQ(box.SetEvent(3, 4, false), 0);
    EXPECT_EQ(box.SetEvent(kEvent, 5, true), 0);
    gate.open();
    run.stop();
    EXPECT_THAT(recorder.entries(), ElementsAre("event 3 2", "event 3 4", "event 2 5"));
}

TEST_F(QMLMsgBoxTest, ReplaceWithNothingToReplaceAddsTheEvent) {
    BoxRun run(box);
    holdLoop();
    EXPECT_EQ(box.SetEvent(kEvent, 1, true), 0);
    EXPECT_EQ(box.SetEvent(kEvent, 2, true), 0);
    gate.open();
    run.stop();
    EXPECT_THAT(recorder.entries(), ElementsAre("event 2 2"));
}

TEST_F(QMLMsgBoxTest, WithoutReplaceEventsOfOneIdAreAllDelivered) {
    BoxRun run(box);
    EXPECT_EQ(box.SetEvent(kEvent, 1, false), 0);
    EXPECT_EQ(box.SetEvent(kEvent, 1, false), 0);
    run.finish();
    EXPECT_THAT(recorder.entries(), ElementsAre("event 2 1", "event 2 1"));
}

TEST_F(QMLMsgBoxTest, ReplaceOnAFullQueueIsRefusedAndRemovesNothing) {
    LogCapture log;
    BoxRun run(box);
    holdLoop();
    EXPECT_EQ(setEventsUntilRefused(), 256);
    EXPECT_EQ(box.SetEvent(kEvent, 9, true), 3);
    gate.open();
    run.stop();
    EXPECT_EQ(recorder.entries(), std::vector<std::string>(256, "event 2 0"));
}

TEST_F(QMLMsgBoxTest, MessagePushedAfterAnEventIsDeliveredBeforeIt) {
    BoxRun run(box);
    holdLoop();
    EXPECT_EQ(box.SetEvent(kEvent, 1, false), 0);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 7)), 0);
    EXPECT_EQ(box.SetEvent(kEvent, 2, false), 0);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 8)), 0);
    gate.open();
    run.stop();
    EXPECT_THAT(recorder.entries(), ElementsAre("message 7", "message 8", "event 2 1", "event 2 2"));
}

TEST_F(QMLMsgBoxTest, PriorityDoesNotChangeTheOrder) {
    BoxRun run(box);
    holdLoop();
    EXPECT_EQ(box.PushMsg({kSid, 1, 0, nullptr, 0, 0}), 0);
    EXPECT_EQ(box.PushMsg({kSid, 2, 0xFFFFFFFFU, nullptr, 0, 0xFF}), 0);
    EXPECT_EQ(box.PushMsg({kSid, 3, 1, nullptr, 0, 0}), 0);
    gate.open();
    run.stop();
    EXPECT_THAT(recorder.entries(), ElementsAre("message 1", "message 2", "message 3"));
}

TEST_F(QMLMsgBoxTest, MessagePushedByAnEventsHandlerOvertakesTheEventsThatRemain) {
    wpp_test::FunctionHandler answering(
        [&](std::uint32_t, std::uint32_t param) { EXPECT_EQ(box.PushMsg(messageOf(kSid, param)), 0); });
    EXPECT_TRUE(box.RegisterHandler(3, &answering));
    BoxRun run(box);
    holdLoop();
    EXPECT_EQ(box.SetEvent(3, 11, false), 0);
    EXPECT_EQ(box.SetEvent(kEvent, 1, false), 0);
    EXPECT_EQ(box.SetEvent(3, 12, false), 0);
    EXPECT_EQ(box.SetEvent(kEvent, 2, false), 0);
    gate.open();
    run.stop();
    EXPECT_THAT(recorder.entries(), ElementsAre("message 11", "event 2 1", "message 12", "event 2 2"));
}

TEST_F(QMLMsgBoxTest, EventPushedByAHandlerIsDeliveredAfterThoseBeforeIt) {
    wpp_test::FunctionHandler answering(
        [&](std::uint32_t, const void*, std::uint32_t) { EXPECT_EQ(box.SetEvent(kEvent, 2, false), 0); },
        [&](std::uint32_t, std::uint32_t) { EXPECT_EQ(box.SetEvent(kEvent, 3, false), 0); });
    EXPECT_TRUE(box.RegisterHandler(3, &answering));
    BoxRun run(box);
    holdLoop();
    EXPECT_EQ(box.SetEvent(kEvent, 1, false), 0);
    EXPECT_EQ(box.SetEvent(3, 0, false), 0);
    EXPECT_EQ(box.PushMsg(messageOf(3, 0)), 0);
    gate.open();
    run.stop();
    EXPECT_THAT(recorder.entries(), ElementsAre("event 2 1", "event 2 2", "event 2 3"));
}

TEST_F(QMLMsgBoxTest, WhatWasQueuedBeforeARunIsDiscarded) {
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 1, "old")), 0);
    EXPECT_EQ(box.SetEvent(kEvent, 1, false), 0);
    BoxRun run(box);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 2, "new")), 0);
    run.finish();
    EXPECT_THAT(recorder.entries(), ElementsAre("message 2 new"));
}

TEST_F(QMLMsgBoxTest, StopWaitsUntilBothQueuesAreEmpty) {
    BoxRun run(box);
    holdLoop();
    EXPECT_EQ(box.SetEvent(kEvent, 1, false), 0);
    box.RequestStop();
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 1)), 0);
    gate.open();
    run.stop();
    EXPECT_THAT(recorder.entries(), ElementsAre("message 1", "event 2 1"));
}

TEST_F(QMLMsgBoxTest, HandlerMayStopItsBox) {
    wpp_test::FunctionHandler stopping([&](std::uint32_t, std::uint32_t) { box.RequestStop(); });
    EXPECT_TRUE(box.RegisterHandler(3, &stopping));
    EXPECT_TRUE(box.PrepareRun());
    std::thread thread([&] { EXPECT_EQ(box.Run(7), 0); });
    EXPECT_EQ(box.WaitReady(10000), 0);
    EXPECT_EQ(box.SetEvent(3, 0, false), 0);
    thread.join();
}

TEST_F(QMLMsgBoxTest, StopRequestedAfterThePreparationEndsTheRunThatFollows) {
    EXPECT_TRUE(box.PrepareRun());
    box.RequestStop();
    EXPECT_EQ(box.Run(7), 0);
    EXPECT_EQ(box.WaitReady(0), 0);
}

TEST_F(QMLMsgBoxTest, StopsOfAnEarlierRunDoNotEndTheNext) {
    for (int i = 0; i < 3; ++i) {
        BoxRun run(box);
        EXPECT_EQ(box.PushMsg(messageOf(kSid, 1)), 0);
        run.finish();
        box.RequestStop();
        box.RequestStop();
    }
    BoxRun run(box);
    EXPECT_EQ(recorder.waitForEntries(3).size(), 3U);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 2)), 0);
    EXPECT_EQ(recorder.waitForEntries(4).size(), 4U);
}

TEST_F(QMLMsgBoxTest, LeftoverStopSignalThatCouldNotBeDrainedDoesNotEndTheRun) {
    LogCapture log;
    box.RequestStop();
    {
        const FailingCall noWait(SystemCall::kEpollCreate, EMFILE);
        EXPECT_FALSE(box.PrepareRun());
    }
    std::thread thread([&] { EXPECT_EQ(box.Run(7), 0); });
    EXPECT_EQ(box.WaitReady(10000), 0);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 1)), 0);
    EXPECT_EQ(recorder.waitForEntries(1).size(), 1U);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 2)), 0);
    EXPECT_EQ(recorder.waitForEntries(2).size(), 2U);
    box.RequestStop();
    thread.join();
}

TEST_F(QMLMsgBoxTest, ReadySignalOfAnEarlierRunIsForgotten) {
    EXPECT_TRUE(box.PrepareRun());
    box.RequestStop();
    EXPECT_EQ(box.Run(7), 0);
    EXPECT_TRUE(box.PrepareRun());
    EXPECT_EQ(box.WaitReady(0), -2);
}

TEST_F(QMLMsgBoxTest, WaitReadyOfABoxThatNobodyRunsTimesOut) {
    const Stopwatch stopwatch;
    EXPECT_NE(box.WaitReady(50), 0);
    EXPECT_GE(stopwatch.elapsed(), milliseconds(49));
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
}

TEST_F(QMLMsgBoxTest, InitializeOfAWholeBoxSucceedsSilently) {
    LogCapture log;
    EXPECT_EQ(box.Initialize(), 0);
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMLMsgBoxTest, BoxThatLacksAnyOneEventCannotBeInitialized) {
    LogCapture log;
    for (const int number : {1, 2, 3}) {
        log.clear();
        const FailingPipe noDescriptors(number);
        QMLMsgBox lacking;
        EXPECT_NE(lacking.Initialize(), 0) << number;
        EXPECT_EQ(log.count("[error] Initialize()@QMLMsgBox("), 1U) << number;
        EXPECT_EQ(log.count(" : handle error"), 1U) << number;
    }
}

TEST_F(QMLMsgBoxTest, RunThatCannotGetReadyEndsAtOnce) {
    LogCapture log;
    const FailingPipe noDescriptors(1);
    QMLMsgBox lacking;
    EXPECT_EQ(lacking.Run(7), 0);
    EXPECT_FALSE(lacking.PrepareRun());
    EXPECT_NE(lacking.WaitReady(0), 0);
}

TEST_F(QMLMsgBoxTest, WakeSignalThatCannotBeSetIsReportedAndTheEntryQueued) {
    LogCapture log;
    const FailingPipe noDescriptors(3);
    QMLMsgBox lacking;
    log.clear();
    EXPECT_EQ(lacking.PushMsg(messageOf(kSid, 0)), 1);
    EXPECT_EQ(lacking.SetEvent(kEvent, 0, false), 1);
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.count("[error] PushMsg()@QMLMsgBox("), 1U);
    EXPECT_EQ(log.count("[error] SetEvent()@QMLMsgBox("), 1U);
    EXPECT_EQ(log.count(" : SetEvent failed"), 2U);
    for (int i = 1; i < 256; ++i) {
        EXPECT_EQ(lacking.SetEvent(kEvent, 0, false), 1);
    }
    EXPECT_EQ(lacking.SetEvent(kEvent, 0, false), 3);
}

TEST_F(QMLMsgBoxTest, FullWakeEventIsReportedAndCollapsesToASignalThatStillWakes) {
    constexpr unsigned kMostSignals = 65536;
    LogCapture log;
    BoxRun run(box);
    holdLoop();
    unsigned replaced = 0;
    while (replaced <= kMostSignals && box.SetEvent(kEvent, replaced, true) == 0) {
        ++replaced;
    }
    EXPECT_LE(replaced, kMostSignals);
    EXPECT_EQ(log.count("[error] SetEvent()@QMLMsgBox("), 1U);
    EXPECT_EQ(log.count(" : SetEvent failed"), 1U);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 1)), 0);
    gate.open();
    EXPECT_THAT(recorder.waitForEntries(2), ElementsAre("message 1", "event 2 " + std::to_string(replaced)));
}

TEST_F(QMLMsgBoxTest, FailedWaitsPrintBannersAtMostTenTimesASecondAndTheBoxServesAllTheSame) {
    LogCapture log;
    BoxRun run(box);
    {
        const FailingCall noWait(SystemCall::kEpollCreate, EMFILE);
        const Stopwatch stopwatch;
        EXPECT_EQ(box.PushMsg(messageOf(kSid, 1)), 0);
        ASSERT_TRUE(waitUntil([&] { return log.count(kBanner) >= 4; }));
        const auto banners = static_cast<long>(log.count(kBanner));
        EXPECT_LE(banners, stopwatch.elapsed() / milliseconds(100) + 1);
        EXPECT_EQ(box.SetEvent(kEvent, 2, false), 0);
        EXPECT_EQ(recorder.waitForEntries(2).size(), 2U);
    }
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 3)), 0);
    EXPECT_THAT(recorder.waitForEntries(3), ElementsAre("message 1", "event 2 2", "message 3"));
}

TEST_F(QMLMsgBoxTest, StopIsSeenWhileNoEventCanBeWaitedFor) {
    LogCapture log;
    BoxRun run(box);
    const FailingCall noWait(SystemCall::kEpollCreate, EMFILE);
    EXPECT_EQ(box.PushMsg(messageOf(kSid, 1)), 0);
    ASSERT_TRUE(log.waitFor(kBanner));
    const Stopwatch stopwatch;
    run.stop();
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
}

TEST_F(QMLMsgBoxTest, PushWithoutMemoryIsRefusedAsFullAndQueuesNothing) {
    LogCapture log;
    warmUp(log);
    const std::string bytes(256, 'a');
    int result = 0;
    {
        const EmptyHeap heap;
        result = box.PushMsg({kSid, 1, 0, bytes.data(), 256, 0});
    }
    EXPECT_EQ(result, 3);
    EXPECT_EQ(log.count("[error] PushMsg()@QMLMsgBox("), 1U);
    EXPECT_EQ(log.count(" : std library error [12 : "), 1U);
    EXPECT_EQ(pushUntilRefused(), 256);
}

TEST_F(QMLMsgBoxTest, QueuesThatCannotGrowRefuseAsFull) {
    LogCapture log;
    warmUp(log);
    int messages = 0;
    int events = 0;
    {
        const EmptyHeap heap;
        messages = pushUntilRefused();
        events = setEventsUntilRefused();
    }
    EXPECT_LT(messages, 256);
    EXPECT_LT(events, 256);
    EXPECT_EQ(log.count(" : std library error [12 : "), 2U);
    EXPECT_EQ(messages + pushUntilRefused(), 256);
    EXPECT_EQ(events + setEventsUntilRefused(), 256);
}

TEST_F(QMLMsgBoxTest, ReplaceThatGetsNoMemoryKeepsWhatIsQueued) {
    LogCapture log;
    warmUp(log);
    EXPECT_TRUE(box.RegisterHandler(3, &recorder));
    BoxRun run(box);
    holdLoop();
    EXPECT_EQ(box.SetEvent(3, 17, false), 0);
    int queued = 0;
    int result = 0;
    {
        const EmptyHeap heap;
        queued = setEventsUntilRefused();
        result = box.SetEvent(3, 18, true);
    }
    EXPECT_EQ(result, 3);
    gate.open();
    run.stop();
    const std::vector<std::string> entries = recorder.entries();
    ASSERT_EQ(entries.size(), static_cast<std::size_t>(queued) + 1);
    EXPECT_EQ(entries.front(), "event 3 17");
}

TEST_F(QMLMsgBoxTest, BoxThatIsNeverRunFreesWhatIsQueued) {
    auto unused = std::make_unique<QMLMsgBox>();
    EXPECT_EQ(unused->PushMsg(messageOf(kSid, 1, "freed")), 0);
    EXPECT_EQ(unused->SetEvent(kEvent, 1, false), 0);
}

}  // namespace
