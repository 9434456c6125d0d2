#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Communication/QMLocalSocketClientStream.h"
#include "Tests/QMFramework92/Communication/ConnectHook.h"
#include "Tests/QMFramework92/Communication/FailingAllocation.h"
#include "Tests/QMFramework92/Communication/StreamRecorders.h"
#include "Tests/Support/FailingCall.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"
#include "Tests/Support/TemporaryDirectory.h"

// Starting, stopping and failing of a client stream, and its asynchronous mode.
namespace {

using namespace std::chrono_literals;
using namespace wpp_test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kNoTimeLimit = -1;

constexpr auto kStopLimit = 500ms;
constexpr auto kInTime = 200ms;  // well within the grace

class QMLocalSocketClientLife : public testing::Test {
protected:
    QMLocalSocketClientLife() { directory.enter(); }

    void listen() {
        std::filesystem::remove("S");
        listener.reset();
        listener = std::make_unique<FramedListener>("S");
    }

    FramedPeer startAndAccept(unsigned mode = QMLocalSocketClientStream::kSynchronous) {
        listen();
        const std::size_t before = recorder.connections.all().size();
        EXPECT_TRUE(recorder.start(stream, "S", mode));
        FramedPeer peer = listener->accept();
        EXPECT_GT(recorder.connections.waitFor(before + 1).size(), before);
        return peer;
    }

    std::chrono::milliseconds timeOfStop() {
        const Stopwatch watch;
        stream.Stop();
        return watch.elapsed();
    }

    /// Starts the stream anew; its peer answers a question with these bytes and no more. @return how long Stop
    /// takes then. The exchange has to fail.
    std::chrono::milliseconds stopWithHalfAReply(const std::string& bytes) {
        FramedPeer peer = startAndAccept();
        int result = -1;
        std::thread caller([&] {
            std::vector<char> reply(16384);
            unsigned length = 0;
            result = stream.communicate("question", 8, reply.data(), &length, kNoTimeLimit);
        });
        EXPECT_EQ(peer.receiveFrame(), "question");
        EXPECT_TRUE(peer.sendBytes(bytes));
        EXPECT_TRUE(peer.waitUntilRead());
        const auto elapsed = timeOfStop();
        caller.join();
        EXPECT_EQ(result, 0);
        return elapsed;
    }

