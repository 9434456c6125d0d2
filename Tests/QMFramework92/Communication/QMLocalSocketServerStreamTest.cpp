#include "Communication/QMLocalSocketServerStream.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <syslog.h>

#include <algorithm>
#include <atomic>
#include <fstream>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Foundation/QMEvent.h"
#include "Tests/QMFramework92/Communication/FailingAllocation.h"
#include "Tests/QMFramework92/Communication/StreamRecorders.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"
#include "Tests/Support/SyslogCapture.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace std::chrono_literals;
using namespace wpp_test;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::size_t kLargeSize = 0xA00000;

/// A server stream in a directory of its own, which is the working directory.
class QMLocalSocketServerStreamTest : public testing::Test {
protected:
    QMLocalSocketServerStreamTest() { directory.enter(); }

    FramedPeer startAndConnect(unsigned mode = QMLocalSocketServerStream::kReceive) {
        EXPECT_TRUE(recorder.start(stream, "S", mode));
        return connectNext();
    }

    /// Another peer, accepted by the server when this returns.
    FramedPeer connectNext() {
        const std::size_t before = recorder.connections.all().size();
        FramedPeer peer = FramedPeer::connectTo("S");
        EXPECT_TRUE(peer.isConnected());
        EXPECT_GT(recorder.connections.waitFor(before + 1).size(), before);
        return peer;
    }

    std::vector<std::string> payloads(std::size_t count) {
        std::vector<std::string> found;
        for (const auto& frame : recorder.frames.waitFor(count)) {
            found.push_back(frame.payload);
        }
        return found;
    }

    /// The descriptor by which the server knows its latest peer.
    int latestDescriptor() { return recorder.connections.all().back().first; }

    LogCapture log;
    TemporaryDirectory directory;
    ServerRecorder recorder;
    QMLocalSocketServerStream stream;
};

TEST_F(QMLocalSocketServerStreamTest, StartRefusesANullName) {
    EXPECT_FALSE(recorder.start(stream, nullptr));
}

TEST_F(QMLocalSocketServerStreamTest, StartRefusesANameOf108Characters) {
    EXPECT_FALSE(recorder.start(stream, std::string(108, 'n').c_str()));
}

TEST_F(QMLocalSocketServerStreamTest, NameOf107CharactersIsUsedWhole) {
    const std::string name(107, 'n');
    EXPECT_TRUE(recorder.start(stream, name.c_str()));
    EXPECT_TRUE(FramedPeer::connectTo(name).isConnected());
}

TEST_F(QMLocalSocketServerStreamTest, FrameReachesTheDataHandlerWithItsDescriptor) {
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendFrame("hello"));
    const auto frames = recorder.frames.waitFor(1);
    ASSERT_THAT(frames, SizeIs(1));
    EXPECT_EQ(frames[0].payload, "hello");
    EXPECT_EQ(frames[0].fd, latestDescriptor());
}

TEST_F(QMLocalSocketServerStreamTest, FrameThatComesByteByByteIsReceivedWhole) {
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendByteByByte(frameOf("hello")));
    EXPECT_THAT(payloads(1), ElementsAre("hello"));
}

TEST_F(QMLocalSocketServerStreamTest, FramesThatComeTogetherAreReceivedOneByOne) {
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendBytes(frameOf("one") + frameOf("two") + frameOf("three")));
    EXPECT_THAT(payloads(3), ElementsAre("one", "two", "three"));
}

TEST_F(QMLocalSocketServerStreamTest, EmptyFrameIsLoggedAndOnlyItsPrefixConsumed) {
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendBytes(framePrefix(0) + frameOf("next")));
    EXPECT_THAT(payloads(1), ElementsAre("next"));
    EXPECT_EQ(log.count("no data::recv size[0]"), 1U);
}

TEST_F(QMLocalSocketServerStreamTest, LogLinesShowTheStepAndTheCommonSourceName) {
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendBytes(framePrefix(0)));
    EXPECT_TRUE(log.waitFor("[error] readSocket()@QMLocalSocketStream("));
}

TEST_F(QMLocalSocketServerStreamTest, FrameAboveTheReceiveSizeIsReceivedWhole) {
    FramedPeer peer = startAndConnect();
    const std::string payload(100000, 'x');
    ASSERT_TRUE(peer.sendFrame(payload));
    EXPECT_THAT(payloads(1), ElementsAre(payload));
}

