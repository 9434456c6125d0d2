#pragma once

#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>

#include "Diagnostics/QMAssert.h"
#include "Diagnostics/QMLog.h"
#include "Foundation/QMEvent.h"
#include "Foundation/QMSync.h"
#include "Foundation/QMThreadMng.h"
#include "Pattern/QMUncopyable.h"
#include "inc/QMThreadSafety.h"

/// How a QMThread<T> treats its owner: specialise it for an owner that needs more than a procedure to run.
/// An owner that keeps MainProc private befriends the struct.
template <class T>
struct QMThreadTraits {
    /// Asked before each start; false makes Start log "error [%s]\n" and fail.
    static bool canStart(const T* owner) { return owner != nullptr; }

    /// The body of the thread. The result becomes that of Entry.
    static int run(T* owner) {
        owner->MainProc();
        return 0;
    }

    /// Called by Start once the thread runs and has its name; the result becomes that of Start.
    static bool afterStart(T* /*owner*/) { return true; }
};

/// A named POSIX thread that runs a procedure of the object that owns it.
///
/// Life: not running -> running (Start) -> started (the thread has recorded its kernel id and registered
/// itself with QMThreadMng) -> ended (the procedure has returned) -> not running (WaitExit has joined it),
/// and so on. One owner starts it and waits for it; Start and WaitExit must not run at once. SetPriority and
/// GetPriority may come from any thread. The thread object must outlive its thread: the owner calls WaitExit
/// before it destroys it. Lock order: the state lock here, then the registry lock of QMThreadMng.
template <class T>
class QMThread : private QMUncopyable {
public:
    /// `threadOwner` is borrowed and must outlive the thread. `registryRecordValue` goes into the registry
    /// record as it is.
    explicit QMThread(T* threadOwner, unsigned registryRecordValue = 0)
        : owner(threadOwner), registryValue(registryRecordValue) {}

    virtual ~QMThread() = default;

    /// Starts the thread. A null name or one of 128 characters or more becomes "no_name"; the operating
    /// system shows the first 15 characters. @return false, logged, when it is already running, must not
    /// start or cannot be created; also when the owner's step after the start fails, and the thread then runs
    /// on until WaitExit.
    bool Start(const char* requestedName);

    /// Runs the owner's procedure. @return its result, or -1 after an exception, which is logged with the
    /// assertion banner and the call stack and goes no further.
    int Entry();

    /// Joins the thread, however long that takes; a join that takes longer than timeoutMs is reported in the
    /// log. @return true when the thread was joined or not running, false when joining failed (logged).
    bool WaitExit(unsigned timeoutMs);

    /// Sets the priority on the framework's scale (177 highest, 255 lowest): at once when the thread has
    /// started, otherwise kept for the thread to apply. @return false when it could not be set.
    bool SetPriority(int priority);

    /// @return the priority on the framework's scale; -1, logged as "invalid thread id\n", when the thread
    ///         has not started.
    int GetPriority();

private:
    static constexpr pthread_t kNoThread = static_cast<pthread_t>(-1);
    static constexpr pid_t kNoKernelId = -1;
    static constexpr int kNoPriority = -1;
    static constexpr int kEntryFailed = -1;

    /// What the thread that watches over a join needs; it lives on the stack of WaitExit.
    struct ExitWatch {
        QMEvent* exitEvent;
        const char* threadName;
        std::uint32_t timeoutMs;
        bool tookSignal;  ///< written by the watcher, read when it has been joined
    };

    template <class Procedure>
    int runGuarded(Procedure procedure);
    static void* startRoutine(void* argument);
    static void* WaitEventTimeoutThread(void* argument);
    void nameOsThread(pthread_t thread) const;
    void recordStart();
    int joinWatched(pthread_t thread, std::uint32_t timeoutMs);

    // Fixed after construction.
    T* const owner;
    const std::uint32_t registryValue;

    // Written by Start before the thread exists, then only read.
    char name[128] = {};

    // Written under the state lock or by the joining owner, read by any thread.
    std::atomic<pthread_t> handle{kNoThread};
    std::atomic<pid_t> kernelId{kNoKernelId};
    std::atomic<std::uint32_t> waitExitTimeout{0};

    QMEvent exitEvent;
    QMSync stateLock;
    int pendingPriority QM_GUARDED_BY(stateLock) = kNoPriority;
};

template <class T>
bool QMThread<T>::Start(const char* requestedName) {
    {
        QMSyncGuard guard(stateLock);
        if (handle != kNoThread || !QMThreadTraits<T>::canStart(owner)) {
            QM_LOG_ERROR("error [%s]\n", requestedName == nullptr ? "(null)" : requestedName);
            return false;
        }
        const bool named = requestedName != nullptr && std::strlen(requestedName) < sizeof(name);
        std::snprintf(name, sizeof(name), "%s", named ? requestedName : "no_name");
        pthread_t created{};
        if (pthread_create(&created, nullptr, &QMThread::startRoutine, this) != 0) {
            QM_LOG_ERROR("QMThread::Start() failed !! [%s]\r\n", name);
            return false;
        }
        // The new thread waits for the state lock, so that nobody sees it running under an unknown handle.
        handle = created;
        nameOsThread(created);
    }
    return QMThreadTraits<T>::afterStart(owner);
}

