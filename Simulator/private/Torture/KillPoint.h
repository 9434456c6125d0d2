#pragma once

#include <string>
#include <vector>

#include "Simulator/private/Road/Scenario.h"

namespace simulator {

/// Something set off, and what has to come of it.
struct KillPhase {
    std::vector<ScenarioOrder> orders;
    std::vector<Expectation> expectations;
};

/// One point of the road at which a peer is killed, and what the others are told of it.
struct KillPoint {
    std::string name;
    std::string victim;               ///< the name of a process: controller, bluetooth or phone 1
    std::string through;              ///< the last stage of the road that is taken before
    std::vector<KillPhase> underWay;  ///< how far something has come when the kill comes, step by step
    std::vector<Expectation> after;  ///< what the survivors report of the kill, the receiver's log among them
    KillPhase then;                  ///< what survivors do when the victim is back, and what comes of that
    std::vector<Expectation> told;   ///< what comes of the kill, at once or only of what survivors do then
    std::vector<Expectation> never;  ///< what none of them may report up to then
    std::vector<Expectation>
        stopped;  ///< what the survivors report when the protocol is stopped after all that
};

/// Reads a list of points: a JSON object with "points". @throws JsonError saying what cannot be understood.
std::vector<KillPoint> parseKillPoints(const std::string& text);

}  // namespace simulator
