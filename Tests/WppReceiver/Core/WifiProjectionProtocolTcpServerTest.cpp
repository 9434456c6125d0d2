#include "Core/WifiProjectionProtocolTcpServer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>

#include "Tests/Support/Deadline.h"
#include "Tests/Support/FailingCall.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"
#include "Tests/WppReceiver/Support/LoopbackClient.h"

namespace {

using testing::ElementsAre;
using wifi_projection_protocol::ClientSocket;
using wifi_projection_protocol::WifiProjectionProtocolTcpServer;
using wpp_test::connectTo;
using wpp_test::FailingCall;
using wpp_test::freePort;
using wpp_test::listenOn;
using wpp_test::Stopwatch;
using wpp_test::SystemCall;
using wpp_test::waitUntil;
using namespace std::chrono_literals;

/// Keeps what the server accepts.
class Acceptor final : public wifi_projection_protocol::IWifiProjectionProtocolTcpServerCallbacks {
public:
    void onClientAccepted(const ClientSocket& client) override {
        std::lock_guard guard(mutex);
        sockets.emplace_back(client.fd);
        addressList.push_back(client.peerAddress);
        changed.notify_all();
        if (throwing) {
            throw std::runtime_error("no room");
        }
    }

    void throwFromNowOn() {
        std::lock_guard guard(mutex);
        throwing = true;
    }

    bool waitFor(std::size_t count) {
        std::unique_lock guard(mutex);
        return changed.wait_for(guard, wpp_test::kGenerousLimit, [&] { return addressList.size() >= count; });
    }

    std::vector<std::string> addresses() {
        std::lock_guard guard(mutex);
        return addressList;
    }

    int firstSocket() {
        std::lock_guard guard(mutex);
        return sockets.front().get();
    }

