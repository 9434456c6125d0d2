#include "Communication/QMLocalSocketClientStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <syslog.h>

#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Tests/QMFramework92/Communication/FailingAllocation.h"
#include "Tests/QMFramework92/Communication/StreamRecorders.h"
#include "Tests/Support/FailingCall.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/SyslogCapture.h"
#include "Tests/Support/TemporaryDirectory.h"

namespace {

using namespace std::chrono_literals;
using namespace wpp_test;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr int kNoTimeLimit = -1;
constexpr std::size_t kLargeSize = 0xA00000;

/// A synchronous client stream and the peer it talks to, in a directory of its own.
class QMLocalSocketClientStreamTest : public testing::Test {
protected:
    QMLocalSocketClientStreamTest() { directory.enter(); }

    FramedPeer startAndAccept(unsigned mode = QMLocalSocketClientStream::kSynchronous) {
        listener = std::make_unique<FramedListener>("S");
        EXPECT_TRUE(recorder.start(stream, "S", mode));
        FramedPeer peer = listener->accept();
        EXPECT_THAT(recorder.connections.waitFor(1), ElementsAre(true));
        return peer;
    }

    /// Answers the next request with these bytes.
    static std::thread answerWith(FramedPeer& peer, std::string bytes) {
        return std::thread([&peer, bytes = std::move(bytes)] {
            peer.receiveFrame();
            peer.sendBytes(bytes);
        });
    }

    /// The next request is met with these bytes, then the connection ends.
    static std::thread answerWithAndClose(FramedPeer& peer, std::string bytes) {
        return std::thread([&peer, bytes = std::move(bytes)] {
            peer.receiveFrame();
            peer.sendBytes(bytes);
            peer.close();
        });
    }

    int communicate(const std::string& request, int timeoutMs = kNoTimeLimit) {
        return stream.communicate(request.data(), static_cast<unsigned>(request.size()), reply.data(),
                                  &replyLength, timeoutMs);
    }

    int communicateWithCreateBuff(const std::string& request, int timeoutMs = kNoTimeLimit) {
        void* buffer = nullptr;
        const int sent = stream.communicateWithCreateBuff(
            request.data(), static_cast<unsigned>(request.size()), &buffer, &replyLength, timeoutMs);
        created.reset(static_cast<std::uint8_t*>(buffer));
        return sent;
    }

    std::string replyText() const { return std::string(reply.data(), replyLength); }

