#include "Simulator/private/Peers/EventWriter.h"

#include "Simulator/private/Io/Clock.h"

namespace simulator {

void EventWriter::report(const std::string& event, const Json& details) {
    Json line = {{"event", event}, {"time", monotonicSeconds()}};
    line.update(details);
    out << line.dump(-1, ' ', false, Json::error_handler_t::replace) << std::endl;
}

}  // namespace simulator
