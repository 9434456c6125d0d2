#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>

namespace wifi_projection_protocol {

/// Lets one thread at a time ask its question, in order of arrival. No lock is held while it asks.
///
/// Life: open -> stopped by stop(), for good: whoever still waits gets no turn then. Any thread.
class QuestionQueue {
public:
    /// Waits for its turn and holds it until destroyed. Converts to false when there is no turn: the queue is
    /// stopped, or `cancelled` (looked at under the queue's lock) has become true.
    class Turn {
    public:
        Turn(QuestionQueue& queue, const std::function<bool()>& cancelled);
        ~Turn();
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

        explicit operator bool() const { return granted; }

    private:
        QuestionQueue& owner;
        std::uint64_t number;
        bool granted;
    };

    /// What a waiting thread's `cancelled` says may have changed.
    void recheck();

    void stop();

private:
    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    std::deque<std::uint64_t> waiting;  // the first has the turn
    std::uint64_t nextNumber = 0;
    bool stopped = false;
};

}  // namespace wifi_projection_protocol
