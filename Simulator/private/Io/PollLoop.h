#pragma once

#include <poll.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "Simulator/private/Io/Clock.h"

namespace simulator {

/// Waits on descriptors and timers and calls their handlers, all on the one thread that runs it.
///
/// Handlers may watch, change and forget any descriptor and start and cancel any timer, their own included.
/// The loop owns no descriptor: whoever watches one forgets it before closing it. No operation may be called
/// from another thread.
class PollLoop {
public:
    using Handler = std::function<void(short readyEvents)>;
    using Task = std::function<void()>;
    using TimerId = std::uint64_t;

    /// Calls `handler` whenever one of `events` (POLLIN, POLLOUT), an error or a hang-up is there. A
    /// descriptor already watched gets the new events and handler.
    void watch(int fd, short events, Handler handler);

    /// Sets the events of a watched descriptor; one not watched is ignored.
    void change(int fd, short events);

    /// Ends the watch; a descriptor not watched is ignored.
    void forget(int fd);

    /// Calls `task` once after `delay`.
    TimerId after(Milliseconds delay, Task task);

    /// A timer that has run or was never there is ignored.
    void cancel(TimerId timer);

    /// Waits until something is ready, a timer is due or `limit` is over, and calls the handlers of what is
    /// ready.
    void step(Milliseconds limit);

    /// Steps until stop(). A stop() before the run ends it at once.
    void run();
    void stop() { stopped = true; }

private:
    struct Watch {
        short events = 0;
        std::uint64_t generation = 0;  // tells a descriptor's number used anew from the one that was ready
        std::shared_ptr<Handler> handler;
    };
    struct Ready {
        int fd;
        short events;
        std::uint64_t generation;
    };

    Milliseconds waitLimit(Milliseconds limit) const;
    std::vector<Ready> waitForReady(Milliseconds limit) const;
    void call(const Ready& ready);
    void runDueTimers();

    std::map<int, Watch> watches;
    std::multimap<Clock::time_point, std::pair<TimerId, Task>> timers;
    std::uint64_t nextGeneration = 1;
    TimerId nextTimer = 1;
    bool stopped = false;
};

}  // namespace simulator
