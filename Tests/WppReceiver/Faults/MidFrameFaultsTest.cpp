// Peers that break off in the middle of a frame: at every byte of every message of both links, in every way.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <set>
#include <string>

#include "Tests/LibWpp/GoldenMessages.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/WppReceiver/Faults/FaultStation.h"
#include "Tests/WppReceiver/Faults/FaultTable.h"
#include "Tests/WppReceiver/Faults/FaultyPeer.h"
#include "Tests/WppReceiver/Faults/ForkedWorkers.h"

namespace {

using namespace std::chrono_literals;
using namespace wpp_test;

// Most of a case with a stalled peer is the grace that a Stop gives it; so they run side by side. The number shares
// no factor with that of the faults, so that each process gets of all.
constexpr std::size_t kWorkers = 13;
static_assert(kWorkers % std::size(kFaults) != 0);
constexpr auto kStopLimit = 500ms;

/// What keeps a case from being passed; empty when nothing does.
using Complaint = std::string;

FaultyPeer::Script serverScript(const FaultPoint& point) {
    const FaultExchange& exchange = *point.exchange;
    if (point.isInReply) {
        const bool needsStart = exchange.message != "Terminate" && exchange.link == Link::kControlServer;
        const std::string start = needsStart ? goldenFrame("StartWifiProjectionProtocol") : "";
        return {start + exchange.request, point.offset, "", true};
    }
    // A reset takes an answer that lies unread.
    const bool isReset = point.fault == Fault::kReset;
    const std::string answered = isReset ? frameOf("none") : "";
    return {answered + exchange.request.substr(0, point.offset), 0, "", isReset};
}

FaultyPeer::Script clientScript(const FaultPoint& point) {
    const FaultExchange& exchange = *point.exchange;
    if (!point.isInReply) {
        return {"", point.offset, "", true};
    }
    const std::size_t unread = point.fault == Fault::kReset ? 1 : 0;
    return {"", exchange.request.size() - unread, exchange.reply.substr(0, point.offset), unread > 0};
}

Complaint stopAndServeAgain(FaultStation& station, Link link, std::chrono::milliseconds& time) {
    time = station.stop(link);
    station.reopen(link);
    return station.isNextPeerServed(link) ? "" : "after Stop and Start the next peer is not served";
}

Complaint breakServerLink(FaultStation& station, const FaultPoint& point, std::chrono::milliseconds& time) {
    const Link link = point.exchange->link;
    FaultyPeer peer(FramedPeer::connectTo(nameOf(link)), serverScript(point));
    if (!peer.reach(point.fault)) {
        return "the conversation does not come to the byte";
    }
    peer.fail(point.fault);
    if (point.fault == Fault::kStall) {
        return stopAndServeAgain(station, link, time);
    }
    if (point.fault == Fault::kClose && !peer.isDropped()) {
        return "the peer that closed is kept";
    }
    return station.isNextPeerServed(link) ? "" : "the next peer is not served";
}

/// The next peer of a client is the one that it connects to when it is opened again.
Complaint exchangeWithTheNextPeer(FaultStation& station, const FaultExchange& exchange) {
    FramedPeer next = station.connect(exchange.link);
    std::future<bool> outcome = station.begin(exchange);
    if (next.receiveBytes(exchange.request.size()) != exchange.request) {
        return "the next peer gets another request";
    }
    next.sendBytes(exchange.reply);
    return outcome.get() ? "" : "the exchange with the next peer fails";
}

Complaint breakClientLink(FaultStation& station, const FaultPoint& point, std::chrono::milliseconds& time) {
    const FaultExchange& exchange = *point.exchange;
    FaultyPeer peer(station.connect(exchange.link), clientScript(point));
    std::future<bool> outcome = station.begin(exchange);
    if (!peer.reach(point.fault)) {
        return "the conversation does not come to the byte";
    }
    peer.fail(point.fault);
    if (point.fault == Fault::kStall) {
        if (!station.isTerminateHandled()) {
            return "command 1 is not handled while the peer owes the rest";
        }
        time = station.stop(exchange.link);
    }
    if (outcome.wait_for(kGenerousLimit) != std::future_status::ready) {
        peer.fail(Fault::kKilled);
        return "the exchange does not end";
    }
    const bool hasResult =
        exchange.message == "ReqGetSecureSslKey" || exchange.link == Link::kBluetoothClient;
    if (outcome.get() && hasResult) {
        return "the exchange counts as a success";
    }
    return exchangeWithTheNextPeer(station, exchange);
}

Complaint breakOff(FaultStation& station, const FaultPoint& point, std::chrono::milliseconds& time) {
    const Link link = point.exchange->link;
    const bool isServer = link == Link::kControlServer || link == Link::kBluetoothServer;
    const Complaint complaint =
        isServer ? breakServerLink(station, point, time) : breakClientLink(station, point, time);
    if (!complaint.empty()) {
        return complaint;
    }
    return station.isTerminateHandled() ? "" : "command 1 is not handled";
}

/// Once more, up to five times, while Stop takes too long: on a loaded machine any thread may be late.
Complaint judge(FaultStation& station, const FaultPoint& point, WorkReport& report) {
    Complaint complaint;
    const auto time = shortestOf(kStopLimit, [&] {
        std::chrono::milliseconds stopTime{0};
        const Complaint next = breakOff(station, point, stopTime);
        complaint = complaint.empty() ? next : complaint;
        return stopTime;
    });
    report.measured(time);
    return time < kStopLimit ? complaint : "Stop takes " + std::to_string(time.count()) + " ms";
}

class MidFrameFaults : public testing::TestWithParam<Link> {
protected:
    static WorkResult breakOffAt(const std::vector<FaultPoint>& points) {
        const LogCapture log;
        return runForked(kWorkers, [&points](std::size_t worker, WorkReport& report) {
            FaultStation station;
            for (std::size_t i = worker; i < points.size(); i += kWorkers) {
                report.begin(points[i].text());
                const Complaint complaint = judge(station, points[i], report);
                complaint.empty() ? report.pass() : report.fail(complaint);
            }
        });
    }
};

TEST_P(MidFrameFaults, AtEveryByteTheProcessLivesTheNextPeerIsServedAndStopReturns) {
    const std::vector<FaultPoint> points = faultPointsOf(GetParam());
    ASSERT_FALSE(points.empty());
    const WorkResult result = breakOffAt(points);

    std::printf("%s: %zu messages, %zu bytes of frames; %zu of %zu faults passed; longest Stop %ld ms\n",
                nameOf(GetParam()), messagesOf(GetParam()).size(), points.size() / std::size(kFaults),
                result.passed, points.size(), static_cast<long>(result.longest.count()));
    EXPECT_EQ(result.passed, points.size());
    for (const std::string& failure : result.failures) {
        ADD_FAILURE() << failure;
    }
    EXPECT_GE(result.longest, 290ms) << "no peer has stalled";
}

INSTANTIATE_TEST_SUITE_P(EveryLink, MidFrameFaults,
                         testing::Values(Link::kControlServer, Link::kControlClient, Link::kBluetoothServer,
                                         Link::kBluetoothClient),
                         [](const auto& tested) { return std::string(nameOf(tested.param)); });

TEST(MidFrameFaultTable, HoldsEveryMessageOfBothLinksOnce) {
    std::set<std::string> golden;
    for (const GoldenMessage& message : goldenMessages()) {
        golden.insert(message.name);
    }
    std::set<std::string> held;
    std::size_t count = 0;
    for (const Link link :
         {Link::kControlServer, Link::kControlClient, Link::kBluetoothServer, Link::kBluetoothClient}) {
        const std::set<std::string> messages = messagesOf(link);
        held.insert(messages.begin(), messages.end());
        count += messages.size();
    }
    EXPECT_EQ(held, golden);
    EXPECT_EQ(count, 24U);
}

TEST(MidFrameFaultTable, HoldsEveryByteOfARequestAndItsReply) {
    std::set<std::string> texts;
    for (const FaultPoint& point : faultPointsOf(Link::kBluetoothServer)) {
        texts.insert(point.text());
    }
    const std::size_t bytes = goldenFrame("RecvSppData").size() + frameOf("1").size();
    EXPECT_EQ(texts.size(), bytes * std::size(kFaults));
}

}  // namespace
