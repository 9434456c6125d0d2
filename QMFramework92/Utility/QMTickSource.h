#pragma once

#include <cstdint>

/// Where timers read the time from: milliseconds that only go forward and wrap after 0xFFFFFFFF (49.7 days).
/// Any thread may call it.
class QMTickSource {
public:
    virtual ~QMTickSource() = default;
    virtual std::uint32_t GetTickCount() = 0;
};