    void closeAll() {
        std::lock_guard guard(mutex);
        sockets.clear();
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<QMDescriptor> sockets;
    std::vector<std::string> addressList;
    bool throwing = false;
};

bool connects(std::uint16_t port) {
    return connectTo(port).isValid();
}

/// The backlog of the socket that listens on `port`, as the kernel tells it; -1 when nobody listens.
int backlogOf(std::uint16_t port) {
    std::ostringstream command;
    command << "ss -Hltn sport = :" << port;
    FILE* pipe = popen(command.str().c_str(), "r");
    char state[32] = {};
    int waiting = 0;
    int backlog = -1;
    if (std::fscanf(pipe, "%31s %d %d", state, &waiting, &backlog) != 3) {
        backlog = -1;
    }
    pclose(pipe);
    return backlog;
}

class TcpServer : public testing::Test {
protected:
    wpp_test::LogCapture log;
    Acceptor acceptor;
    const std::uint16_t port = freePort();
    WifiProjectionProtocolTcpServer server{&acceptor, {"0.0.0.0", port}};
};

TEST_F(TcpServer, AConnectionIsHandedOverWithItsPeersAddress) {
    server.start();
    ASSERT_TRUE(waitUntil([this] { return connects(port); }));
    ASSERT_TRUE(acceptor.waitFor(1));
    const QMDescriptor phone = connectTo(port, "127.0.7.9");
    ASSERT_TRUE(acceptor.waitFor(2));

    EXPECT_THAT(acceptor.addresses(), ElementsAre("127.0.0.1", "127.0.7.9"));
}

TEST_F(TcpServer, TheHandedOverSocketIsConnectedToThePeer) {
    server.start();
    QMDescriptor phone;
    ASSERT_TRUE(waitUntil([&] { return (phone = connectTo(port)).isValid(); }));
    ASSERT_TRUE(acceptor.waitFor(1));

    ASSERT_EQ(send(phone.get(), "hello", 5, MSG_NOSIGNAL), 5);
    char received[5] = {};
    EXPECT_EQ(recv(acceptor.firstSocket(), received, sizeof(received), MSG_WAITALL), 5);
    EXPECT_EQ(std::string(received, 5), "hello");
}

TEST_F(TcpServer, TheListenBacklogIsTen) {
    server.start();
    ASSERT_TRUE(waitUntil([this] { return backlogOf(port) != -1; }));
    EXPECT_EQ(backlogOf(port), 10);
}

TEST_F(TcpServer, StopWhileWaitingForAClientDoesNotWaitTenSeconds) {
    server.start();
    ASSERT_TRUE(waitUntil([this] { return connects(port); }));
    const std::size_t threadsServing = wpp_test::threadCount();
    const Stopwatch watch;
    server.stop();

    EXPECT_LT(watch.elapsed(), 5000ms);
    EXPECT_TRUE(waitUntil([&] { return wpp_test::threadCount() == threadsServing - 1; }));
    EXPECT_FALSE(connects(port));
}

TEST_F(TcpServer, StopWithoutStartAndTwiceDoesNothing) {
    server.stop();
    server.stop();
    EXPECT_FALSE(connects(port));
}

TEST_F(TcpServer, StopRightAfterStartEndsTheThread) {
    const Stopwatch watch;
    server.start();
    server.stop();
    EXPECT_LT(watch.elapsed(), 5000ms);
}

TEST_F(TcpServer, APortInUseIsTriedAgainEveryTenSecondsUntilItIsFree) {
    QMDescriptor other = listenOn(port);
    ASSERT_TRUE(other.isValid());
    const Stopwatch watch;
    server.start();
    ASSERT_TRUE(log.waitFor("[error] createServerSocket()@WifiProjectionProtocolTcpServer("));
    EXPECT_EQ(log.count("bind() failed."), 1U);
    ASSERT_TRUE(waitUntil([this] { return log.count("bind() failed.") == 2; }, 30000ms));
    EXPECT_GE(watch.elapsed(), 10000ms);

    other.reset();
    ASSERT_TRUE(waitUntil([this] { return connects(port); }, 30000ms));
    EXPECT_TRUE(acceptor.waitFor(1));
    EXPECT_EQ(log.count("bind() failed."), 2U);
}

TEST_F(TcpServer, StopWhileWaitingToRetryDoesNotWaitTenSeconds) {
    const QMDescriptor other = listenOn(port);
    server.start();
    ASSERT_TRUE(log.waitFor("bind() failed."));
    const Stopwatch watch;
    server.stop();

    EXPECT_LT(watch.elapsed(), 5000ms);
}

TEST_F(TcpServer, WithoutADescriptorToSpareItNeitherSpinsNorKeepsStopWaiting) {
    const QMDescriptor other = listenOn(port);
    const FailingCall shortage(SystemCall::kEpollCreate, EMFILE);
    server.start();
    ASSERT_TRUE(log.waitFor("bind() failed."));
    EXPECT_FALSE(waitUntil([this] { return log.count("bind() failed.") > 1; }, 1000ms));
    const Stopwatch watch;
    server.stop();

    EXPECT_LT(watch.elapsed(), 5000ms);
}

TEST_F(TcpServer, AfterAShortageOfDescriptorsItServesAgainWithinTheRetryPeriod) {
    {
        const FailingCall shortage(SystemCall::kSocket, EMFILE);
        server.start();
        ASSERT_TRUE(log.waitFor("[error] createServerSocket()@WifiProjectionProtocolTcpServer("));
        EXPECT_EQ(log.count("socket() failed."), 1U);
    }
    EXPECT_TRUE(waitUntil([this] { return connects(port); }, 30000ms));
}

TEST_F(TcpServer, MadeWithoutAWakeUpItServesOnceThereIsOne) {
    std::optional<WifiProjectionProtocolTcpServer> poor;
    {
        const FailingCall shortage(SystemCall::kEventFd, EMFILE);
        poor.emplace(&acceptor, wifi_projection_protocol::InetSocketAddress("0.0.0.0", port));
    }
    EXPECT_EQ(log.count(", eventfd()"), 1U);
    poor->start();

    EXPECT_TRUE(waitUntil([this] { return connects(port); }));
    EXPECT_TRUE(acceptor.waitFor(1));
    const Stopwatch watch;
    poor->stop();
    EXPECT_LT(watch.elapsed(), 5000ms);
}

TEST_F(TcpServer, ASocketThatCannotListenIsLoggedAndClosed) {
    const auto before = wpp_test::openDescriptors().size();
    const FailingCall refusal(SystemCall::kListen, EADDRINUSE);
    server.start();
    ASSERT_TRUE(log.waitFor("listen() failed."));

    EXPECT_TRUE(waitUntil([&] { return wpp_test::openDescriptors().size() <= before + 1; }));
}

TEST_F(TcpServer, AFailedAcceptIsLoggedAndTheServerListensAfresh) {
    server.start();
    ASSERT_TRUE(waitUntil([this] { return connects(port); }));
    ASSERT_TRUE(acceptor.waitFor(1));
    {
        const FailingCall refusal(SystemCall::kAccept, ECONNABORTED);
        connectTo(port);
        ASSERT_TRUE(log.waitFor("[error] doAccept()@WifiProjectionProtocolTcpServer("));
        EXPECT_EQ(log.count("accept() failed."), 1U);
    }
    // A connection that comes before the old socket is closed is lost with it.
    EXPECT_TRUE(waitUntil([this] { return connects(port) && acceptor.addresses().size() >= 2; }, 30000ms));
}

TEST_F(TcpServer, AnExceptionOfTheOwnerIsLoggedAndTheNextPhoneIsServed) {
    acceptor.throwFromNowOn();
    server.start();
    ASSERT_TRUE(waitUntil([this] { return connects(port); }));
    ASSERT_TRUE(log.waitFor("catch exception. peer [127.0.0.1], what [no room]"));
    const QMDescriptor next = connectTo(port);

    EXPECT_TRUE(next.isValid());
    EXPECT_TRUE(acceptor.waitFor(2));
}

TEST_F(TcpServer, WithoutAWakeUpStopStillEndsTheThread) {
    const FailingCall shortage(SystemCall::kEventFd, EMFILE);
    WifiProjectionProtocolTcpServer deaf(&acceptor, {"0.0.0.0", port});
    const Stopwatch watch;
    deaf.start();
    deaf.stop();
    EXPECT_LT(watch.elapsed(), 5000ms);
}

TEST_F(TcpServer, ManyConnectionsAreAcceptedInTurnAndNothingIsLeftOpen) {
    server.start();
    ASSERT_TRUE(waitUntil([this] { return connects(port); }));
    ASSERT_TRUE(acceptor.waitFor(1));
    acceptor.closeAll();
    const auto before = wpp_test::openDescriptors().size();
    for (std::size_t i = 2; i <= 101; ++i) {
        ASSERT_TRUE(connects(port));
        ASSERT_TRUE(acceptor.waitFor(i));
        acceptor.closeAll();
    }
    EXPECT_EQ(wpp_test::openDescriptors().size(), before);
}

}  // namespace