TEST_F(QMLocalSocketServerStreamTest, PeerThatClosesWithinThePayloadLosesTheFrame) {
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendBytes(framePrefix(10) + "half"));
    peer.close();
    EXPECT_THAT(recorder.connections.waitFor(2), SizeIs(2));
    EXPECT_EQ(log.count("recv: error"), 1U);
    EXPECT_THAT(recorder.frames.all(), IsEmpty());
}

TEST_F(QMLocalSocketServerStreamTest, PeerThatClosesBeforeThePayloadLosesTheFrame) {
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendBytes(framePrefix(10)));
    peer.close();
    EXPECT_THAT(recorder.connections.waitFor(2), SizeIs(2));
    EXPECT_EQ(log.count("recv: error"), 1U);
    EXPECT_THAT(recorder.frames.all(), IsEmpty());
}

TEST_F(QMLocalSocketServerStreamTest, PeerThatAnnouncesTheLargestFrameAndLeavesDoesNoHarm) {
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendBytes(framePrefix(0xFFFFFFFF)));
    peer.close();
    EXPECT_THAT(recorder.connections.waitFor(2), SizeIs(2));
    EXPECT_TRUE(log.contains("recv: error") || log.contains("catch exception."));
    FramedPeer next = connectNext();
    ASSERT_TRUE(next.sendFrame("next"));
    EXPECT_THAT(payloads(1), ElementsAre("next"));
}

TEST_F(QMLocalSocketServerStreamTest, PeerThatClosesWithinThePrefixIsLoggedAndDropped) {
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendBytes(framePrefix(5).substr(0, 3)));
    peer.close();
    EXPECT_THAT(recorder.connections.waitFor(2), SizeIs(2));
    EXPECT_EQ(log.count("recv: error for data length"), 1U);
    EXPECT_THAT(recorder.frames.all(), IsEmpty());
}

TEST_F(QMLocalSocketServerStreamTest, PeerThatLeavesUnreadAnswersIsDropped) {
    FramedPeer peer = startAndConnect();
    ASSERT_GT(stream.send(latestDescriptor(), "answer", 6), 0);
    peer.close();
    EXPECT_THAT(recorder.connections.waitFor(2), SizeIs(2));
    EXPECT_EQ(log.count("recv: error for data length"), 1U);
}

TEST_F(QMLocalSocketServerStreamTest, ConnectionHandlerHearsOfComingAndGoing) {
    FramedPeer peer = startAndConnect();
    const int fd = latestDescriptor();
    peer.close();
    EXPECT_THAT(recorder.connections.waitFor(2), ElementsAre(std::pair(fd, true), std::pair(fd, false)));
}

TEST_F(QMLocalSocketServerStreamTest, MorePeersThanConfiguredAreAllServed) {
    std::vector<FramedPeer> peers;
    peers.push_back(startAndConnect());
    for (int i = 1; i < 20; ++i) {
        peers.push_back(connectNext());
    }
    for (auto& peer : peers) {
        ASSERT_TRUE(peer.sendFrame("x"));
    }
    EXPECT_THAT(recorder.frames.waitFor(peers.size()), SizeIs(peers.size()));
}

TEST_F(QMLocalSocketServerStreamTest, PeersAfterTheFirstHasGoneAreServed) {
    startAndConnect().close();
    recorder.connections.waitFor(2);
    FramedPeer second = connectNext();
    ASSERT_TRUE(second.sendFrame("second"));
    EXPECT_THAT(payloads(1), ElementsAre("second"));
}

TEST_F(QMLocalSocketServerStreamTest, SendReturnsTheSizeOfTheFrame) {
    FramedPeer peer = startAndConnect();
    EXPECT_EQ(stream.send(latestDescriptor(), "answer", 6), 10);
    EXPECT_EQ(peer.receiveBytes(10), std::string("\6\0\0\0answer", 10));
}

TEST_F(QMLocalSocketServerStreamTest, SendTakesMemoryOnceHoweverLongTheNameIs) {
    const std::string name(107, 'n');
    EXPECT_TRUE(recorder.start(stream, name.c_str()));
    FramedPeer peer = FramedPeer::connectTo(name);
    const int descriptor = recorder.connections.waitFor(1).back().first;
    const std::size_t before = heapTakes();
    stream.send(descriptor, "answer", 6);
    EXPECT_LE(heapTakes() - before, 1U);
    EXPECT_EQ(peer.receiveFrame(), "answer");
}

