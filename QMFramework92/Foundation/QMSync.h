#pragma once

#include <pthread.h>
#include <semaphore.h>

#include <atomic>
#include <cstdint>

#include "Pattern/QMUncopyable.h"
#include "inc/QMThreadSafety.h"

/// Waits without limit, wherever the framework takes milliseconds.
constexpr std::uint32_t QM_WAIT_INFINITE = 0xFFFFFFFFU;

/// Recursive lock on a POSIX semaphore, unnamed (this process) or named (shared between processes).
///
/// Free, or held by one thread that may lock it again and unlocks it as often. Pair Lock and Unlock on one
/// thread: Unlock does not check who calls. A lock whose semaphore could not be made reports every Lock and
/// Unlock with "handle is not created\n" and a stack dump, and never blocks.
///
///     QMSync lock;
///     QMSyncGuard guard(lock);                         // waits without limit, unlocks at the end of the scope
///     if (other.Lock(1500) == QMSync::kTimedOut) ...   // somebody has held it for 1.5 s
class QM_CAPABILITY("QMSync") QMSync : private QMUncopyable {
public:
    enum Kind : int { kNamed = 0, kUnnamed = 1 };
    enum Result : int { kLocked = 0, kTimedOut = 1, kError = 2 };

    /// An unnamed semaphore with count 1.
    QMSync();

    /// kind 1: unnamed, the name is only stored. kind 0: the semaphore "/" + name, opened or created with
    /// mode 0777 and count 1. Another kind logs "invalid arg\n", a null name "invalid arg : name is null\n";
    /// both leave no handle. Names longer than 31 characters are cut where they are stored.
    QMSync(const char* name, int kind);

    /// Destroys an unnamed semaphore, closes a named one (which is never unlinked).
    ~QMSync();

    /// @return 0 locked, 1 timed out (silently), 2 error (logged). QM_WAIT_INFINITE waits without limit; the
    ///         deadline of a timed wait runs on CLOCK_REALTIME. Where that clock cannot be read, as with a 32-bit
    ///         time_t after January 2038, a timed wait for a lock that is held times out at once.
    int Lock(std::uint32_t timeoutMs) {
        // Only this thread stores its own id here, so another thread's value can never look like ours.
        if (owner.load(std::memory_order_relaxed) == pthread_self()) {
            ++recursionCount;
            return kLocked;
        }
        const int result = acquire(timeoutMs);
        if (result == kLocked) {
            owner.store(pthread_self(), std::memory_order_relaxed);
        }
        return result;
    }

    /// Gives back one Lock.
    void Unlock() {
        if (recursionCount > 0) {
            --recursionCount;
            return;
        }
        if (handle == nullptr) {
            reportNoHandle("Unlock");
            return;
        }
        owner.store(kNoOwner, std::memory_order_relaxed);
        sem_post(handle);
    }

private:
    static constexpr pthread_t kNoOwner = 0;

    // What a lock that nobody contends for needs stays within the caller; the rest lies apart.
    int acquire(std::uint32_t timeoutMs) {
        if (handle == nullptr) {
            reportNoHandle("Lock");
            return kError;
        }
        if (timeoutMs != QM_WAIT_INFINITE) {
            return waitUntilDeadline(timeoutMs);
        }
        return sem_wait(handle) == 0 ? static_cast<int>(kLocked) : waitAgain();
    }

    void createUnnamed();
    void openNamed(const char* givenName);
    static void reportNoHandle(const char* function);
    int waitAgain();
    int waitUntilDeadline(std::uint32_t timeoutMs);

    // Fixed after construction.
    sem_t unnamed{};
    sem_t* handle = nullptr;
    int kind = kUnnamed;
    char name[32] = {};

    // 0 while free. Threads that do not hold the lock read it to learn that they do not.
    std::atomic<pthread_t> owner{kNoOwner};
    // How often the owner has locked beyond the first time; only the thread that holds the semaphore touches
    // it, and the semaphore orders what successive holders do.
    std::uint32_t recursionCount = 0;
};

/// Holds a QMSync for the length of a scope, waiting for it without limit. A lock without a semaphore is
/// reported by its Lock, and the scope then runs without it.
class QM_SCOPED_CAPABILITY QMSyncGuard : private QMUncopyable {
public:
    // Lock and Unlock carry no annotations, since a Lock may time out; the scope is what the analysis follows.
    explicit QMSyncGuard(QMSync& lock) QM_ACQUIRE(lock) QM_NO_THREAD_SAFETY_ANALYSIS
        : sync(lock),
          held(lock.Lock(QM_WAIT_INFINITE) == QMSync::kLocked) {}
    ~QMSyncGuard() QM_RELEASE() QM_NO_THREAD_SAFETY_ANALYSIS {
        if (held) {
            sync.Unlock();
        }
    }

private:
    QMSync& sync;
    const bool held;
};
