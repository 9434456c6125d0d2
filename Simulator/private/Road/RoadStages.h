#pragma once

#include <string>
#include <vector>

#include "Simulator/private/Road/Scenario.h"

namespace simulator {

class Road;

/// A stage that the road knows by itself: gives the orders, and proves by what the processes report that
/// every phone has reached it.
struct RoadStage {
    const char* name;
    const char* messages;  ///< the ids of the messages that make it, empty when it takes none
    bool onlyRequested;    ///< only on the road on which the receiver asks for its TLS material
    bool onceForAll;       ///< only in the first round, or in the last
    void (*take)(Road& road);
};

/// @return the stage of this name; null when there is none.
const RoadStage* findRoadStage(const std::string& name);

/// The names of the whole road's stages, in order.
std::vector<std::string> wholeRoad(TlsSource tls);

}  // namespace simulator
