#include "private/Supervisor.h"

#include <algorithm>
#include <iterator>
#include <system_error>

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
    entries.emplace_back();
    const auto entry = std::prev(entries.end());
    entry->work = std::move(work);
    try {
        entry->thread = std::thread([this, entry] {
            entry->work->run();
            finish(entry);
        });
    } catch (const std::system_error&) {
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

void Supervisor::endLate(Lock& lock) {
    const auto now = Supervised::Clock::now();
    std::vector<std::shared_ptr<Supervised>> late;
    for (const Entry& entry : entries) {
        if (entry.work->deadline() <= now) {
            late.push_back(entry.work);
        }
    }
    lock.unlock();
    for (const auto& work : late) {
        work->endLate();
    }
    late.clear();
    lock.lock();
}

Supervised::Clock::time_point Supervisor::nextDeadline() const {
    auto next = Supervised::kNoDeadline;
    for (const Entry& entry : entries) {
        next = std::min(next, entry.work->deadline());
    }
    return next;
}

}  // namespace wifi_projection_protocol
