#pragma once

#include <signal.h>

#include <functional>

#include "Simulator/private/Io/PollLoop.h"
#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {

/// Turns SIGINT, SIGTERM and SIGCHLD into calls from within a poll loop. The three are blocked in the thread
/// that makes it for as long as it lives.
class SignalWatch {
public:
    struct Handlers {
        std::function<void(int signal)> interrupted;  ///< SIGINT or SIGTERM
        std::function<void()> childEnded;             ///< one or more children
    };

    /// @throws std::system_error when the signals cannot be watched.
    SignalWatch(PollLoop& pollLoop, Handlers signalHandlers);
    ~SignalWatch();

    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

private:
    void onReady();

    PollLoop& loop;
    const Handlers handlers;
    sigset_t former{};
    UniqueFd fd;
};

}  // namespace simulator
