#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace simulator {

/// When a stage was reached, in seconds of the monotonic clock: by the first phone and by the last one.
struct StageTimes {
    double first = 0;
    double last = 0;
};

/// The stages that a road has to take, in order, and those that it has taken. Pure: no process, no clock.
class StageList {
public:
    explicit StageList(std::vector<std::string> stageNames) : names(std::move(stageNames)) {}

    /// Notes that a stage was reached. @return what is wrong with it: it is not the next one, or it was
    /// reached before the one ahead of it; empty when all is well. A stage that is wrong is not noted.
    std::optional<std::string> reach(const std::string& name, const StageTimes& times);

    /// The first stage that has not been reached; empty when all have been.
    std::optional<std::string> missing() const;

    std::size_t size() const { return names.size(); }
    std::size_t reachedCount() const { return reached.size(); }

private:
    const std::vector<std::string> names;
    std::vector<StageTimes> reached;
};

}  // namespace simulator