TEST_F(QMLocalSocketServerStreamTest, APassTakesMemoryForItsFrameAlone) {
    std::vector<std::size_t> takes;  // of the stream's thread, from frame to frame
    takes.reserve(20);
    recorder.afterFrame = [&takes](int) { takes.push_back(heapTakes()); };
    FramedPeer peer = startAndConnect();
    for (std::size_t frame = 1; frame <= takes.capacity(); ++frame) {
        ASSERT_TRUE(peer.sendFrame("x"));
        ASSERT_EQ(payloads(frame).size(), frame);
    }
    stream.Stop();
    ASSERT_EQ(takes.size(), takes.capacity());
    std::adjacent_difference(takes.begin(), takes.end(), takes.begin());
    // The recorder takes memory of its own now and then; a sanitizer takes a frame's uncounted.
    EXPECT_LE(*std::min_element(takes.begin() + 1, takes.end()), 1U);
}

TEST_F(QMLocalSocketServerStreamTest, DataHandlerMayAnswer) {
    recorder.afterFrame = [this](int fd) { stream.send(fd, "\1", 1); };
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendFrame("question"));
    EXPECT_EQ(peer.receiveFrame(), "\1");
}

TEST_F(QMLocalSocketServerStreamTest, SendOfNoBytesIsAnEmptyFrame) {
    FramedPeer peer = startAndConnect();
    EXPECT_EQ(stream.send(latestDescriptor(), "", 0), 4);
    EXPECT_EQ(peer.receiveFrame(), "");
}

TEST_F(QMLocalSocketServerStreamTest, SendOfNullIsLogged) {
    const FramedPeer peer = startAndConnect();
    EXPECT_EQ(stream.send(latestDescriptor(), nullptr, 3), 0);
    EXPECT_TRUE(log.contains("send()@QMLocalSocketStream("));
    EXPECT_EQ(log.count("send data is null"), 1U);
}

