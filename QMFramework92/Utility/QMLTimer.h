#pragma once

#include <cstdint>

class QMLTimer;

/// What a timer queue knows of one timer.
struct QMLTimerEntry {
    QMLTimer* timer;
    std::uint32_t intervalMs;  ///< at least 1
    std::uint32_t dueMs;       ///< the tick at which it is due, wrapping
    std::uint32_t flag;        ///< reserved, 0
};

/// Something that is to happen again and again. Whoever adds a timer keeps it alive until it is removed;
/// nobody else owns it.
class QMLTimer {
public:
    virtual ~QMLTimer() = default;

    /// Called when the timer is due, on the thread that serves it and with that thread's timers locked. It
    /// must be quick, since the others wait for it, and must not add or remove timers of the same
    /// sub-manager. What it throws is logged and goes no further. `entry` holds the time that is being
    /// served and is valid until the return.
    virtual void Fire(const QMLTimerEntry& entry) = 0;
};
