#pragma once

#include <cstdint>

/// Calendar time.
struct QMDateTime {
    std::int32_t year;       ///< four digits
    std::int32_t month;      ///< 1-12
    std::int32_t dayOfWeek;  ///< 0 is Sunday
    std::int32_t day;        ///< 1-31
    std::int32_t hour;       ///< 0-23
    std::int32_t minute;     ///< 0-59
    std::int32_t second;     ///< 0-60
};

/// The wall clock.
class QMClock {
public:
    /// Fills `out` with the present time in UTC. A null pointer logs "invalid arg\n"; a failure of the clock
    /// is logged and leaves `out` untouched. Any thread may call it.
    static void GetUtc(QMDateTime* out);
};
