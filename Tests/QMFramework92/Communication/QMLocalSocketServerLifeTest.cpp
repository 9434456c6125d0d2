#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Communication/QMLocalSocketServerStream.h"
#include "Foundation/QMEvent.h"
#include "Tests/QMFramework92/Communication/StreamRecorders.h"
#include "Tests/Support/FailingCall.h"
#include "Tests/Support/FramedPeer.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"
#include "Tests/Support/TemporaryDirectory.h"

// Starting, stopping and failing of a server stream.
namespace {

using namespace std::chrono_literals;
using namespace wpp_test;
using testing::IsEmpty;
using testing::SizeIs;

constexpr auto kStopLimit = 500ms;
constexpr auto kSlowPeerPause = 15ms;   // between two bytes
constexpr auto kSlowPeerLimit = 200ms;  // well within the grace

class QMLocalSocketServerLife : public testing::Test {
protected:
    QMLocalSocketServerLife() { directory.enter(); }

    FramedPeer startAndConnect() {
        EXPECT_TRUE(recorder.start(stream, "S"));
        const std::size_t before = recorder.connections.all().size();
        FramedPeer peer = FramedPeer::connectTo("S");
        EXPECT_GT(recorder.connections.waitFor(before + 1).size(), before);
        return peer;
    }

    std::chrono::milliseconds timeOfStop() {
        const Stopwatch watch;
        stream.Stop();
        return watch.elapsed();
    }

    /// Starts the stream anew for a peer that sends these bytes and no more. @return how long Stop takes then.
    std::chrono::milliseconds stopWithHalfAFrame(const std::string& bytes) {
        std::filesystem::remove("S");
        FramedPeer peer = startAndConnect();
        EXPECT_TRUE(peer.sendBytes(bytes));
        EXPECT_TRUE(peer.waitUntilRead());
        const auto elapsed = timeOfStop();
        EXPECT_TRUE(peer.waitForClose());
        return elapsed;
    }

    /// Starts the stream anew for a peer that sends its frame slowly, most of it after Stop has begun, and takes
    /// its reply. @return how long the peer needed from then on.
    std::chrono::milliseconds stopWhileAFrameArrives(std::optional<std::string>& reply) {
        std::filesystem::remove("S");
        FramedPeer peer = startAndConnect();
        const std::string frame = frameOf("a payload");
        EXPECT_TRUE(peer.sendBytes(frame.substr(0, 6)) && peer.waitUntilRead());
        const Stopwatch watch;
        const auto stopped = std::async(std::launch::async, [this] { stream.Stop(); });
        for (std::size_t sent = 6; sent < frame.size(); ++sent) {
            std::this_thread::sleep_for(kSlowPeerPause);  // the pace of a slow peer
            peer.sendBytes(frame.substr(sent, 1));
        }
        const auto elapsed = watch.elapsed();
        reply = peer.receiveFrame();
        return elapsed;
    }

    /// The process's sockets that listen.
    static std::vector<int> listeningSockets() {
        std::vector<int> found;
        for (const int descriptor : openDescriptors()) {
            int listens = 0;
            socklen_t size = sizeof(listens);
            if (getsockopt(descriptor, SOL_SOCKET, SO_ACCEPTCONN, &listens, &size) == 0 && listens != 0) {
                found.push_back(descriptor);
            }
        }
        return found;
    }

