#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "Simulator/private/Road/Road.h"
#include "Simulator/private/Torture/KillPoint.h"
#include "Simulator/private/Torture/KillRun.h"

namespace simulator {

struct TortureOptions {
    std::vector<KillPoint> points;
    std::string victim;     ///< only points of this one; empty for all
    int rounds = 1;         ///< kills at each point
    long growthKiB = 4096;  ///< the most that the receiver's memory may have grown by one kill
};

/// Kills peers at every point, so many rounds each, and tells how the receiver takes it: a line for each point
/// and one for all of them. A kill that goes wrong is told with the reason and the processes' last lines, and
/// the next one comes all the same, except after SIGINT and SIGTERM.
class KillTorture {
public:
    /// Lines go to `output`; all have to outlive it.
    KillTorture(const RoadOptions& roadOptions, const TortureOptions& tortureOptions, std::ostream& output);

    /// @return the program's exit status: 0 only when every kill at every point went as it has to.
    int run();

private:
    /// What the kills at one point have cost at most.
    struct PointResult {
        int passed = 0;
        KillCost worst;
    };

    PointResult torture(const KillPoint& point);
    bool killOnce(const KillPoint& point, PointResult& result);
    void print(const KillPoint& point, const PointResult& result);

    const RoadOptions& road;
    const TortureOptions& options;
    std::ostream& out;
    bool interrupted = false;
};

}  // namespace simulator
