#include "private/Supervisor.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <new>

namespace wifi_projection_protocol {

Supervisor::Supervisor(std::size_t threadLimit, std::chrono::milliseconds waitForRoom)
    : maxThreads(threadLimit), roomTime(waitForRoom), thread([this] { supervise(); }) {}

Supervisor::~Supervisor() {
    stop();
}

bool Supervisor::start(std::shared_ptr<Supervised> work) {
    Lock lock(mutex);
    const auto hasRoom = [this] { return entries.size() < maxThreads; };
    changed.wait_for(lock, roomTime, [&] { return stopping || hasRoom(); });
    if (stopping || !hasRoom()) {
        return false;
    }
    try {
        entries.emplace_back();
    } catch (const std::bad_alloc&) {
        return false;
    }
    const auto entry = std::prev(entries.end());
    entry->work = std::move(work);
    try {
        entry->thread = std::thread([this, entry] {
            entry->work->run();
            finish(entry);
        });
    } catch (const std::exception&) {
        // No thread, or no memory for what it would begin with.
        entries.erase(entry);
        return false;
    }
    due = true;
    changed.notify_all();
    return true;
}

void Supervisor::recheck() {
    const std::lock_guard<std::mutex> lock(mutex);
    due = true;
    changed.notify_all();
}

void Supervisor::stop() {
    {
        const std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
        due = true;
        changed.notify_all();
    }
    if (thread.joinable()) {
        thread.join();
    }
}

void Supervisor::finish(Entries::iterator entry) {
    const std::lock_guard<std::mutex> lock(mutex);
    entry->ended = true;
    due = true;
    changed.notify_all();
}

void Supervisor::supervise() {
    Lock lock(mutex);
    for (;;) {
        due = false;
        joinEnded(lock);
        endLate(lock);
        if (stopping && entries.empty()) {
            return;
        }
        const auto deadline = nextDeadline();
        if (deadline == Supervised::kNoDeadline) {
            changed.wait(lock, [this] { return due; });
        } else {
            changed.wait_until(lock, deadline, [this] { return due; });
        }
    }
}

void Supervisor::joinEnded(Lock& lock) {
    Entries ended;
    for (auto entry = entries.begin(); entry != entries.end();) {
        const auto next = std::next(entry);
        if (entry->ended) {
            ended.splice(ended.end(), entries, entry);
        }
        entry = next;
    }
    changed.notify_all();  // there is room
    lock.unlock();
    for (Entry& entry : ended) {
        entry.thread.join();
    }
    ended.clear();
    lock.lock();
}

/// One after the other, since a list of them would take memory.
void Supervisor::endLate(Lock& lock) {
    while (std::shared_ptr<Supervised> late = findLate()) {
        lock.unlock();
        late->endLate();
        late.reset();
        lock.lock();
    }
}

std::shared_ptr<Supervised> Supervisor::findLate() const {
    const auto now = Supervised::Clock::now();
    const auto late = std::find_if(entries.begin(), entries.end(),
                                   [now](const Entry& entry) { return entry.work->deadline() <= now; });
    return late == entries.end() ? nullptr : late->work;
}

Supervised::Clock::time_point Supervisor::nextDeadline() const {
    auto next = Supervised::kNoDeadline;
    for (const Entry& entry : entries) {
        next = std::min(next, entry.work->deadline());
    }
    return next;
}

}  // namespace wifi_projection_protocol
