#include "Foundation/QMClock.h"

#include <sys/time.h>

#include <ctime>

#include "Diagnostics/QMLog.h"

void QMClock::GetUtc(QMDateTime* out) {
    constexpr int kFirstYear = 1900;
    if (out == nullptr) {
        QM_LOG_ERROR("invalid arg\n");
        return;
    }
    timeval now{};
    if (gettimeofday(&now, nullptr) != 0) {
        QM_LOG_STD_ERROR(", gettimeofday()\n");
        return;
    }
    tzset();
    const std::time_t seconds = now.tv_sec;
    std::tm utc{};
    if (gmtime_r(&seconds, &utc) == nullptr) {
        QM_LOG_STD_ERROR(", gmtime_r()\n");
        return;
    }
    *out = {utc.tm_year + kFirstYear,
            utc.tm_mon + 1,
            utc.tm_wday,
            utc.tm_mday,
            utc.tm_hour,
            utc.tm_min,
            utc.tm_sec};
}