    LogCapture log;
    TemporaryDirectory directory;
    std::unique_ptr<FramedListener> listener;
    ClientRecorder recorder;
    QMLocalSocketClientStream stream;
    std::array<char, 16384> reply{};
    unsigned replyLength = 0;
    std::unique_ptr<std::uint8_t[]> created;
};

using QMLocalSocketClientExchange = QMLocalSocketClientStreamTest;

TEST_F(QMLocalSocketClientStreamTest, StartRefusesANullName) {
    EXPECT_FALSE(recorder.start(stream, nullptr));
}

TEST_F(QMLocalSocketClientStreamTest, StartRefusesANameOf108Characters) {
    EXPECT_FALSE(recorder.start(stream, std::string(108, 'n').c_str()));
}

TEST_F(QMLocalSocketClientStreamTest, NameOf107CharactersIsUsedWhole) {
    const std::string name(107, 'n');
    FramedListener named(name);
    EXPECT_TRUE(recorder.start(stream, name.c_str()));
    EXPECT_TRUE(named.accept().isConnected());
}

TEST_F(QMLocalSocketClientStreamTest, ConnectsOnceTheListenerComesUp) {
    ASSERT_TRUE(recorder.start(stream, "S"));
    FramedListener late("S");
    EXPECT_TRUE(late.accept().isConnected());
    EXPECT_THAT(recorder.connections.waitFor(1), ElementsAre(true));
}

TEST_F(QMLocalSocketClientStreamTest, SendIsOneFrame) {
    FramedPeer peer = startAndAccept();
    EXPECT_EQ(stream.send("hello", 5), 9);
    EXPECT_EQ(peer.receiveBytes(9), std::string("\5\0\0\0hello", 9));
}

TEST_F(QMLocalSocketClientStreamTest, SendOfNullAndNoBytesIsAnEmptyFrame) {
    FramedPeer peer = startAndAccept();
    EXPECT_EQ(stream.send(nullptr, 0), 4);
    EXPECT_EQ(peer.receiveFrame(), "");
}

TEST_F(QMLocalSocketClientStreamTest, SendOfNullIsRefused) {
    const FramedPeer peer = startAndAccept();
    EXPECT_EQ(stream.send(nullptr, 3), 0);
    EXPECT_TRUE(log.contains("send()@QMLocalSocketStream("));
}

TEST_F(QMLocalSocketClientStreamTest, SendBeforeTheConnectionIsSilentlyRefused) {
    EXPECT_EQ(stream.send("x", 1), 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QMLocalSocketClientStreamTest, SendToAVanishedPeerLogsTheSystemErrorAndNoSignalComes) {
    startAndAccept().close();
    EXPECT_EQ(stream.send("x", 1), 0);
    EXPECT_TRUE(log.contains("send()@QMLocalSocketStream("));
    EXPECT_TRUE(log.contains("std library error [32 : "));
}

TEST_F(QMLocalSocketClientStreamTest, SendThatCannotAllocateReturnsZero) {
    const FramedPeer peer = startAndAccept();
    const FailingAllocation failing(777 + 4);
    EXPECT_EQ(stream.send(std::string(777, 'x').data(), 777), 0);
    EXPECT_TRUE(log.contains("std library error [12 : "));
}

TEST_F(QMLocalSocketClientStreamTest, SendWhoseFrameSizeOverflowsCountsAsAFailedAllocation) {
    const FramedPeer peer = startAndAccept();
    EXPECT_EQ(stream.send("x", 0xFFFFFFFC), 0);
    EXPECT_TRUE(log.contains("std library error [12 : "));
}

TEST_F(QMLocalSocketClientStreamTest, SendAboveTheLargeSizeIsNotedInTheSystemLog) {
    const SyslogCapture systemLog;
    FramedPeer peer = startAndAccept();
    const std::string payload(kLargeSize + 1, 'x');
    std::thread reader([&] { peer.receiveFrame(); });
    EXPECT_EQ(stream.send(payload.data(), static_cast<unsigned>(payload.size())),
              static_cast<int>(payload.size() + 4));
    reader.join();
    EXPECT_TRUE(systemLog.contains(LOG_NOTICE, "Socket send data length::10485761 / Socket name::S\n"));
    EXPECT_TRUE(log.contains("[sys] sendStreamData()@QMLocalSocketStream("));
}

TEST_F(QMLocalSocketClientStreamTest, SendOfTheLargeSizeIsNotNoted) {
    FramedPeer peer = startAndAccept();
    const std::string payload(kLargeSize, 'x');
    std::thread reader([&] { peer.receiveFrame(); });
    stream.send(payload.data(), static_cast<unsigned>(payload.size()));
    reader.join();
    EXPECT_FALSE(log.contains("Socket send data length"));
}

TEST_F(QMLocalSocketClientExchange, ReplyComesIntoTheCallersBuffer) {
    FramedPeer peer = startAndAccept();
    std::thread answer = answerWith(peer, frameOf("answer"));
    EXPECT_EQ(communicate("question"), 12);
    answer.join();
    EXPECT_EQ(replyText(), "answer");
}

TEST_F(QMLocalSocketClientExchange, ReplyThatComesByteByByteIsReceivedWhole) {
    FramedPeer peer = startAndAccept();
    std::thread answer([&] {
        peer.receiveFrame();
        peer.sendByteByByte(frameOf("answer"));
    });
    EXPECT_EQ(communicate("question"), 12);
    answer.join();
    EXPECT_EQ(replyText(), "answer");
}

TEST_F(QMLocalSocketClientExchange, WithoutConnectionItIsRefused) {
    EXPECT_EQ(communicate("question"), 0);
    EXPECT_TRUE(log.contains("communicate()@QMLocalSocketStream("));
    EXPECT_EQ(log.count("Not connected"), 1U);
}

TEST_F(QMLocalSocketClientExchange, MissingConnectionIsNoticedBeforeMissingBuffers) {
    EXPECT_EQ(stream.communicate(nullptr, 0, nullptr, nullptr, 0), 0);
    EXPECT_EQ(log.count("Not connected"), 1U);
    EXPECT_FALSE(log.contains("buff is null"));
}

TEST_F(QMLocalSocketClientExchange, AsynchronousStreamRefuses) {
    const FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    EXPECT_EQ(communicate("question"), 0);
    EXPECT_EQ(log.count("communicate method : ASYNC"), 1U);
}

TEST_F(QMLocalSocketClientExchange, AsynchronousStreamRefusesACreatedBufferToo) {
    const FramedPeer peer = startAndAccept(QMLocalSocketClientStream::kAsynchronous);
    EXPECT_EQ(communicateWithCreateBuff("question"), 0);
    EXPECT_TRUE(log.contains("communicateWithCreateBuff()@QMLocalSocketStream("));
    EXPECT_EQ(log.count("communicate method : ASYNC"), 1U);
}

TEST_F(QMLocalSocketClientExchange, MissingBuffersAreLogged) {
    const FramedPeer peer = startAndAccept();
    EXPECT_EQ(stream.communicate("x", 1, nullptr, &replyLength, 0), 0);
    EXPECT_EQ(stream.communicate(nullptr, 1, reply.data(), &replyLength, 0), 0);
    EXPECT_EQ(log.count("send or recv buff is null."), 2U);
}

TEST_F(QMLocalSocketClientExchange, MissingBuffersOfACreatedReplyAreLoggedWithoutAFullStop) {
    const FramedPeer peer = startAndAccept();
    void* buffer = nullptr;
    EXPECT_EQ(stream.communicateWithCreateBuff("x", 1, nullptr, &replyLength, 0), 0);
    EXPECT_EQ(stream.communicateWithCreateBuff(nullptr, 1, &buffer, &replyLength, 0), 0);
    EXPECT_EQ(log.count("send or recv buff is null"), 2U);
    EXPECT_EQ(log.count("send or recv buff is null."), 0U);
}

TEST_F(QMLocalSocketClientExchange, ReplyLengthMayBeLeftOut) {
    FramedPeer peer = startAndAccept();
    std::thread answer = answerWith(peer, frameOf("answer"));
    EXPECT_EQ(stream.communicate("x", 1, reply.data(), nullptr, kNoTimeLimit), 5);
    answer.join();
}

TEST_F(QMLocalSocketClientExchange, TimeoutZeroWithoutAReplyIsLogged) {
    const FramedPeer peer = startAndAccept();
    EXPECT_EQ(communicate("question", 0), 0);
    EXPECT_EQ(log.count("poll: timeout"), 1U);
}

TEST_F(QMLocalSocketClientExchange, TimeoutZeroTakesAReplyThatIsAlreadyThere) {
    FramedPeer peer = startAndAccept();
    ASSERT_TRUE(peer.sendFrame("early"));
    EXPECT_GT(communicate("question", 0), 0);
    EXPECT_EQ(replyText(), "early");
}

TEST_F(QMLocalSocketClientExchange, TimeoutIsWaitedFor) {
    const FramedPeer peer = startAndAccept();
    const Stopwatch watch;
    EXPECT_EQ(communicate("question", 200), 0);
    EXPECT_GE(watch.elapsed(), 199ms);
    EXPECT_LT(watch.elapsed(), 5s);
    EXPECT_EQ(log.count("poll: timeout"), 1U);
}

TEST_F(QMLocalSocketClientExchange, WithoutTimeLimitALateReplyIsTaken) {
    FramedPeer peer = startAndAccept();
    std::thread answer([&] {
        peer.receiveFrame();
        std::this_thread::sleep_for(300ms);  // a peer that takes its time
        peer.sendFrame("late");
    });
    EXPECT_GT(communicate("question", kNoTimeLimit), 0);
    answer.join();
    EXPECT_EQ(replyText(), "late");
}

TEST_F(QMLocalSocketClientExchange, ReplyOfTheReceiveLimitIsTaken) {
    FramedPeer peer = startAndAccept();
    const std::string payload(16384, 'x');
    std::thread answer = answerWith(peer, frameOf(payload));
    EXPECT_GT(communicate("question"), 0);
    answer.join();
    EXPECT_EQ(replyText(), payload);
}

TEST_F(QMLocalSocketClientExchange, ReplyAboveTheReceiveLimitIsDroppedAndTheStreamStaysUsable) {
    FramedPeer peer = startAndAccept();
    std::thread answer = answerWith(peer, frameOf(std::string(16385, 'x')));
    EXPECT_EQ(communicate("question"), 0);
    answer.join();
    EXPECT_EQ(log.count("recv: large data"), 1U);
    std::thread next = answerWith(peer, frameOf("next"));
    EXPECT_GT(communicate("question"), 0);
    next.join();
    EXPECT_EQ(replyText(), "next");
}

TEST_F(QMLocalSocketClientExchange, LargeReplyThatBreaksOffIsLoggedAsBoth) {
    FramedPeer peer = startAndAccept();
    std::thread answer = answerWithAndClose(peer, framePrefix(40000) + std::string(20000, 'x'));
    EXPECT_EQ(communicate("question"), 0);
    answer.join();
    EXPECT_EQ(log.count("discardRecvData()@QMLocalSocketStream("), 1U);
    EXPECT_EQ(log.count("recv: error"), 1U);
    EXPECT_EQ(log.count("recv: large data"), 1U);
}

TEST_F(QMLocalSocketClientExchange, EmptyReplyIsAFailure) {
    FramedPeer peer = startAndAccept();
    std::thread answer = answerWith(peer, frameOf(""));
    EXPECT_EQ(communicate("question"), 0);
    answer.join();
    EXPECT_EQ(log.count("recv: no data"), 1U);
}

TEST_F(QMLocalSocketClientExchange, PeerThatClosesInsteadOfAnsweringEndsTheConnection) {
    FramedPeer peer = startAndAccept();
    std::thread answer = answerWithAndClose(peer, "");
    EXPECT_EQ(communicate("question"), 0);
    answer.join();
    EXPECT_EQ(log.count("recv: no data"), 1U);
    EXPECT_THAT(recorder.connections.all(), ElementsAre(true, false));
    EXPECT_EQ(stream.send("x", 1), 0);
    EXPECT_EQ(log.lines().size(), 1U);
}

TEST_F(QMLocalSocketClientExchange, ReplyThatBreaksOffInItsPrefixIsAFailure) {
    FramedPeer peer = startAndAccept();
    std::thread answer = answerWithAndClose(peer, framePrefix(5).substr(0, 2));
    EXPECT_EQ(communicate("question"), 0);
    answer.join();
    EXPECT_EQ(log.count("recvStreamLength()@QMLocalSocketStream("), 1U);
    EXPECT_EQ(log.count("recv: error"), 1U);
    EXPECT_EQ(log.count("recv: no data"), 1U);
}

TEST_F(QMLocalSocketClientExchange, ReplyThatBreaksOffInItsPayloadIsAFailure) {
    FramedPeer peer = startAndAccept();
    std::thread answer = answerWithAndClose(peer, framePrefix(10) + "half");
    EXPECT_EQ(communicate("question"), 0);
    answer.join();
    EXPECT_EQ(log.count("recvStreamData()@QMLocalSocketStream("), 1U);
    EXPECT_EQ(log.count("recv: error"), 2U);
}

TEST_F(QMLocalSocketClientExchange, RequestToAVanishedPeerIsASendError) {
    startAndAccept().close();
    EXPECT_EQ(communicate("question"), 0);
    EXPECT_EQ(log.count("send: error"), 1U);
}

TEST_F(QMLocalSocketClientExchange, PollThatFailsIsLogged) {
    const FramedPeer peer = startAndAccept();
    const FailingCall none(SystemCall::kPoll, EINTR);
    EXPECT_EQ(communicate("question"), 0);
    EXPECT_EQ(log.count("poll: error"), 1U);
}

TEST_F(QMLocalSocketClientExchange, ReplyThatNobodyCouldWaitForDoesNotPassForTheNextOne) {
    FramedPeer peer = startAndAccept();
    {
        const FailingCall none(SystemCall::kPoll, ENOMEM);
        EXPECT_EQ(communicate("lost"), 0);
    }
    std::thread answer = answerWith(peer, frameOf("late") + frameOf("reply"));
    EXPECT_NE(communicate("question"), 0);
    answer.join();
    EXPECT_EQ(replyLength, 5U);
}

TEST_F(QMLocalSocketClientExchange, PeerThatEndsWithinAReplyIsNoticedByTheNextExchange) {
    FramedPeer peer = startAndAccept();
    std::thread answer([&peer] {
        peer.receiveFrame();
        peer.sendBytes(framePrefix(10) + "cut");
        ::shutdown(peer.socket(), SHUT_WR);
    });
    EXPECT_EQ(communicate("question"), 0);
    answer.join();
    EXPECT_THAT(recorder.connections.all(), ElementsAre(true));
    EXPECT_EQ(communicate("question"), 0);
    EXPECT_TRUE(log.contains("recv: no data"));
    EXPECT_THAT(recorder.connections.all(), ElementsAre(true, false));
}

TEST_F(QMLocalSocketClientExchange, CreatedBufferHoldsAReplyAboveTheReceiveLimit) {
    FramedPeer peer = startAndAccept();
    const std::string payload(100000, 'x');
    std::thread answer = answerWith(peer, frameOf(payload));
    EXPECT_EQ(communicateWithCreateBuff("question"), 12);
    answer.join();
    ASSERT_NE(created, nullptr);
    EXPECT_EQ(std::string(created.get(), created.get() + replyLength), payload);
}

TEST_F(QMLocalSocketClientExchange, CreatedReplyTakesMemoryForRequestAndReplyOnly) {
    const std::string name(107, 'n');
    FramedListener longNamed(name);
    ASSERT_TRUE(recorder.start(stream, name.c_str()));
    FramedPeer peer = longNamed.accept();
    recorder.connections.waitFor(1);
    std::thread answer = answerWith(peer, frameOf("reply"));
    const std::size_t before = heapTakes();
    communicateWithCreateBuff("question");
    EXPECT_LE(heapTakes() - before, 2U);
    answer.join();
    EXPECT_EQ(replyLength, 5U);
}

TEST_F(QMLocalSocketClientExchange, CreatedBufferThatCannotBeMadeIsLogged) {
    FramedPeer peer = startAndAccept();
    const FailingAllocation failing(777);
    std::thread answer = answerWith(peer, framePrefix(777));
    EXPECT_EQ(communicateWithCreateBuff("question"), 0);
    answer.join();
    EXPECT_EQ(created, nullptr);
    EXPECT_TRUE(log.contains("catch exception. SocketName[S] length[777] what[std::bad_alloc]"));
    EXPECT_EQ(log.count("recv buffer : NULL"), 1U);
}

TEST_F(QMLocalSocketClientExchange, ReplyWithoutABufferDoesNotPassForTheNextOne) {
    FramedPeer peer = startAndAccept();
    {
        const FailingAllocation failing(777);
        std::thread answer = answerWith(peer, frameOf(std::string(777, 'x')));
        EXPECT_EQ(communicateWithCreateBuff("question"), 0);
        answer.join();
    }
    std::thread answer = answerWith(peer, frameOf("reply"));
    EXPECT_NE(communicateWithCreateBuff("question"), 0);
    answer.join();
    EXPECT_EQ(replyLength, 5U);
}

TEST_F(QMLocalSocketClientExchange, CreatedBufferOfABrokenReplyIsNotHandedOut) {
    FramedPeer peer = startAndAccept();
    std::thread answer = answerWithAndClose(peer, framePrefix(10) + "half");
    EXPECT_EQ(communicateWithCreateBuff("question"), 0);
    answer.join();
    EXPECT_EQ(created, nullptr);
    EXPECT_EQ(log.count("recv: error"), 2U);
}

TEST_F(QMLocalSocketClientExchange, CreatedBufferIsNotMadeForAnEmptyReply) {
    FramedPeer peer = startAndAccept();
    std::thread answer = answerWith(peer, frameOf(""));
    EXPECT_EQ(communicateWithCreateBuff("question"), 0);
    answer.join();
    EXPECT_EQ(log.count("recv: no data"), 1U);
}

TEST_F(QMLocalSocketClientExchange, ConcurrentExchangesEachGetTheirOwnReply) {
    constexpr int kThreads = 8;
    constexpr int kRounds = 50;
    FramedPeer peer = startAndAccept();
    std::thread echo([&] {
        for (int i = 0; i < kThreads * kRounds; ++i) {
            peer.sendFrame(peer.receiveFrame().value_or("nothing came"));
        }
    });
    std::atomic<int> matching{0};
    std::vector<std::thread> callers;
    for (int caller = 0; caller < kThreads; ++caller) {
        callers.emplace_back([this, caller, &matching] {
            for (int round = 0; round < kRounds; ++round) {
                const std::string request = std::to_string(caller) + ":" + std::to_string(round);
                std::array<char, 16384> answer{};
                unsigned length = 0;
                stream.communicate(request.data(), static_cast<unsigned>(request.size()), answer.data(),
                                   &length, kNoTimeLimit);
                matching += std::string(answer.data(), length) == request ? 1 : 0;
            }
        });
    }
    for (auto& caller : callers) {
        caller.join();
    }
    echo.join();
    EXPECT_EQ(matching, kThreads * kRounds);
}

}  // namespace
