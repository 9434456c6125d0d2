#include "Simulator/private/Io/Listener.h"

#include <unistd.h>

#include <utility>

#include "Simulator/private/Io/LocalSocket.h"

namespace simulator {

Listener::Listener(PollLoop& pollLoop, std::string socketName, AcceptedHandler acceptedHandler)
    : loop(pollLoop), name(std::move(socketName)), fd(listenLocal(name)) {
    loop.watch(fd.get(), POLLIN, [listener = fd.get(), onAccepted = std::move(acceptedHandler)](short) {
        UniqueFd connection = acceptOne(listener);
        if (connection) {
            onAccepted(std::move(connection));
        }
    });
}

Listener::~Listener() {
    loop.forget(fd.get());
    ::unlink(name.c_str());
}

}  // namespace simulator
