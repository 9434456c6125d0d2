#pragma once

#include <functional>
#include <string>

#include "Simulator/private/Io/PollLoop.h"
#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {

/// Knocks at a local socket until somebody listens there, then hands the connection to its handler.
///
/// It tries once for each start() and then every 20 ms: a socket file that is not there yet gives no signal
/// to wait for. Whoever needs a limit destroys the connector or stops the loop. The loop has to outlive it.
class Connector {
public:
    using ConnectedHandler = std::function<void(UniqueFd fd)>;

    Connector(PollLoop& pollLoop, std::string socketName, ConnectedHandler connectedHandler);
    ~Connector();

    Connector(const Connector&) = delete;
    Connector& operator=(const Connector&) = delete;

    /// Begins to knock; while it knocks already nothing changes.
    void start();

private:
    void knock();

    PollLoop& loop;
    const std::string name;
    const ConnectedHandler onConnected;
    PollLoop::TimerId timer = 0;
    bool knocking = false;
};

}  // namespace simulator