TEST_F(QMLocalSocketServerStreamTest, SendToAnUnknownDescriptorIsSilent) {
    const FramedPeer peer = startAndConnect();
    EXPECT_EQ(stream.send(-1, "x", 1), 0);
    EXPECT_EQ(stream.send(peer.socket(), "x", 1), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QMLocalSocketServerStreamTest, SendToADescriptorThatHasGoneIsSilent) {
    FramedPeer peer = startAndConnect();
    peer.close();
    const int fd = recorder.connections.waitFor(2).back().first;
    EXPECT_EQ(stream.send(fd, "x", 1), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QMLocalSocketServerStreamTest, SendToAVanishedPeerLogsTheSystemErrorAndNoSignalComes) {
    FramedPeer peer = startAndConnect(QMLocalSocketServerStream::kAcceptOnly);
    peer.close();
    EXPECT_EQ(stream.send(latestDescriptor(), "x", 1), 0);
    EXPECT_TRUE(log.contains("send()@QMLocalSocketStream("));
    EXPECT_TRUE(log.contains("std library error [32 : "));
}

TEST_F(QMLocalSocketServerStreamTest, SendThatCannotAllocateLogsAndReportsAnAssertion) {
    const FramedPeer peer = startAndConnect();
    const FailingAllocation failing(777 + 4);
    EXPECT_EQ(stream.send(latestDescriptor(), std::string(777, 'x').data(), 777), 0);
    EXPECT_TRUE(log.contains("createBuffer()@QMLocalSocketStream("));
    EXPECT_TRUE(log.contains("catch exception. SocketName[S] length[781] what[std::bad_alloc]"));
    EXPECT_TRUE(log.contains("ASSERT Failed!"));
}

TEST_F(QMLocalSocketServerStreamTest, SendWhoseFrameSizeOverflowsCountsAsAFailedAllocation) {
    const FramedPeer peer = startAndConnect();
    EXPECT_EQ(stream.send(latestDescriptor(), "x", 0xFFFFFFFC), 0);
    EXPECT_TRUE(log.contains("catch exception. SocketName[S] length["));
}

TEST_F(QMLocalSocketServerStreamTest, SendAboveTheLargeSizeIsNotedInTheSystemLog) {
    const SyslogCapture systemLog;
    FramedPeer peer = startAndConnect();
    const std::string payload(kLargeSize + 1, 'x');
    std::thread reader([&] { peer.receiveFrame(); });
    stream.send(latestDescriptor(), payload.data(), static_cast<unsigned>(payload.size()));
    reader.join();
    EXPECT_TRUE(systemLog.contains(LOG_NOTICE, "Socket send data length::10485761 / Socket name::S\n"));
    EXPECT_TRUE(log.contains("[sys] send()@QMLocalSocketStream("));
}

TEST_F(QMLocalSocketServerStreamTest, SendOfTheLargeSizeIsNotNoted) {
    FramedPeer peer = startAndConnect();
    const std::string payload(kLargeSize, 'x');
    std::thread reader([&] { peer.receiveFrame(); });
    stream.send(latestDescriptor(), payload.data(), static_cast<unsigned>(payload.size()));
    reader.join();
    EXPECT_FALSE(log.contains("Socket send data length"));
}

TEST_F(QMLocalSocketServerStreamTest, BroadcastReachesEveryPeer) {
    FramedPeer first = startAndConnect();
    FramedPeer second = connectNext();
    stream.broadcast("all", 3);
    EXPECT_EQ(first.receiveFrame(), "all");
    EXPECT_EQ(second.receiveFrame(), "all");
}

TEST_F(QMLocalSocketServerStreamTest, BroadcastOfNullIsLogged) {
    const FramedPeer peer = startAndConnect();
    stream.broadcast(nullptr, 3);
    EXPECT_TRUE(log.contains("broadcast()@QMLocalSocketStream("));
    EXPECT_EQ(log.count("send data is null"), 1U);
}

TEST_F(QMLocalSocketServerStreamTest, BroadcastThatCannotAllocateIsLoggedAsNullData) {
    const FramedPeer peer = startAndConnect();
    const FailingAllocation failing(777 + 4);
    stream.broadcast(std::string(777, 'x').data(), 777);
    EXPECT_TRUE(log.contains("catch exception. SocketName[S] length[781] what[std::bad_alloc]"));
    EXPECT_EQ(log.count("send data is null"), 1U);
}

TEST_F(QMLocalSocketServerStreamTest, BroadcastGoesOnAfterAVanishedPeer) {
    startAndConnect(QMLocalSocketServerStream::kAcceptOnly).close();
    FramedPeer second = connectNext();
    stream.broadcast("all", 3);
    EXPECT_EQ(second.receiveFrame(), "all");
    EXPECT_EQ(log.count("std library error [32 : "), 1U);
}

TEST_F(QMLocalSocketServerStreamTest, AcceptOnlyModeNeverReads) {
    FramedPeer first = startAndConnect(QMLocalSocketServerStream::kAcceptOnly);
    ASSERT_TRUE(first.sendFrame("unread"));
    const FramedPeer second = connectNext();
    const FramedPeer third = connectNext();
    EXPECT_THAT(recorder.frames.all(), IsEmpty());
}

TEST_F(QMLocalSocketServerStreamTest, ReceiveThatCannotAllocateLogsAndDispatchesNothing) {
    const FailingAllocation failing(777);
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendBytes(framePrefix(777)));
    EXPECT_TRUE(log.waitFor("catch exception. SocketName[S] length[777] what[std::bad_alloc]"));
    EXPECT_TRUE(log.waitFor("ASSERT Failed! - QMFramework92/Communication/private/QMLocalSocketStream"));
    EXPECT_THAT(recorder.frames.all(), IsEmpty());
}

TEST_F(QMLocalSocketServerStreamTest, FrameWithoutABufferDoesNotPassForTheNextOnes) {
    const FailingAllocation failing(777);
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendFrame(std::string(777, 'x')));
    ASSERT_TRUE(peer.sendFrame("next"));
    EXPECT_TRUE(waitUntil([&] { return !recorder.frames.all().empty(); }));
    ASSERT_EQ(recorder.frames.all().size(), 1U);
}

TEST_F(QMLocalSocketServerStreamTest, AllocationThatThrowsSomethingElseIsLoggedWithoutItsText) {
    const FailingAllocation failing(777, FailingAllocation::kOtherException);
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendBytes(framePrefix(777)));
    EXPECT_TRUE(log.waitFor("catch exception. SocketName[S] length[777]"));
    EXPECT_FALSE(log.contains("what["));
}

}  // namespace
