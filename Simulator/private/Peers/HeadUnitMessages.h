#pragma once

#include <string>

#include "Simulator/private/Peers/Json.h"

namespace simulator {

/// What a message of the head unit says to the phone: the event's name and its details.
struct HeadUnitEvent {
    std::string name;  ///< "settings", "start-answer", "start", or "unreadable"
    Json details;
};

/// Reads one serialised message of the head unit.
HeadUnitEvent describeHeadUnitMessage(const std::string& serialised);

}  // namespace simulator
