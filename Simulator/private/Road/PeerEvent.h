#pragma once

#include <string>
#include <string_view>

#include "Simulator/private/Io/Clock.h"
#include "Simulator/private/Peers/Json.h"

namespace simulator {

/// Something that a process of the road has reported.
struct PeerEvent {
    std::string name;
    double time = 0;  ///< seconds of the monotonic clock
    Json details;     ///< the whole line's object; for a line that is no event, its text as "line"
};

/// Reads a line of a process's output; a line that is no event becomes the event "log" of this moment.
PeerEvent readEvent(std::string_view line);

/// What is waited for.
struct Expectation {
    std::string from;                       ///< name of the process
    std::string event;                      ///< name of the event
    Json where = Json::object();            ///< details that have to be equal
    Json contains = Json::object();         ///< details that are texts and have to contain these
    Milliseconds within = Milliseconds(0);  ///< 0: the road's own limit

    bool matches(const PeerEvent& candidate) const;

    /// For messages: the event with what is asked of it.
    std::string describe() const;
};

}  // namespace simulator
