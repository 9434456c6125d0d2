#include "Simulator/private/Torture/KillRun.h"

#include <algorithm>

#include "Simulator/private/Road/RoadStages.h"

namespace simulator {

namespace {

constexpr int kStop = 1001;
constexpr Milliseconds kLookPeriod{5};
constexpr int kSettledLooks = 4;  // that see the same in a row: nothing is under way any more

/// The stages that make the receiver use everything once, as far as they last no longer than they must.
constexpr const char* kWarmUp[] = {
    "protocol started", "settings",    "device",       "RFCOMM connected", "Wi-Fi status",
    "TCP connected",    "key fetched", "TCP accepted", "may it start",     "ready",
    "connected",        "start",       "loss"};

}  // namespace

KillRun::KillRun(const RoadOptions& options, const KillPoint& killPoint, std::ostream& output)
    : point(killPoint), road(options, output) {}

KillCost KillRun::run() {
    take("process up");
    warmUp();
    const ProcessFigures before = settledUsage();
    road.forgetAll();
    walkThrough(point.through);
    road.forgetAll();
    for (const KillPhase& phase : point.underWay) {
        pass(phase);
    }
    const auto begin = Clock::now();
    kill();
    bringBack();
    pass(point.then);
    awaitAll(point.told);
    for (const Expectation& expectation : point.never) {
        road.refuse(expectation, "there is " + expectation.describe() + " all the same");
    }
    forgetAll(point.stopped);
    stopProtocol();
    awaitAll(point.stopped);
    awaitUsage(before);
    road.forgetAll();
    const auto recovery = std::chrono::duration_cast<Milliseconds>(Clock::now() - begin);
    serveNextPeer();
    stopProtocol();
    awaitUsage(before);
    const ProcessFigures after = road.receiverFigures();
    take("terminate");
    return {recovery, after, static_cast<long>(after.writtenKb) - static_cast<long>(before.writtenKb)};
}

void KillRun::take(const std::string& stage) {
    findRoadStage(stage)->take(road);
    road.takeProof();
}

/// From the start of the protocol on: the processes are up.
void KillRun::walkThrough(const std::string& last) {
    for (const std::string& stage : wholeRoad(road.scenario().tls)) {
        if (stage != "process up") {
            take(stage);
        }
        if (stage == last) {
            return;
        }
    }
}

void KillRun::warmUp() {
    for (const char* const stage : kWarmUp) {
        if (!findRoadStage(stage)->onlyRequested || road.scenario().tls == TlsSource::kRequested) {
            take(stage);
        }
    }
    stopProtocol();
}

void KillRun::stopProtocol() {
    road.command({{"message", kStop}});
    road.takeProof();
}

void KillRun::forgetAll(const std::vector<Expectation>& expectations) {
    for (const Expectation& expectation : expectations) {
        road.forget(expectation);
    }
}

void KillRun::awaitAll(const std::vector<Expectation>& expectations) {
    for (const Expectation& expectation : expectations) {
        road.await(expectation);
    }
}

/// What was reported before the orders is no proof of what they do.
void KillRun::pass(const KillPhase& phase) {
    forgetAll(phase.expectations);
    for (const ScenarioOrder& order : phase.orders) {
        road.order(order.to, order.order);
    }
    awaitAll(phase.expectations);
}

void KillRun::kill() {
    road.order("road", {{"order", "kill"}, {"peer", point.victim}});
    awaitAll(point.after);
}

void KillRun::bringBack() {
    road.order("road", {{"order", "restart"}, {"peer", point.victim}});
    if (point.victim == Road::kController) {
        road.await({Road::kController, "link-up", {{"socket", "WPP_SOCKET_TO_WPP"}}});
    } else if (point.victim == Road::kBluetooth) {
        road.await({Road::kBluetooth, "link-up", {{"socket", "WPP_SOCKET_FROM_BT"}}});
    }
}

/// A phone takes the road again. A controller starts and sets up the protocol. A Bluetooth process, without
/// which the receiver reaches no phone over RFCOMM, is answered, and a phone still comes over TCP.
void KillRun::serveNextPeer() {
    if (point.victim == Road::kController) {
        take("protocol started");
        take("settings");
        take("device");
        return;
    }
    if (point.victim == Road::kBluetooth) {
        take("protocol started");
        take("settings");
        take("device");
        road.order(Road::kBluetooth, {{"order", "send-frame"}, {"bytes", "a00f0000"}});
        road.await({Road::kBluetooth, "reply", {{"bytes", "01"}}});
        take("TCP connected");
        take("key fetched");
        take("TCP accepted");
        return;
    }
    walkThrough("connected");
    take("loss");
}

/// The usage that stays the same for a while, with the most waits that were seen.
ProcessFigures KillRun::settledUsage() {
    ProcessFigures settled = road.receiverFigures();
    int same = 0;
    while (same < kSettledLooks) {
        road.idle(kLookPeriod);
        ProcessFigures next = road.receiverFigures();
        same = next.areAsManyAs(settled) ? same + 1 : 0;
        next.waits = same == 0 ? next.waits : std::max(next.waits, settled.waits);
        settled = next;
    }
    return settled;
}

void KillRun::awaitUsage(const ProcessFigures& expected) {
    const Deadline deadline(road.scenario().limit);
    ProcessFigures usage = road.receiverFigures();
    while (!usage.areAsManyAs(expected) || usage.waits > expected.waits) {
        if (deadline.passed()) {
            throw StageFailure(
                "the receiver has " + usage.describe() + ", before the kill " + expected.describe(),
                Road::kReceiver);
        }
        road.idle(Milliseconds(1));
        usage = road.receiverFigures();
    }
}

}  // namespace simulator
