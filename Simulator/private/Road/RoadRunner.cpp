#include "Simulator/private/Road/RoadRunner.h"

#include <algorithm>
#include <cstdio>
#include <exception>

#include "Simulator/private/Road/RoadStages.h"

namespace simulator {

namespace {

constexpr const char* kLastStage = "terminate";

std::vector<ScenarioStage> oneRoundOf(const Scenario& scenario) {
    if (!scenario.course.empty()) {
        return scenario.course;
    }
    std::vector<ScenarioStage> course;
    for (const std::string& name : wholeRoad(scenario.tls)) {
        ScenarioStage stage;
        stage.name = name;
        stage.isBuiltIn = true;
        course.push_back(stage);
    }
    return course;
}

/// What belongs to the receiver's life rather than to a phone's is in the first round, its end in the last.
bool belongsTo(int round, const ScenarioStage& stage, int rounds) {
    if (!stage.isBuiltIn || !findRoadStage(stage.name)->onceForAll) {
        return true;
    }
    return round == (stage.name == kLastStage ? rounds : 1);
}

std::vector<ScenarioStage> courseOf(const Scenario& scenario) {
    const std::vector<ScenarioStage> once = oneRoundOf(scenario);
    std::vector<ScenarioStage> course;
    for (int round = 1; round <= scenario.rounds; ++round) {
        ScenarioStage* last = nullptr;
        for (const ScenarioStage& stage : once) {
            if (belongsTo(round, stage, scenario.rounds)) {
                course.push_back(stage);
                course.back().round = round;
            }
        }
        for (ScenarioStage& stage : course) {
            last = stage.round == round && stage.name != kLastStage ? &stage : last;
        }
        if (last != nullptr) {
            last->endsRound = true;
        }
    }
    return course;
}

std::vector<std::string> namesOf(const std::vector<ScenarioStage>& course) {
    std::vector<std::string> names;
    for (const ScenarioStage& stage : course) {
        names.push_back(stage.name);
    }
    return names;
}

/// The stage's name and, of a stage that the road knows, the messages that make it.
std::string labelOf(const ScenarioStage& stage, int rounds) {
    const RoadStage* known = stage.isBuiltIn ? findRoadStage(stage.name) : nullptr;
    const std::string label =
        rounds == 1 ? stage.name : "round " + std::to_string(stage.round) + ": " + stage.name;
    if (known == nullptr || *known->messages == '\0') {
        return label;
    }
    return label + " (" + known->messages + ")";
}

std::string secondsText(double seconds) {
    char text[32];
    std::snprintf(text, sizeof(text), "%9.3f s", seconds);
    return text;
}

std::string counted(std::size_t count, const std::string& thing) {
    return std::to_string(count) + " " + thing + (count == 1 ? "" : "s");
}

}  // namespace

RoadRunner::RoadRunner(const RoadOptions& roadOptions, std::ostream& output)
    : options(roadOptions),
      out(output),
      begin(monotonicSeconds()),
      course(courseOf(options.scenario)),
      stages(namesOf(course)) {}

int RoadRunner::run() {
    Road road(options, out);
    for (const ScenarioStage& stage : course) {
        std::string about;
        try {
            takeStage(road, stage);
            continue;
        } catch (const StageFailure& failure) {
            about = failure.from;
            out << "road: stage \"" << stage.name << "\" failed: " << failure.what() << std::endl;
        } catch (const std::exception& error) {
            out << "road: stage \"" << stage.name << "\" failed: " << error.what() << std::endl;
        }
        road.describeProcesses(about, out);
        return printEnd();
    }
    return printEnd();
}

void RoadRunner::takeStage(Road& road, const ScenarioStage& stage) {
    if (stage.isBuiltIn) {
        findRoadStage(stage.name)->take(road);
    } else {
        takeOwnStage(road, stage);
    }
    const StageTimes times = road.takeProof();
    if (const std::optional<std::string> complaint = stages.reach(stage.name, times)) {
        throw StageFailure(*complaint);
    }
    printReached(labelOf(stage, options.scenario.rounds), times);
    if (options.scenario.rounds > 1) {
        const ProcessFigures now = road.receiverFigures();
        peak.descriptors = std::max(peak.descriptors, now.descriptors);
        peak.waits = std::max(peak.waits, now.waits);
        peak.threads = std::max(peak.threads, now.threads);
        if (stage.endsRound) {
            endRound(road, stage.round);
        }
    }
}

/// Whatever the receiver has told the controller was asked for by a stage.
void RoadRunner::endRound(Road& road, int round) {
    figures.push_back(road.settledFigures());
    out << "[" << secondsText(monotonicSeconds() - begin) << "] round " << round << ": receiver "
        << figures.back().describe() << "; at most " << peak.descriptors << " descriptors, " << peak.waits
        << " waits, " << peak.threads << " threads" << std::endl;
    peak = {};
    road.refuse({Road::kController, "notification", Json::object(), Json::object(), {}},
                "the controller was told more than there was to tell");
    road.beginRound(round + 1);
}

/// The first round makes what is made once, the second shows it.
void RoadRunner::printVerdict() {
    constexpr std::size_t kReference = 1;
    if (figures.size() <= kReference + 1) {
        return;
    }
    hasGrown = figures.back().exceed(figures[kReference]);
    out << "road: after " << figures.size() << " rounds the receiver "
        << (hasGrown ? "has grown: " : "is as after 2: ") << figures[kReference].describe() << " -> "
        << figures.back().describe() << std::endl;
}

/// What was reported before the stage's orders is no proof of what they do; a stage without orders waits for
/// what earlier ones have set off.
void RoadRunner::takeOwnStage(Road& road, const ScenarioStage& stage) {
    for (const Expectation& expectation : stage.expectations) {
        if (!stage.orders.empty()) {
            road.forget(expectation);
        }
    }
    for (const ScenarioOrder& order : stage.orders) {
        road.order(order.to, order.order);
    }
    for (const Expectation& expectation : stage.expectations) {
        road.prove(expectation);
    }
}

/// Of many phones the line's time is the first one's, the one that the order of the stages goes by.
void RoadRunner::printReached(const std::string& label, const StageTimes& times) {
    if (options.scenario.phones == 1) {
        out << "[" << secondsText(times.last - begin) << "] " << label << std::endl;
    } else {
        out << "[" << secondsText(times.first - begin) << "] " << label << ", last phone"
            << secondsText(times.last - begin) << std::endl;
    }
}

int RoadRunner::printEnd() {
    const std::string phones = counted(static_cast<std::size_t>(options.scenario.phones), "phone");
    if (const std::optional<std::string> missing = stages.missing()) {
        out << "road: failed at \"" << *missing << "\", " << stages.reachedCount() << " of "
            << counted(stages.size(), "stage") << " reached with " << phones << std::endl;
        return 1;
    }
    out << "road: every stage reached, " << counted(stages.size(), "stage") << " with " << phones << " in"
        << secondsText(monotonicSeconds() - begin) << std::endl;
    printVerdict();
    return hasGrown ? 1 : 0;
}

}  // namespace simulator
