#include "Simulator/private/Io/Connector.h"

#include <utility>

#include "Simulator/private/Io/LocalSocket.h"

namespace simulator {

namespace {

constexpr Milliseconds kKnockPeriod{20};

}  // namespace

Connector::Connector(PollLoop& pollLoop, std::string socketName, ConnectedHandler connectedHandler)
    : loop(pollLoop), name(std::move(socketName)), onConnected(std::move(connectedHandler)) {}

Connector::~Connector() {
    loop.cancel(timer);
}

void Connector::start() {
    if (!knocking) {
        knocking = true;
        timer = loop.after(Milliseconds(0), [this] { knock(); });
    }
}

void Connector::knock() {
    UniqueFd fd = connectLocal(name);
    if (!fd) {
        timer = loop.after(kKnockPeriod, [this] { knock(); });
        return;
    }
    knocking = false;
    onConnected(std::move(fd));
}

}  // namespace simulator
