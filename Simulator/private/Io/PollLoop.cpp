#include "Simulator/private/Io/PollLoop.h"

#include <algorithm>

namespace simulator {

namespace {

constexpr Milliseconds kLongestWait{60000};

int pollTimeout(Milliseconds limit) {
    return static_cast<int>(std::clamp(limit, Milliseconds(0), kLongestWait).count());
}

}  // namespace

void PollLoop::watch(int fd, short events, Handler handler) {
    watches[fd] = Watch{events, nextGeneration++, std::make_shared<Handler>(std::move(handler))};
}

void PollLoop::change(int fd, short events) {
    const auto found = watches.find(fd);
    if (found != watches.end()) {
        found->second.events = events;
    }
}

void PollLoop::forget(int fd) {
    watches.erase(fd);
}

PollLoop::TimerId PollLoop::after(Milliseconds delay, Task task) {
    const TimerId timer = nextTimer++;
    timers.emplace(Clock::now() + delay, std::make_pair(timer, std::move(task)));
    return timer;
}

void PollLoop::cancel(TimerId timer) {
    const auto found = std::find_if(timers.begin(), timers.end(),
                                    [timer](const auto& entry) { return entry.second.first == timer; });
    if (found != timers.end()) {
        timers.erase(found);
    }
}

void PollLoop::step(Milliseconds limit) {
    for (const Ready& ready : waitForReady(waitLimit(limit))) {
        call(ready);
    }
    runDueTimers();
}

void PollLoop::run() {
    while (!stopped) {
        step(kLongestWait);
    }
}

Milliseconds PollLoop::waitLimit(Milliseconds limit) const {
    if (timers.empty()) {
        return limit;
    }
    return std::min(limit, std::chrono::ceil<Milliseconds>(timers.begin()->first - Clock::now()));
}

std::vector<PollLoop::Ready> PollLoop::waitForReady(Milliseconds limit) const {
    std::vector<pollfd> polled;
    polled.reserve(watches.size());
    for (const auto& [fd, entry] : watches) {
        polled.push_back({fd, entry.events, 0});
    }
    std::vector<Ready> ready;
    if (::poll(polled.data(), static_cast<nfds_t>(polled.size()), pollTimeout(limit)) <= 0) {
        return ready;
    }
    for (const pollfd& entry : polled) {
        if (entry.revents != 0) {
            ready.push_back({entry.fd, entry.revents, watches.at(entry.fd).generation});
        }
    }
    return ready;
}

void PollLoop::call(const Ready& ready) {
    const auto found = watches.find(ready.fd);
    if (found == watches.end() || found->second.generation != ready.generation) {
        return;
    }
    const std::shared_ptr<Handler> handler = found->second.handler;  // may forget itself while it runs
    (*handler)(ready.events);
}

void PollLoop::runDueTimers() {
    const Clock::time_point now = Clock::now();
    while (!timers.empty() && timers.begin()->first <= now) {
        const Task task = std::move(timers.begin()->second.second);
        timers.erase(timers.begin());
        task();
    }
}

}  // namespace simulator
