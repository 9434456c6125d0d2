#include "Diagnostics/private/QMLogFormat.h"

#include <cstdio>
#include <cstring>
#include <ctime>

namespace qm_detail {

const char* baseName(const char* path) {
    const char* lastSlash = std::strrchr(path, '/');
    return lastSlash == nullptr ? path : lastSlash + 1;
}

bool composeTimestampedLine(const timeval& time, const char* line, TimestampedLine& out) {
    constexpr int kYearsFrom1900To2000 = 100;
    constexpr long kMicrosecondsPerMillisecond = 1000;
    const std::time_t seconds = time.tv_sec;
    std::tm local{};
    if (localtime_r(&seconds, &local) == nullptr) {
        return false;
    }
    const int written = std::snprintf(out.data(), out.size(), "%02d/%02d/%02d %02d:%02d:%02d.%-3ld %s",
                                      local.tm_year - kYearsFrom1900To2000, local.tm_mon + 1, local.tm_mday,
                                      local.tm_hour, local.tm_min, local.tm_sec,
                                      static_cast<long>(time.tv_usec) / kMicrosecondsPerMillisecond, line);
    return written >= 0;
}

}  // namespace qm_detail