    LogCapture log;
    TemporaryDirectory directory;
    ServerRecorder recorder;
    QMLocalSocketServerStream stream;
};

TEST_F(QMLocalSocketServerLife, ThreadCarriesTheStreamsName) {
    const FramedPeer peer = startAndConnect();
    EXPECT_TRUE(waitUntil([] { return hasThreadNamed("ServerStream_s9"); }));
}

TEST_F(QMLocalSocketServerLife, EveryDescriptorIsCloseOnExec) {
    const auto before = openDescriptors();
    const FramedPeer peer = startAndConnect();
    for (const int descriptor : openDescriptors()) {
        if (before.count(descriptor) == 0) {
            EXPECT_NE(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, 0) << descriptor;
        }
    }
}

TEST_F(QMLocalSocketServerLife, StopWithoutStartReturns) {
    stream.Stop();
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(QMLocalSocketServerLife, StopClosesEveryConnection) {
    FramedPeer peer = startAndConnect();
    stream.Stop();
    EXPECT_TRUE(peer.waitForClose());
    EXPECT_THAT(listeningSockets(), IsEmpty());
}

TEST_F(QMLocalSocketServerLife, StopTakesOnlyAMoment) {
    const FramedPeer peer = startAndConnect();
    const Stopwatch watch;
    stream.Stop();
    EXPECT_LT(watch.elapsed(), 900ms);
}

TEST_F(QMLocalSocketServerLife, StopRightAfterStartAlwaysReturns) {
    for (int i = 0; i < 40; ++i) {
        ASSERT_TRUE(recorder.start(stream, "S"));
        stream.Stop();
        std::filesystem::remove("S");
    }
}

TEST_F(QMLocalSocketServerLife, DestructorStops) {
    auto owned = std::make_unique<QMLocalSocketServerStream>();
    ASSERT_TRUE(recorder.start(*owned, "S"));
    FramedPeer peer = FramedPeer::connectTo("S");
    owned.reset();
    EXPECT_TRUE(peer.waitForClose());
}

TEST_F(QMLocalSocketServerLife, StreamRestartsAfterStop) {
    startAndConnect().close();
    stream.Stop();
    std::filesystem::remove("S");
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendFrame("again"));
    EXPECT_THAT(recorder.frames.waitFor(1), SizeIs(1));
}

TEST_F(QMLocalSocketServerLife, SocketFileStaysAfterStop) {
    startAndConnect().close();
    stream.Stop();
    EXPECT_TRUE(std::filesystem::exists("S"));
}

TEST_F(QMLocalSocketServerLife, StartStopsARunningStreamFirst) {
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(recorder.start(stream, "T"));
    EXPECT_TRUE(peer.waitForClose());
    EXPECT_TRUE(FramedPeer::connectTo("T").isConnected());
}

TEST_F(QMLocalSocketServerLife, RefusedStartLeavesTheRunningStreamAlone) {
    FramedPeer peer = startAndConnect();
    EXPECT_FALSE(recorder.start(stream, nullptr));
    ASSERT_TRUE(peer.sendFrame("still"));
    EXPECT_THAT(recorder.frames.waitFor(1), SizeIs(1));
}

TEST_F(QMLocalSocketServerLife, ManyRoundsLeaveNoDescriptorBehind) {
    startAndConnect().close();
    stream.Stop();
    const auto before = openDescriptors();
    for (int i = 0; i < 20; ++i) {
        std::filesystem::remove("S");
        startAndConnect().close();
        stream.Stop();
    }
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(QMLocalSocketServerLife, StartAndStopFromSeveralThreadsDoNotHang) {
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
    EXPECT_THAT(listeningSockets(), IsEmpty());
}

TEST_F(QMLocalSocketServerLife, StreamWithoutHandlersDropsFrames) {
    ASSERT_TRUE(stream.Start({"S", 16384, 1, nullptr, nullptr}, QMLocalSocketServerStream::kReceive));
    FramedPeer peer = FramedPeer::connectTo("S");
    ASSERT_TRUE(peer.sendBytes(frameOf("dropped") + framePrefix(0)));
    EXPECT_TRUE(log.waitFor("no data::recv size[0]"));
}

TEST_F(QMLocalSocketServerLife, ExistingSocketFileIsLoggedAndNothingIsAccepted) {
    std::ofstream("S") << "occupied";
    ASSERT_TRUE(recorder.start(stream, "S"));
    EXPECT_TRUE(log.waitFor("prepareSocket()@QMLocalSocketStream("));
    EXPECT_TRUE(log.contains("bind err::S  err_no[1] "));
    EXPECT_FALSE(FramedPeer::connectTo("S", 50ms).isConnected());
    const Stopwatch watch;
    stream.Stop();
    EXPECT_LT(watch.elapsed(), 900ms);
}

TEST_F(QMLocalSocketServerLife, StreamThatCouldNotBindRestarts) {
    std::ofstream("S") << "occupied";
    ASSERT_TRUE(recorder.start(stream, "S"));
    ASSERT_TRUE(log.waitFor("bind err::S"));
    std::filesystem::remove("S");
    EXPECT_TRUE(startAndConnect().isConnected());
}

TEST_F(QMLocalSocketServerLife, ListenThatFailsIsLoggedAndNothingIsAccepted) {
    const FailingCall none(SystemCall::kListen, EADDRINUSE);
    ASSERT_TRUE(recorder.start(stream, "S"));
    EXPECT_TRUE(log.waitFor("prepareSocket()@QMLocalSocketStream("));
    EXPECT_EQ(log.count("listen err::S"), 1U);
    EXPECT_FALSE(FramedPeer::connectTo("S", 50ms).isConnected());
}

TEST_F(QMLocalSocketServerLife, MissingDirectoryIsABindError) {
    ASSERT_TRUE(recorder.start(stream, "nowhere/S"));
    EXPECT_TRUE(log.waitFor("bind err::nowhere/S  err_no[1] "));
}

TEST_F(QMLocalSocketServerLife, StreamThatGetsNoSocketLogsAndCanBeRestarted) {
    {
        const FailingCall none(SystemCall::kSocket, EMFILE);
        ASSERT_TRUE(recorder.start(stream, "S"));
        EXPECT_TRUE(log.waitFor("std library error [24 : Too many open files] , socket()"));
        stream.Stop();
    }
    EXPECT_TRUE(startAndConnect().isConnected());
}

TEST_F(QMLocalSocketServerLife, StreamServesAgainAfterDescriptorsRanOut) {
    FramedPeer peer = startAndConnect();
    {
        const FailingCall none(SystemCall::kEpollCreate, EMFILE);
        ASSERT_TRUE(peer.sendFrame("waiting"));
    }
    EXPECT_THAT(recorder.frames.waitFor(1), SizeIs(1));
}

TEST_F(QMLocalSocketServerLife, WaitThatFailsAtOnceDoesNotSpin) {
    const FramedPeer peer = startAndConnect();
    const FailingCall none(SystemCall::kEpollCreate, EMFILE);
    const std::clock_t before = std::clock();
    std::this_thread::sleep_for(500ms);  // the span over which processor time is measured
    const double seconds = static_cast<double>(std::clock() - before) / CLOCKS_PER_SEC;
    EXPECT_LT(seconds, 0.25);
}

TEST_F(QMLocalSocketServerLife, AcceptThatKeepsFailingIsLoggedAtTheWaitingPace) {
    const FramedPeer peer = startAndConnect();
    const FailingCall none(SystemCall::kAccept, EMFILE);
    const Stopwatch watch;
    const FramedPeer refused = FramedPeer::connectTo("S");
    EXPECT_TRUE(waitUntil([&] { return log.count("accept err") >= 3; }));
    EXPECT_GE(watch.elapsed(), 190ms);
    EXPECT_TRUE(log.contains("acceptSocket()@QMLocalSocketStream("));
}

TEST_F(QMLocalSocketServerLife, PeerThatStallsAtAnyByteOfAFrameDelaysStopByLessThanHalfASecond) {
    const std::string frame = frameOf("a payload");
    for (std::size_t sent = 0; sent < frame.size(); ++sent) {
        EXPECT_LT(shortestOf(kStopLimit, [&] { return stopWithHalfAFrame(frame.substr(0, sent)); }),
                  kStopLimit)
            << sent << " bytes sent";
    }
}

TEST_F(QMLocalSocketServerLife, FrameThatIsUnderWayArrivesWhileTheStreamStops) {
    recorder.afterFrame = [this](int fd) { stream.send(fd, "reply", 5); };
    std::optional<std::string> reply;
    // On a loaded machine the peer may be too slow itself; then it comes again.
    shortestOf(kSlowPeerLimit, [&] { return stopWhileAFrameArrives(reply); });
    EXPECT_EQ(reply, "reply");
    ASSERT_FALSE(recorder.frames.all().empty());
    EXPECT_EQ(recorder.frames.all().back().payload, "a payload");
}

TEST_F(QMLocalSocketServerLife, ReplyOfAHandlerThatRunsLongerThanTheGraceStillGoesOut) {
    QMEvent handling;
    QMEvent goOn;
    recorder.afterFrame = [&](int fd) {
        handling.SetEvent();
        QMEvent::WaitEvent(&goOn, 10000);
        stream.send(fd, "reply", 5);
    };
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendFrame("go"));
    ASSERT_EQ(QMEvent::WaitEvent(&handling, 10000), 0);
    const auto stopped = std::async(std::launch::async, [this] { stream.Stop(); });
    // The end of the grace shows at the peer as the end of its sending direction.
    EXPECT_TRUE(waitUntil([&] { return !peer.sendBytes(framePrefix(1)); }));
    goOn.SetEvent();
    EXPECT_EQ(peer.receiveFrame(), "reply");
}

TEST_F(QMLocalSocketServerLife, PeerThatDoesNotReadDelaysStopByLessThanHalfASecond) {
    QMEvent sending;
    recorder.afterFrame = [&](int fd) {
        const std::string flood(8 << 20, 'x');
        sending.SetEvent();
        stream.send(fd, flood.data(), static_cast<unsigned>(flood.size()));
    };
    EXPECT_LT(shortestOf(kStopLimit,
                         [&] {
                             std::filesystem::remove("S");
                             FramedPeer peer = startAndConnect();
                             EXPECT_TRUE(peer.sendFrame("go"));
                             EXPECT_EQ(QMEvent::WaitEvent(&sending, 10000), 0);
                             return timeOfStop();
                         }),
              kStopLimit);
}

TEST_F(QMLocalSocketServerLife, HandlerThatThrowsEndsTheThreadAndClosesItsSockets) {
    recorder.afterFrame = [](int) { throw std::runtime_error("handler failed"); };
    FramedPeer peer = startAndConnect();
    ASSERT_TRUE(peer.sendFrame("go"));
    EXPECT_TRUE(peer.waitForClose());
    EXPECT_TRUE(log.waitFor("catch exception. thread name [ServerStream_s92], what [handler failed]"));
    stream.Stop();
    std::filesystem::remove("S");
    EXPECT_TRUE(startAndConnect().isConnected());
}

}  // namespace
