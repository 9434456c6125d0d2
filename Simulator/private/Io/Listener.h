#pragma once

#include <functional>
#include <string>

#include "Simulator/private/Io/PollLoop.h"
#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {

/// A local socket at which peers knock; each connection goes to the handler. Removes its socket file at the
/// end.
class Listener {
public:
    using AcceptedHandler = std::function<void(UniqueFd fd)>;

    /// @throws std::system_error when the socket cannot be opened.
    Listener(PollLoop& pollLoop, std::string socketName, AcceptedHandler acceptedHandler);
    ~Listener();

    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

private:
    PollLoop& loop;
    const std::string name;
    const UniqueFd fd;
};

}  // namespace simulator
