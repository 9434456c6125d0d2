#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>

#include "Pattern/QMUncopyable.h"
#include "Utility/QMLTimer.h"

/// Periodic timers ordered by the time they are due: no thread, no lock, no clock. Every call that depends on
/// the time is given the present tick (32-bit milliseconds that wrap).
///
/// A timer is due one interval after it was added and then again at every further interval. One that is
/// served late fires once, and is next due at the first point of its own grid that still lies ahead: nothing
/// is made up for, and nothing drifts. Timers due at one pass fire in the order of their due times.
///
/// Ticks are extended to 64 bits by their unsigned difference from the tick before, so intervals up to
/// 0xFFFFFFFF work and the wrap is not special. Hence two calls may not lie further apart than 49.7 days while
/// there are timers; the longest wait is shorter than that for this reason.
///
/// A pass costs in proportion to the timers that are due (times the logarithm of all), and allocates nothing.
/// The caller serialises all calls. Timers are borrowed: each must live until it is removed.
class QMLTimerQueue : private QMUncopyable {
public:
    /// The longest wait, which is also the longest that a wait on events can be told to take.
    static constexpr std::uint32_t kLongestWaitMs = 0x7FFFFFFF;

    /// An interval of 0 is served as one of 1 ms. @return false, with nothing changed, when the timer is null
    /// or present already, or when there is no memory.
    bool add(QMLTimer* timer, std::uint32_t intervalMs, std::uint32_t tick);

    /// @return whether the timer was present.
    bool remove(const QMLTimer* timer);

    /// @return whether the timer is present; `out` is untouched when not.
    bool find(const QMLTimer* timer, QMLTimerEntry& out) const;

    void clear();
    std::size_t size() const { return records.size(); }

    /// Takes note of the present tick.
    void advance(std::uint32_t tick);

    /// Fires each timer that is due, once. What one throws is logged as
    /// "catch exception. timer[%p] interval[%u], what [%s]\n", and the others fire all the same. A timer may
    /// change the queue while it fires. @return the number of timers fired.
    std::size_t firePass(std::uint32_t tick);

    /// @return the milliseconds until the earliest timer is due, at most kLongestWaitMs; 0 when one is due
    ///         now; nothing when there is no timer.
    std::optional<std::uint32_t> nextWait(std::uint32_t tick);

private:
    struct Record {
        QMLTimerEntry entry;
        std::uint64_t due;  // what entry.dueMs holds the low half of
    };
    struct Slot {
        std::uint64_t due;
        const QMLTimer* timer;
        Record* record;
    };
    struct EarlierDue {
        bool operator()(const Slot& left, const Slot& right) const noexcept;
    };

    QMLTimerEntry rescheduleFirst(std::uint64_t passTime);

    // Congruent with the last tick modulo 2^32.
    std::uint64_t now = 0;
    std::map<const QMLTimer*, Record> records;
    // One slot per record.
    std::set<Slot, EarlierDue> slots;
};