    LogCapture log;
    TemporaryDirectory directory;
    std::unique_ptr<FramedListener> listener;
    ClientRecorder recorder;
    QMLocalSocketClientStream stream;
};

using QMLocalSocketClientAsynchronous = QMLocalSocketClientLife;

TEST_F(QMLocalSocketClientLife, SynchronousThreadEndsOnceConnected) {
    const FramedPeer peer = startAndAccept();
    EXPECT_TRUE(waitUntil([] { return !hasThreadNamed("ClientStream_s9"); }));
}

TEST_F(QMLocalSocketClientLife, ExchangeThatFollowsThePeersAcceptFindsTheConnection) {
    constexpr auto kLongerThanARefusal = 200ms;
    FramedPeer peer;
    std::future<int> sent;
    const ConnectHook afterConnect([&] {
        peer = listener->accept();
        sent = std::async(std::launch::async, [this] {
            char reply[16384];
            return stream.communicate("abc", 3, reply, nullptr, kNoTimeLimit);
        });
        sent.wait_for(kLongerThanARefusal);
    });
    listen();
    ASSERT_TRUE(recorder.start(stream, "S"));
    ASSERT_THAT(recorder.connections.waitFor(1), ElementsAre(true));
    EXPECT_EQ(peer.receiveFrame(), "abc");
    EXPECT_TRUE(peer.sendFrame("x"));
    EXPECT_EQ(sent.get(), 7);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QMLocalSocketClientLife, EveryDescriptorIsCloseOnExec) {
    const auto before = openDescriptors();
    const FramedPeer peer = startAndAccept();
    for (const int descriptor : openDescriptors()) {
        if (before.count(descriptor) == 0) {
            EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << descriptor;
        }
    }
}

TEST_F(QMLocalSocketClientLife, ConnectingThreadCarriesTheStreamsName) {
    ASSERT_TRUE(recorder.start(stream, "S"));
    EXPECT_TRUE(waitUntil([] { return hasThreadNamed("ClientStream_s9"); }));
}

TEST_F(QMLocalSocketClientLife, StopWithoutStartReturns) {
    stream.Stop();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QMLocalSocketClientLife, StopClosesTheConnection) {
    FramedPeer peer = startAndAccept();
    stream.Stop();
    EXPECT_TRUE(peer.waitForClose());
    EXPECT_EQ(stream.send("x", 1), 0);
}

TEST_F(QMLocalSocketClientLife, StopTellsTheConnectionHandlerNothing) {
    const FramedPeer peer = startAndAccept();
    stream.Stop();
    EXPECT_THAT(recorder.connections.all(), ElementsAre(true));
}

TEST_F(QMLocalSocketClientLife, StopWhileConnectingTakesOnlyAMoment) {
    ASSERT_TRUE(recorder.start(stream, "S"));
    const Stopwatch watch;
    stream.Stop();
    EXPECT_LT(watch.elapsed(), 900ms);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QMLocalSocketClientLife, StopWhileTheListenersQueueIsFullTakesOnlyAMoment) {
    const FramedListener full("S", 0);
    const FramedPeer waiting = FramedPeer::connectTo("S");
    const auto before = openDescriptors().size();
    ASSERT_TRUE(recorder.start(stream, "S"));
    // The thread blocks in connect once it has its socket.
    ASSERT_TRUE(waitUntil([&] { return openDescriptors().size() > before; }));
    const Stopwatch watch;
    stream.Stop();
    EXPECT_LT(watch.elapsed(), 900ms);
}

TEST_F(QMLocalSocketClientLife, ConnectsOnceAFullQueueHasRoom) {
    FramedListener full("S", 0);
    const FramedPeer waiting = FramedPeer::connectTo("S");
    ASSERT_TRUE(recorder.start(stream, "S"));
    const FramedPeer first = full.accept();
    FramedPeer second = full.accept();
    EXPECT_THAT(recorder.connections.waitFor(1), ElementsAre(true));
    EXPECT_EQ(stream.send("x", 1), 5);
    EXPECT_EQ(second.receiveFrame(), "x");
}

TEST_F(QMLocalSocketClientLife, PeerThatStallsAtAnyByteOfAReplyDelaysStopByLessThanHalfASecond) {
    const std::string reply = frameOf("a reply");
    for (std::size_t sent = 0; sent < reply.size(); ++sent) {
        EXPECT_LT(shortestOf(kStopLimit, [&] { return stopWithHalfAReply(reply.substr(0, sent)); }),
                  kStopLimit)
            << sent << " bytes sent";
    }
}

TEST_F(QMLocalSocketClientLife, StopLetsAnExchangeComeToItsEnd) {
    int result = -1;
    // On a loaded machine the peer may answer too late; then it comes again.
    shortestOf(kInTime, [&] {
        FramedPeer peer = startAndAccept();
        std::vector<char> reply(16384);
        auto exchange = std::async(std::launch::async, [&] {
            unsigned length = 0;
            return stream.communicate("question", 8, reply.data(), &length, kNoTimeLimit);
        });
        EXPECT_EQ(peer.receiveFrame(), "question");
        const Stopwatch watch;
        const auto stopped = std::async(std::launch::async, [this] { stream.Stop(); });
        std::this_thread::sleep_for(50ms);  // a peer that takes its time
        peer.sendFrame("answer");
        const auto elapsed = watch.elapsed();
        result = exchange.get();
        return elapsed;
    });
    EXPECT_EQ(result, 12);
}

TEST_F(QMLocalSocketClientLife, StopRightAfterStartAlwaysReturns) {
    for (int i = 0; i < 30; ++i) {
        ASSERT_TRUE(recorder.start(stream, "S"));
        stream.Stop();
    }
}

TEST_F(QMLocalSocketClientLife, DestructorStops) {
    listen();
    auto owned = std::make_unique<QMLocalSocketClientStream>();
    ASSERT_TRUE(recorder.start(*owned, "S"));
    FramedPeer peer = listener->accept();
    owned.reset();
    EXPECT_TRUE(peer.waitForClose());
}

TEST_F(QMLocalSocketClientLife, StreamRestartsAfterStop) {
    startAndAccept().close();
    stream.Stop();
    FramedPeer peer = startAndAccept();
    EXPECT_EQ(stream.send("again", 5), 9);
    EXPECT_EQ(peer.receiveFrame(), "again");
}

TEST_F(QMLocalSocketClientLife, StartStopsARunningStreamFirst) {
    FramedPeer first = startAndAccept();
    FramedPeer second = startAndAccept();
    EXPECT_TRUE(first.waitForClose());
    EXPECT_EQ(stream.send("x", 1), 5);
    EXPECT_EQ(second.receiveFrame(), "x");
}

TEST_F(QMLocalSocketClientLife, ManyRoundsLeaveNoDescriptorBehind) {
    startAndAccept().close();
    stream.Stop();
    const auto before = openDescriptors().size();
    for (int i = 0; i < 20; ++i) {
        startAndAccept().close();
        stream.Stop();
    }
    EXPECT_EQ(openDescriptors().size(), before);
}

TEST_F(QMLocalSocketClientLife, StartAndStopFromSeveralThreadsDoNotHang) {
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([this] {
            for (int round = 0; round < 5; ++round) {
                recorder.start(stream, "S");
                stream.Stop();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(stream.send("x", 1), 0);
}

TEST_F(QMLocalSocketClientLife, StreamThatGetsNoSocketLogsAndCanBeRestarted) {
    {
        const FailingCall none(SystemCall::kSocket, EMFILE);
        ASSERT_TRUE(recorder.start(stream, "S"));
        EXPECT_TRUE(log.waitFor("MainProc()@QMLocalSocketStream("));
        EXPECT_EQ(log.count("create socket : fail in socket"), 1U);
        stream.Stop();
    }
    EXPECT_TRUE(startAndAccept().isConnected());
}

TEST_F(QMLocalSocketClientLife, StreamWithoutHandlersConnects) {
    listen();
    ASSERT_TRUE(stream.Start({"S", 16384, nullptr, nullptr}, QMLocalSocketClientStream::kSynchronous));
    FramedPeer peer = listener->accept();
    ASSERT_TRUE(waitUntil([&] { return stream.send("x", 1) == 5; }));
    EXPECT_EQ(peer.receiveFrame(), "x");
}

TEST_F(QMLocalSocketClientAsynchronous, EveryFrameReachesTheDataHandler) {
    FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    ASSERT_TRUE(peer.sendBytes(frameOf("one") + frameOf("two")));
    ASSERT_TRUE(peer.sendByteByByte(frameOf("three")));
    EXPECT_THAT(recorder.frames.waitFor(3), ElementsAre("one", "two", "three"));
}

TEST_F(QMLocalSocketClientAsynchronous, FrameAboveTheReceiveLimitIsReceivedWhole) {
    FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    const std::string payload(100000, 'x');
    ASSERT_TRUE(peer.sendFrame(payload));
    EXPECT_THAT(recorder.frames.waitFor(1), ElementsAre(payload));
}

TEST_F(QMLocalSocketClientAsynchronous, EmptyFrameIsLogged) {
    FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    ASSERT_TRUE(peer.sendBytes(framePrefix(0) + frameOf("next")));
    EXPECT_THAT(recorder.frames.waitFor(1), ElementsAre("next"));
    EXPECT_EQ(log.count("MainProc()@QMLocalSocketStream("), 1U);
    EXPECT_EQ(log.count("recv: no data"), 1U);
}

TEST_F(QMLocalSocketClientAsynchronous, FrameThatBreaksOffIsDropped) {
    FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    ASSERT_TRUE(peer.sendBytes(framePrefix(10) + "half"));
    peer.close();
    EXPECT_TRUE(waitUntil([&] { return recorder.connections.all().size() >= 2; }));
    EXPECT_EQ(log.count("recv: error"), 2U);
    EXPECT_THAT(recorder.frames.all(), IsEmpty());
}

TEST_F(QMLocalSocketClientAsynchronous, FrameThatCannotBeAllocatedIsLogged) {
    const FailingAllocation failing(777);
    FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    ASSERT_TRUE(peer.sendBytes(framePrefix(777)));
    EXPECT_TRUE(log.waitFor("recv: buffer is NULL"));
    EXPECT_TRUE(log.contains("catch exception. SocketName[S] length[777] what[std::bad_alloc]"));
}

TEST_F(QMLocalSocketClientAsynchronous, StreamConnectsAgainAfterThePeerClosed) {
    startAndAccept(QMLocalSocketClientStream::kAsynchronous).close();
    FramedPeer second = listener->accept();
    ASSERT_TRUE(second.isConnected());
    EXPECT_THAT(recorder.connections.waitFor(3), ElementsAre(true, false, true));
    ASSERT_TRUE(second.sendFrame("again"));
    EXPECT_THAT(recorder.frames.waitFor(1), ElementsAre("again"));
}

TEST_F(QMLocalSocketClientAsynchronous, NewConnectionComesAfterTheRetryPeriod) {
    FramedPeer first = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    const Stopwatch watch;
    first.close();
    ASSERT_TRUE(listener->accept().isConnected());
    EXPECT_GE(watch.elapsed(), 95ms);
}

TEST_F(QMLocalSocketClientAsynchronous, SendAfterThePeerClosedIsSilentlyRefused) {
    FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    listener.reset();
    peer.close();
    ASSERT_THAT(recorder.connections.waitFor(2), ElementsAre(true, false));
    log.clear();
    EXPECT_EQ(stream.send("x", 1), 0);
    EXPECT_FALSE(log.contains("send()"));
}

TEST_F(QMLocalSocketClientAsynchronous, ReconnectingLeavesNoDescriptorBehind) {
    FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    const auto before = openDescriptors().size();
    for (int i = 0; i < 5; ++i) {
        peer = listener->accept(0ms);
        peer = listener->accept();
        ASSERT_TRUE(peer.isConnected());
    }
    EXPECT_EQ(openDescriptors().size(), before);
}

TEST_F(QMLocalSocketClientAsynchronous, PeerThatStallsAtAnyByteOfAFrameDelaysStopByLessThanHalfASecond) {
    const std::string frame = frameOf("a payload");
    const auto stopWith = [this](const std::string& bytes) {
        FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
        EXPECT_TRUE(peer.sendBytes(bytes));
        EXPECT_TRUE(peer.waitUntilRead());
        const auto elapsed = timeOfStop();
        EXPECT_TRUE(peer.waitForClose());
        return elapsed;
    };
    for (std::size_t sent = 0; sent < frame.size(); ++sent) {
        EXPECT_LT(shortestOf(kStopLimit, [&] { return stopWith(frame.substr(0, sent)); }), kStopLimit)
            << sent << " bytes sent";
    }
}

TEST_F(QMLocalSocketClientAsynchronous, EndOfAnEarlierThreadDoesNotPassForTheEndOfThisOne) {
    const FramedPeer first = startAndAccept();
    ASSERT_TRUE(waitUntil([] { return !hasThreadNamed("ClientStream_s9"); }));
    listen();
    {
        const FailingCall failing(SystemCall::kEpollCreate, EMFILE);
        ASSERT_TRUE(recorder.start(stream, "S", QMLocalSocketClientStream::kAsynchronous));
    }
    FramedPeer peer = listener->accept();
    ASSERT_TRUE(peer.sendBytes(framePrefix(100) + "half"));
    ASSERT_TRUE(peer.waitUntilRead());
    auto stopped = std::async(std::launch::async, [this] { stream.Stop(); });
    EXPECT_EQ(stopped.wait_for(6s), std::future_status::ready);
    peer.close();
}

TEST_F(QMLocalSocketClientAsynchronous, StopWhileIdleTakesOnlyAMoment) {
    const FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    const Stopwatch watch;
    stream.Stop();
    EXPECT_LT(watch.elapsed(), 900ms);
}

}  // namespace
