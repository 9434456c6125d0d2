#pragma once

#include "Simulator/private/Road/ProcessFigures.h"
#include "Simulator/private/Road/Road.h"
#include "Simulator/private/Torture/KillPoint.h"

namespace simulator {

/// What one kill has cost.
struct KillCost {
    Milliseconds recovery{0};  ///< from the kill until the receiver holds no more than before it
    ProcessFigures usage;      ///< of the receiver then
    long memoryGrowthKiB = 0;  ///< of the receiver, compared with the moment before
};

/// One kill: a road of its own to the point, the kill, what is reported of it, and the way back.
///
/// The phone has taken the road once before, so that what the receiver makes on first use is there, and the
/// receiver's usage is taken with the protocol stopped. After the kill the victim comes back, the protocol is
/// stopped and used again by the next peers, and the usage has to be the same. Then the receiver is ended by
/// command 1.
///
/// The receiver connects to each peer once: what it has to tell a peer that was killed is lost for the rest of
/// the receiver's life, while the peer that comes back is served on the socket where the receiver listens.
class KillRun {
public:
    /// @throws std::exception when the road cannot be made.
    KillRun(const RoadOptions& options, const KillPoint& killPoint, std::ostream& output);

    /// @throws StageFailure, or another exception, when something is not as it has to be.
    KillCost run();

    bool isInterrupted() const { return road.isInterrupted(); }

    /// The last lines of the processes, for a failure.
    void describeProcesses(std::ostream& output) const { road.describeProcesses(point.victim, output); }

private:
    void take(const std::string& stage);
    void walkThrough(const std::string& last);
    void warmUp();
    void stopProtocol();
    void pass(const KillPhase& phase);
    void forgetAll(const std::vector<Expectation>& expectations);
    void awaitAll(const std::vector<Expectation>& expectations);
    void kill();
    void bringBack();
    void serveNextPeer();
    ProcessFigures settledUsage();
    void awaitUsage(const ProcessFigures& expected);

    const KillPoint& point;
    Road road;
};

}  // namespace simulator
