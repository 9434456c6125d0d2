#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "Simulator/private/Road/ProcessFigures.h"
#include "Simulator/private/Road/Road.h"

namespace simulator {

/// Takes a scenario's phones along its course and tells how it goes: a line for each stage with the time
/// since the start, and a closing line; with several rounds, what the receiver costs at the end of each; of a stage that fails, its name, the reason, and the processes' last
/// lines.
class RoadRunner {
public:
    /// Lines go to `output`; both have to outlive it.
    RoadRunner(const RoadOptions& roadOptions, std::ostream& output);

    /// @return the program's exit status: 0 only when every stage was reached in order, and when the receiver
    /// costs no more in the end than after the second round.
    int run();

private:
    void takeStage(Road& road, const ScenarioStage& stage);
    void takeOwnStage(Road& road, const ScenarioStage& stage);
    void printReached(const std::string& label, const StageTimes& times);
    void endRound(Road& road, int round);
    void printVerdict();
    int printEnd();

    const RoadOptions options;
    std::ostream& out;
    const double begin;
    const std::vector<ScenarioStage> course;
    StageList stages;
    ProcessFigures peak;                  // of this round
    std::vector<ProcessFigures> figures;  // at the end of each round
    bool hasGrown = false;
};

}  // namespace simulator
