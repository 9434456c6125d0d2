#include "Simulator/private/Torture/KillTorture.h"

#include <algorithm>
#include <exception>
#include <optional>

namespace simulator {

namespace {

KillCost worseOf(const KillCost& one, const KillCost& other) {
    return {std::max(one.recovery, other.recovery), other.usage,
            std::max(one.memoryGrowthKiB, other.memoryGrowthKiB)};
}

}  // namespace

KillTorture::KillTorture(const RoadOptions& roadOptions, const TortureOptions& tortureOptions,
                         std::ostream& output)
    : road(roadOptions), options(tortureOptions), out(output) {}

int KillTorture::run() {
    int points = 0;
    int passed = 0;
    KillCost worst;
    for (const KillPoint& point : options.points) {
        if (interrupted || (!options.victim.empty() && options.victim != point.victim)) {
            continue;
        }
        const PointResult result = torture(point);
        print(point, result);
        ++points;
        passed += result.passed;
        worst = worseOf(worst, result.worst);
    }
    const int wanted = points * options.rounds;
    out << "torture: " << passed << " of " << wanted << " kills at " << points
        << " points survived, longest recovery " << worst.recovery.count() << " ms, most memory grown "
        << worst.memoryGrowthKiB << " KiB" << std::endl;
    return points > 0 && passed == wanted ? 0 : 1;
}

KillTorture::PointResult KillTorture::torture(const KillPoint& point) {
    PointResult result;
    for (int round = 0; round < options.rounds && !interrupted; ++round) {
        if (killOnce(point, result)) {
            ++result.passed;
        }
    }
    return result;
}

bool KillTorture::killOnce(const KillPoint& point, PointResult& result) {
    std::optional<KillRun> run;
    try {
        const KillCost cost = run.emplace(road, point, out).run();
        result.worst = worseOf(result.worst, cost);
        if (cost.memoryGrowthKiB <= options.growthKiB) {
            return true;
        }
        out << "torture: \"" << point.name << "\" failed: the receiver's memory has grown by "
            << cost.memoryGrowthKiB << " KiB" << std::endl;
    } catch (const std::exception& error) {
        out << "torture: \"" << point.name << "\" failed: " << error.what() << std::endl;
        if (run) {
            interrupted = run->isInterrupted();
            run->describeProcesses(out);
        }
    }
    return false;
}

void KillTorture::print(const KillPoint& point, const PointResult& result) {
    out << point.name << ": " << result.passed << " of " << options.rounds
        << " kills survived, recovery at most " << result.worst.recovery.count() << " ms, "
        << result.worst.usage.describe() << ", memory grown by at most " << result.worst.memoryGrowthKiB
        << " KiB" << std::endl;
}

}  // namespace simulator
