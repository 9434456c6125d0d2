#include "Foundation/QMSync.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>

#include "Diagnostics/QMCallStack.h"
#include "Diagnostics/QMLog.h"

namespace {

constexpr unsigned kInitialCount = 1;
constexpr mode_t kNamedMode = 0777;
constexpr int kDumpDepth = 10;

timespec deadlineAfter(std::uint32_t timeoutMs) {
    constexpr std::uint32_t kMillisecondsPerSecond = 1000;
    constexpr long kNanosecondsPerMillisecond = 1000000;
    constexpr long kNanosecondsPerSecond = 1000000000;
    timespec deadline{};
    clock_gettime(CLOCK_REALTIME, &deadline);
    auto seconds = static_cast<std::time_t>(timeoutMs / kMillisecondsPerSecond);
    deadline.tv_nsec += static_cast<long>(timeoutMs % kMillisecondsPerSecond) * kNanosecondsPerMillisecond;
    if (deadline.tv_nsec >= kNanosecondsPerSecond) {
        deadline.tv_nsec -= kNanosecondsPerSecond;
        ++seconds;
    }
    // A clock of 32 bits ends in January 2038; a deadline beyond the end is put there.
    deadline.tv_sec += std::min(seconds, std::numeric_limits<std::time_t>::max() - deadline.tv_sec);
    return deadline;
}

}  // namespace

QMSync::QMSync() {
    createUnnamed();
}

QMSync::QMSync(const char* givenName, int givenKind) : kind(givenKind) {
    if (givenName == nullptr) {
        QM_LOG_ERROR("invalid arg : name is null\n");
        return;
    }
    std::strncpy(name, givenName, sizeof(name) - 1);
    if (kind == kUnnamed) {
        createUnnamed();
    } else if (kind == kNamed) {
        openNamed(givenName);
    } else {
        QM_LOG_ERROR("invalid arg\n");
    }
}

QMSync::~QMSync() {
    if (handle == nullptr) {
        return;
    }
    if (kind == kNamed) {
        sem_close(handle);
    } else {
        sem_destroy(handle);
    }
}

void QMSync::createUnnamed() {
    constexpr int kThisProcessOnly = 0;
    if (sem_init(&unnamed, kThisProcessOnly, kInitialCount) == 0) {
        handle = &unnamed;
    } else {
        QM_LOG_STD_ERROR(", sem_init()\n");
    }
}

void QMSync::openNamed(const char* givenName) {
    // A longer name is cut and still too long, so that the system refuses it.
    char path[NAME_MAX + 2] = {};
    std::snprintf(path, sizeof(path), "/%s", givenName);
    sem_t* opened = sem_open(path, O_CREAT, kNamedMode, kInitialCount);
    if (opened == SEM_FAILED) {
        QM_LOG_STD_ERROR(", sem_open()\n");
        return;
    }
    handle = opened;
}

void QMSync::reportNoHandle(const char* function) {
    qm_Log(QM_SOURCE_PATH, function, __LINE__, QM_LOG_LEVEL_ERROR, "handle is not created\n");
    QMCallStack::dumpDirectly(kDumpDepth);
}

/// Goes on with a wait without limit that has failed, and had better only been interrupted.
int QMSync::waitAgain() {
    do {
        if (errno != EINTR) {
            qm_LogStdError(QM_SOURCE_PATH, "Lock", __LINE__, ", sem_wait()\n");
            return kError;
        }
    } while (sem_wait(handle) != 0);
    return kLocked;
}

int QMSync::waitUntilDeadline(std::uint32_t timeoutMs) {
    const timespec deadline = deadlineAfter(timeoutMs);
    while (sem_timedwait(handle, &deadline) != 0) {
        if (errno == ETIMEDOUT) {
            return kTimedOut;
        }
        if (errno != EINTR) {
            qm_LogStdError(QM_SOURCE_PATH, "Lock", __LINE__, ", sem_timedwait()\n");
            return kError;
        }
    }
    return kLocked;
}
