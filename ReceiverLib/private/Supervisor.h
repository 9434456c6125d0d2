#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <limits>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace wifi_projection_protocol {

/// Something that runs on a thread of its own and may be late with what it is doing.
class Supervised {
public:
    using Clock = std::chrono::steady_clock;
    static constexpr Clock::time_point kNoDeadline = Clock::time_point::max();

    virtual ~Supervised() = default;

    /// The work, on a thread of its own; must not throw.
    virtual void run() = 0;

    /// When the step under way must be over; kNoDeadline when nothing is due. Called with the supervisor's
    /// lock held, so it only looks.
    virtual Clock::time_point deadline() const = 0;

    /// The deadline is over: end the work; must not throw. Afterwards deadline() is kNoDeadline. Called without
    /// a lock.
    virtual void endLate() = 0;
};

/// Owns the threads of everything supervised, and one of its own that joins those that have ended and ends
/// those that are late. So no thread ever joins itself, and a read that blocks for ever still has a time
/// limit.
///
/// Life: running from construction -> stopped by stop() or the destructor, for good. Any thread may call
/// start() and recheck(), supervised ones included; stop() is called from outside.
class Supervisor {
public:
    /// @param threadLimit most works at a time, those included that are ending.
    /// @param waitForRoom how long a start waits until there are fewer.
    explicit Supervisor(std::size_t threadLimit = std::numeric_limits<std::size_t>::max(),
                        std::chrono::milliseconds waitForRoom = {});
    ~Supervisor();

    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    /// Runs `work` on a new thread and shares its ownership until that thread is joined.
    /// @return false when stopped, when there is no room or no thread to be had; it has not run then.
    bool start(std::shared_ptr<Supervised> work);

    /// A deadline has changed.
    void recheck();

    /// Waits until everything supervised has ended and joins it. It does not end it: that is the caller's to
    /// do.
    void stop();

private:
    struct Entry {
        std::shared_ptr<Supervised> work;
        std::thread thread;
        bool ended = false;
    };
    using Entries = std::list<Entry>;
    using Lock = std::unique_lock<std::mutex>;

    void supervise();
    void joinEnded(Lock& lock);
    void endLate(Lock& lock);
    std::shared_ptr<Supervised> findLate() const;
    Supervised::Clock::time_point nextDeadline() const;
    void finish(Entries::iterator entry);

    const std::size_t maxThreads;
    const std::chrono::milliseconds roomTime;

    std::mutex mutex;
    std::condition_variable changed;
    // Guarded by mutex.
    Entries entries;
    bool stopping = false;
    bool due = false;  // something changed since the supervising thread looked last

    std::thread thread;
};

}  // namespace wifi_projection_protocol