template <class T>
void QMThread<T>::nameOsThread(pthread_t thread) const {
    char shortName[16];  // the kernel's limit, with the terminator
    std::memcpy(shortName, name, sizeof(shortName) - 1);
    shortName[sizeof(shortName) - 1] = '\0';
    pthread_setname_np(thread, shortName);
}

template <class T>
void* QMThread<T>::startRoutine(void* argument) {
    auto* self = static_cast<QMThread*>(argument);
    // A thread that could not be recorded runs all the same.
    self->runGuarded([self] {
        self->recordStart();
        return 0;
    });
    self->Entry();
    return nullptr;
}

template <class T>
void QMThread<T>::recordStart() {
    QMSyncGuard guard(stateLock);
    kernelId = gettid();
    QMThreadMng* registry = QMThreadMng::getInstance();
    int priority = GetPriority();
    if (pendingPriority != kNoPriority) {
        priority = pendingPriority;
        pendingPriority = kNoPriority;
        registry->SetPriority(pthread_self(), priority, kernelId);
    }
    registry->RegisterThread(pthread_self(), name, priority, registryValue);
}

template <class T>
int QMThread<T>::Entry() {
    return runGuarded([this] { return QMThreadTraits<T>::run(owner); });
}

/// No exception leaves the thread: it is reported in the name of Entry, and the result is -1.
template <class T>
template <class Procedure>
int QMThread<T>::runGuarded(Procedure procedure) {
    try {
        return procedure();
    } catch (const std::exception& exception) {
        qm_Log(QM_SOURCE_PATH, "Entry", __LINE__, QM_LOG_LEVEL_ERROR,
               "catch exception. thread name [%s], what [%s]\n", name, exception.what());
        QM_ASSERT_FAILED();
    } catch (...) {
        qm_Log(QM_SOURCE_PATH, "Entry", __LINE__, QM_LOG_LEVEL_ERROR, "catch exception. thread name [%s]\n",
               name);
        QM_ASSERT_FAILED();
    }
    return kEntryFailed;
}

template <class T>
bool QMThread<T>::WaitExit(unsigned timeoutMs) {
    const pthread_t thread = handle;
    if (thread == kNoThread) {
        return true;
    }
    waitExitTimeout = timeoutMs;
    const int joinResult = joinWatched(thread, timeoutMs);
    QMThreadMng::getInstance()->UnregisterThread(thread);
    kernelId = kNoKernelId;
    handle = kNoThread;
    if (joinResult != 0) {
        errno = joinResult;
        QM_LOG_STD_ERROR(", pthread_join() failed !! ret[%d]\n", joinResult);
        return false;
    }
    return true;
}

template <class T>
int QMThread<T>::joinWatched(pthread_t thread, std::uint32_t timeoutMs) {
    ExitWatch watch{&exitEvent, name, timeoutMs, false};
    pthread_t watcher{};
    if (pthread_create(&watcher, nullptr, &QMThread::WaitEventTimeoutThread, &watch) != 0) {
        qm_Log(QM_SOURCE_PATH, "WaitExit", __LINE__, QM_LOG_LEVEL_ERROR, "Error, pthread_create failed.\n");
        return pthread_join(thread, nullptr);
    }
    const int result = pthread_join(thread, nullptr);
    exitEvent.SetEvent();
    pthread_join(watcher, nullptr);
    if (!watch.tookSignal) {
        // The next watcher would take it for the end of its own thread.
        QMEvent::Drain(&exitEvent);
    }
    return result;
}

template <class T>
void* QMThread<T>::WaitEventTimeoutThread(void* argument) {
    auto* watch = static_cast<ExitWatch*>(argument);
    const int result = QMEvent::WaitEvent(watch->exitEvent, watch->timeoutMs);
    watch->tookSignal = result == QMEvent::kSignalled;
    if (result == QMEvent::kTimedOut) {
        QM_LOG_ERROR("Error, QMThread::WaitExit() timed out[%dms]. thread name[%s]\n",
                     static_cast<int>(watch->timeoutMs), watch->threadName);
        QM_ASSERT_FAILED();
    }
    return nullptr;
}

template <class T>
bool QMThread<T>::SetPriority(int priority) {
    QMSyncGuard guard(stateLock);
    const pid_t tid = kernelId;
    if (tid == kNoKernelId) {
        pendingPriority = priority;
        return true;
    }
    return QMThreadMng::getInstance()->SetPriority(handle, priority, tid);
}

template <class T>
int QMThread<T>::GetPriority() {
    const pid_t tid = kernelId;
    if (tid == kNoKernelId) {
        QM_LOG_ERROR("invalid thread id\n");
        return kNoPriority;
    }
    return QMThreadMng::getInstance()->GetPriority(handle, tid);
}
