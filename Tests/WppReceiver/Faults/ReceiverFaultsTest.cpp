// Peers that break off in the middle of a frame, at some bytes of every message, against the built process. Every
// byte is MidFrameFaultsTest's.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <iterator>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "LibWpp/ControlMessages.h"
#include "Tests/Support/Deadline.h"
#include "Tests/WppReceiver/Faults/FaultTable.h"
#include "Tests/WppReceiver/Faults/FaultyPeer.h"
#include "Tests/WppReceiver/Process/HeadUnit.h"

namespace {

using namespace std::chrono_literals;
using namespace wifi_projection_protocol;
using namespace wpp_test;
using testing::Optional;

const std::string kHandled(1, '\1');
constexpr std::uint8_t kDevice = 7;

/// The bytes around which something changes: of the length, of the id, and the last one.
std::set<std::size_t> tellingOffsets(const std::string& frame) {
    std::set<std::size_t> offsets;
    for (const std::size_t offset : {std::size_t{0}, std::size_t{1}, std::size_t{3}, std::size_t{4},
                                     std::size_t{6}, frame.size() / 2, frame.size() - 1}) {
        if (offset < frame.size()) {
            offsets.insert(offset);
        }
    }
    return offsets;
}

std::vector<FaultPoint> tellingPointsOf(Link link) {
    std::vector<FaultPoint> points;
    for (const FaultPoint& point : faultPointsOf(link)) {
        const std::string& frame = point.isInReply ? point.exchange->reply : point.exchange->request;
        if (tellingOffsets(frame).count(point.offset) > 0) {
            points.push_back(point);
        }
    }
    return points;
}

/// A process that is sent commands and messages by peers that fail.
class ReceiverFaults : public testing::TestWithParam<Link> {
protected:
    ReceiverFaults() { headUnit.start(); }

    static FaultyPeer::Script scriptFor(const FaultPoint& point) {
        const FaultExchange& exchange = *point.exchange;
        if (point.isInReply) {
            return {exchange.request, point.offset, "", true};
        }
        const bool isReset = point.fault == Fault::kReset;
        return {(isReset ? frameOf("none") : "") + exchange.request.substr(0, point.offset), 0, "", isReset};
    }

    void breakOff(const FaultPoint& point) {
        FaultyPeer peer(FramedPeer::connectTo(nameOf(GetParam())), scriptFor(point));
        EXPECT_TRUE(peer.reach(point.fault));
        peer.fail(point.fault);
        EXPECT_TRUE(headUnit.process().isAlive());
        // Whoever stalls holds up the others of its link for as long as it is there.
    }

    bool isNextPeerServed() {
        FramedPeer next = FramedPeer::connectTo(nameOf(GetParam()));
        if (GetParam() == Link::kBluetoothServer) {
            return next.sendBytes(goldenFrame("RecvSppData")) && next.receiveFrame() == kHandled;
        }
        return next.sendBytes(goldenFrame("StartWifiProjectionProtocol")) &&
               next.sendBytes(goldenFrame("StopProjectionStart")) && next.receiveFrame() == kHandled;
    }

    HeadUnit headUnit;
};

TEST_P(ReceiverFaults, ProcessLivesServesTheNextPeerAndEndsWhenTold) {
    std::size_t passed = 0;
    std::size_t wanted = 0;
    for (const FaultPoint& point : tellingPointsOf(GetParam())) {
        // The whole of command 1 would end the process.
        if (point.exchange->message == "Terminate" && point.isInReply) {
            continue;
        }
        ++wanted;
        SCOPED_TRACE(point.text());
        breakOff(point);
        ASSERT_TRUE(isNextPeerServed());
        ++passed;
    }
    std::printf("%s: %zu of %zu faults survived by the process\n", nameOf(GetParam()), passed, wanted);
    EXPECT_GT(wanted, 40U);
    EXPECT_EQ(passed, wanted);
    EXPECT_THAT(headUnit.terminate(), Optional(0));
}

INSTANTIATE_TEST_SUITE_P(EveryServer, ReceiverFaults,
                         testing::Values(Link::kControlServer, Link::kBluetoothServer),
                         [](const auto& tested) { return std::string(nameOf(tested.param)); });

/// The process as the one that sends: a request for TLS material to the controller, or the order to drop a link
/// to the Bluetooth process, each to a peer that fails.
class FailingListener {
public:
    explicit FailingListener(Link failingLink)
        : link(failingLink), headUnit(HeadUnit::Peers::kAbsent), listener(nameOf(link)) {
        const bool isControl = link == Link::kControlClient;
        other = std::make_unique<AnsweringPeer>(
            nameOf(isControl ? Link::kBluetoothClient : Link::kControlClient));
        accepted = listener.accept();
        waitUntil([this] {
            return headUnit.process().threadsNamed("ClientStream") == 0 && other->waitForConnection();
        });
    }

