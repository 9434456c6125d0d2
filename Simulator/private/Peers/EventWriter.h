#pragma once

#include <ostream>
#include <string>

#include "Simulator/private/Peers/Json.h"

namespace simulator {

/// Reports what happens at a peer: one JSON object a line, with the event's name and the time of the
/// monotonic clock in seconds first and its details behind. Each line is flushed.
class EventWriter {
public:
    explicit EventWriter(std::ostream& output) : out(output) {}

    /// `details` is an object; bytes that are no UTF-8 come out as replacement characters.
    void report(const std::string& event, const Json& details = Json::object());

private:
    std::ostream& out;
};

}  // namespace simulator
