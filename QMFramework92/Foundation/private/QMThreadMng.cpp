#include "Foundation/QMThreadMng.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "Diagnostics/QMLog.h"

namespace {

struct PriorityBand {
    int first;  // highest framework priority of the band
    int last;   // lowest framework priority of the band
    int nice;
};

// In ascending order of framework priority; both look-ups take the first band that fits.
constexpr std::array<PriorityBand, 25> kPriorityBands{{
    {177, 177, -20}, {178, 178, -19}, {179, 180, -18}, {181, 182, -17}, {183, 184, -16},
    {185, 186, -15}, {187, 188, -14}, {189, 190, -13}, {191, 192, -12}, {193, 194, -11},
    {195, 196, -10}, {197, 197, -9},  {198, 198, -8},  {199, 199, -7},  {200, 200, -6},
    {201, 210, -5},  {211, 220, -4},  {221, 230, -3},  {231, 240, -2},  {241, 250, -1},
    {251, 251, 0},   {252, 252, 1},   {253, 253, 2},   {254, 254, 3},   {255, 255, 4},
}};

constexpr int kNiceBeyondTable = -1;
constexpr int kPriorityUnknown = -1;
constexpr int kPriorityUnreadable = 0;

int niceOf(int priority) {
    const auto band = std::find_if(kPriorityBands.begin(), kPriorityBands.end(),
                                   [priority](const PriorityBand& row) { return row.last >= priority; });
    return band == kPriorityBands.end() ? kNiceBeyondTable : band->nice;
}

int priorityOf(int nice) {
    const auto band = std::find_if(kPriorityBands.begin(), kPriorityBands.end(),
                                   [nice](const PriorityBand& row) { return row.nice == nice; });
    return band == kPriorityBands.end() ? kPriorityUnknown : band->first;
}

/// A nice value of -1 is a legal result, so errno alone tells a failure.
bool readNice(pid_t tid, int& nice) {
    errno = 0;
    nice = getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
    return nice != -1 || errno == 0;
}

}  // namespace

bool QMThreadMng::SetPriority(pthread_t thread, int priority, pid_t tid) {
    if (setpriority(PRIO_PROCESS, static_cast<id_t>(tid), niceOf(priority)) != 0) {
        QM_LOG_STD_ERROR(", setpriority()\n");
        return false;
    }
    QMSyncGuard guard(registryLock);
    const auto found = registry.find(thread);
    if (found == registry.end()) {
        return false;
    }
    found->second.priority = priority;
    return true;
}

int QMThreadMng::GetPriority(pthread_t /*thread*/, pid_t tid) {
    int nice = 0;
    if (!readNice(tid, nice)) {
        QM_LOG_STD_ERROR(", getpriority()\n");
        return kPriorityUnreadable;
    }
    return priorityOf(nice);
}

int QMThreadMng::GetCurrentThreadPriority() {
    const pid_t tid = gettid();
    int nice = 0;
    if (tid < 0) {
        return kPriorityUnreadable;
    }
    if (!readNice(tid, nice)) {
        QM_LOG_STD_ERROR(", getpriority()\n");
        return kPriorityUnreadable;
    }
    const int priority = priorityOf(nice);
    if (priority == kPriorityUnknown) {
        QM_LOG_ERROR("error : nice[%d]\n", nice);
    }
    return priority;
}

void QMThreadMng::RegisterThread(pthread_t thread, const char* name, int priority,
                                 std::uint32_t registryValue) {
    QMThreadRecord record{thread, priority, {}, registryValue, {0, 0}, 1};
    std::strncpy(record.name, name, sizeof(record.name) - 1);
    QMSyncGuard guard(registryLock);
    registry[thread] = record;
}

void QMThreadMng::UnregisterThread(pthread_t thread) {
    QMSyncGuard guard(registryLock);
    registry.erase(thread);
}

bool QMThreadMng::FindThread(pthread_t thread, QMThreadRecord& out) {
    QMSyncGuard guard(registryLock);
    const auto found = registry.find(thread);
    if (found == registry.end()) {
        return false;
    }
    out = found->second;
    return true;
}
