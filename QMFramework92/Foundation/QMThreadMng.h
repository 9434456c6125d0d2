#pragma once

#include <pthread.h>
#include <sys/types.h>

#include <cstdint>
#include <map>

#include "Foundation/QMSync.h"
#include "Pattern/QMSingleton.h"
#include "Pattern/QMSubject.h"
#include "inc/QMThreadSafety.h"

/// What the registry knows of one running thread.
struct QMThreadRecord {
    pthread_t handle;
    std::int32_t priority;        ///< on the framework's scale
    char name[256];               ///< null-terminated
    std::uint32_t registryValue;  ///< given by the thread's owner, not interpreted
    std::uint32_t counters[2];    ///< reserved, 0
    std::uint32_t flag;           ///< reserved, 1
};

/// Registry of the framework's threads and translator of its priorities into nice values.
///
/// Framework priorities run from 177 (highest) to 255 (lowest). A QMThread registers itself when it starts
/// and is removed when it has been joined. Any thread may call the operations; the registry lock is held only
/// for one insertion, removal, look-up or update, and is taken after a thread's own state lock, never before
/// it. It is also a subject, through which nothing is notified.
class QMThreadMng : public QMSingleton<QMThreadMng>, public QMSubject {
public:
    /// Sets the nice value of the kernel thread `tid`: -20 for a priority below 177, -1 for one above 255.
    /// @return true when the nice value was set and `thread` is registered (its record then holds the
    ///         priority); false after a failure, which is logged as ", setpriority()\n".
    bool SetPriority(pthread_t thread, int priority, pid_t tid);

    /// @return the framework priority of the kernel thread `tid`; -1 when its nice value has none (5 to 19);
    ///         0 when it cannot be read, which is logged as ", getpriority()\n". `thread` is not used.
    int GetPriority(pthread_t thread, pid_t tid);

    /// GetPriority of the calling thread; a nice value that has no priority logs "error : nice[%d]\n".
    int GetCurrentThreadPriority();

    /// Records a thread, in the place of an earlier record of the same handle.
    void RegisterThread(pthread_t thread, const char* name, int priority, std::uint32_t registryValue);

    /// Forgets a thread; an unknown handle is ignored.
    void UnregisterThread(pthread_t thread);

    /// Copies a thread's record. @return whether the thread is registered; `out` is untouched when not.
    bool FindThread(pthread_t thread, QMThreadRecord& out);

private:
    friend class QMSingleton<QMThreadMng>;
    QMThreadMng() = default;
    ~QMThreadMng() override = default;

    QMSync registryLock;
    std::map<pthread_t, QMThreadRecord> registry QM_GUARDED_BY(registryLock);
};
