#include "Simulator/private/Road/StageList.h"

namespace simulator {

std::optional<std::string> StageList::reach(const std::string& name, const StageTimes& times) {
    const std::optional<std::string> next = missing();
    if (!next) {
        return "stage \"" + name + "\" is out of order: no stage is left";
    }
    if (*next != name) {
        return "stage \"" + name + "\" is out of order: \"" + *next + "\" is missing";
    }
    if (!reached.empty() && times.first < reached.back().first) {
        return "stage \"" + name + "\" is out of order: it was reached before \"" +
               names[reached.size() - 1] + "\"";
    }
    reached.push_back(times);
    return std::nullopt;
}

std::optional<std::string> StageList::missing() const {
    if (reached.size() == names.size()) {
        return std::nullopt;
    }
    return names[reached.size()];
}

}  // namespace simulator
