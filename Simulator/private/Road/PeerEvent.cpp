#include "Simulator/private/Road/PeerEvent.h"

#include <utility>

namespace simulator {

PeerEvent readEvent(std::string_view line) {
    Json object = Json::parse(line, nullptr, false);
    if (object.is_object() && object.contains("event") && object["event"].is_string() &&
        object.contains("time") && object["time"].is_number()) {
        std::string name = object["event"].get<std::string>();
        const double time = object["time"].get<double>();
        return {std::move(name), time, std::move(object)};
    }
    return {"log", monotonicSeconds(), {{"line", std::string(line)}}};
}

bool Expectation::matches(const PeerEvent& candidate) const {
    if (candidate.name != event) {
        return false;
    }
    for (const auto& [key, value] : where.items()) {
        if (!candidate.details.contains(key) || candidate.details[key] != value) {
            return false;
        }
    }
    for (const auto& [key, value] : contains.items()) {
        const auto found = candidate.details.find(key);
        if (found == candidate.details.end() || !found->is_string() || !value.is_string() ||
            found->get<std::string>().find(value.get<std::string>()) == std::string::npos) {
            return false;
        }
    }
    return true;
}

std::string Expectation::describe() const {
    std::string text = "\"" + event + "\"";
    if (!where.empty()) {
        text += " " + where.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
    if (!contains.empty()) {
        text += " containing " + contains.dump(-1, ' ', false, Json::error_handler_t::replace);
    }
    return text + " from " + from;
}

}  // namespace simulator
