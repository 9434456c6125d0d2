#include "Utility/QMTickCount.h"

#include <ctime>

#include "Diagnostics/QMLog.h"

std::uint32_t QMTickCount::GetTickCount() {
    constexpr std::uint64_t kMsPerSecond = 1000;
    constexpr std::uint64_t kNsPerMs = 1000000;
    timespec now{};
    if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) {
        QM_LOG_STD_ERROR(", clock_gettime()\n");
        return 0;
    }
    return static_cast<std::uint32_t>(static_cast<std::uint64_t>(now.tv_sec) * kMsPerSecond +
                                      static_cast<std::uint64_t>(now.tv_nsec) / kNsPerMs);
}
