#pragma once

#include <cstdint>

#include "Pattern/QMSingleton.h"
#include "Utility/QMTickSource.h"

/// The machine's monotonic clock in milliseconds; setting the calendar time does not move it.
class QMTickCount : public QMSingleton<QMTickCount>, public QMTickSource {
public:
    /// @return seconds x 1000 + nanoseconds / 1,000,000 of CLOCK_MONOTONIC, wrapping at 32 bits; 0 when the
    ///         clock cannot be read, which is logged as ", clock_gettime()\n".
    std::uint32_t GetTickCount() override;

private:
    friend class QMSingleton<QMTickCount>;
    QMTickCount() = default;
    ~QMTickCount() override = default;
};