    /// Makes the process send its request.
    void provoke() {
        headUnit.start(HeadUnit::Tls::kRequested);
        if (link == Link::kControlClient) {
            phone = HeadUnit::connectTcp("127.0.0.3");
            return;
        }
        headUnit.command(encode(AddDeviceInfoSerializer(kDevice, "phone", "client")));
        headUnit.command(encode(RfcommConnectedSerializer(kDevice)));
        FramedPeer controller = FramedPeer::connectTo(nameOf(Link::kControlServer));
        controller.sendBytes(goldenFrame("StopWifiProjectionProtocol"));
        stopping = std::move(controller);
    }

    std::optional<int> breakOffAt(const FaultPoint& point, std::size_t requestSize) {
        const FaultExchange& exchange = *point.exchange;
        const bool isReset = point.fault == Fault::kReset;
        const FaultyPeer::Script script =
            point.isInReply ? FaultyPeer::Script{"", requestSize - (isReset ? 1 : 0),
                                                 exchange.reply.substr(0, point.offset), isReset}
                            : FaultyPeer::Script{"", point.offset, "", true};
        FaultyPeer peer(std::move(accepted), script);
        provoke();
        EXPECT_TRUE(peer.reach(point.fault));
        peer.fail(point.fault);
        EXPECT_TRUE(headUnit.process().isAlive());
        if (point.fault == Fault::kStall) {
            // Without a time limit the exchange holds up the thread that began it, and command 1 waits for that.
            FramedPeer controller = FramedPeer::connectTo(nameOf(Link::kControlServer));
            controller.sendBytes(goldenFrame("Terminate"));
            peer.fail(Fault::kReset);
            return headUnit.process().waitForExit();
        }
        return headUnit.terminate();
    }

private:
    const Link link;
    HeadUnit headUnit;
    FramedListener listener;
    std::unique_ptr<AnsweringPeer> other;
    FramedPeer accepted;
    FramedPeer stopping;
    FileDescriptor phone;
};

/// The size of the request in the conversation of these tests, whose texts are not the golden ones.
std::size_t requestSizeOf(const std::string& message) {
    if (message == "ReqGetSecureSslKey") {
        return goldenFrame(message).size();
    }
    return goldenFrame("DisconnectSpp").size();
}

class ReceiverRequestFaults : public testing::TestWithParam<std::pair<Link, const char*>> {};

TEST_P(ReceiverRequestFaults, ProcessLivesAndEndsWhenTold) {
    const auto [link, message] = GetParam();
    std::size_t passed = 0;
    std::size_t wanted = 0;
    for (const FaultPoint& point : tellingPointsOf(link)) {
        if (point.exchange->message != message) {
            continue;
        }
        ++wanted;
        SCOPED_TRACE(point.text());
        FailingListener failing(link);
        ASSERT_THAT(failing.breakOffAt(point, requestSizeOf(message)), Optional(0));
        ++passed;
    }
    std::printf("%s %s: %zu of %zu faults survived by the process\n", nameOf(link), message, passed, wanted);
    EXPECT_GT(wanted, 40U);
    EXPECT_EQ(passed, wanted);
}

INSTANTIATE_TEST_SUITE_P(EveryClient, ReceiverRequestFaults,
                         testing::Values(std::make_pair(Link::kControlClient, "ReqGetSecureSslKey"),
                                         std::make_pair(Link::kBluetoothClient, "DisconnectSpp")),
                         [](const auto& tested) { return std::string(tested.param.second); });

TEST(ReceiverFaultsAtTheEnd, APeerThatStallsInAMessageDoesNotKeepTheProcessFromItsEnd) {
    HeadUnit headUnit;
    FramedPeer bluetooth = FramedPeer::connectTo(nameOf(Link::kBluetoothServer));
    const std::string frame = goldenFrame("RecvSppData");
    ASSERT_TRUE(bluetooth.sendBytes(frame.substr(0, frame.size() / 2)));
    ASSERT_TRUE(bluetooth.waitUntilRead());

    const auto time = [&headUnit] {
        const Stopwatch watch;
        EXPECT_THAT(headUnit.terminate(), Optional(0));
        return watch.elapsed();
    }();
    EXPECT_GE(time, 290ms);
    EXPECT_LT(time, 5000ms);
}

}  // namespace
