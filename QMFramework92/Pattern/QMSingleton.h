#pragma once

#include <atomic>

#include "Foundation/QMSync.h"
#include "Pattern/QMUncopyable.h"

/// Registers a function that destroys a singleton when the framework terminates. Functions run in the order
/// of their registration, each once. Any thread may call it.
void qm_RegisterSingletonDestroyer(void (*destroy)());

/// Runs and empties the list of destroyers; what is created meanwhile is destroyed too.
void qm_DestroySingletons();

/// One instance of T per process, made on first use and destroyed by qm_FwTerminate.
///
/// T derives from QMSingleton<T>, befriends it and keeps its constructor private. getInstance is safe from
/// any thread; once the instance exists it takes no lock.
///
///     class Clock : public QMSingleton<Clock> {
///         friend class QMSingleton<Clock>;
///         Clock() = default;
///     };
template <class T>
class QMSingleton : private QMUncopyable {
public:
    static T* getInstance() {
        if (T* existing = existingInstance()) {
            return existing;
        }
        return createOnce();
    }

protected:
    QMSingleton() = default;
    ~QMSingleton() = default;

    /// The instance if there is one, else null; creates none.
    static T* existingInstance() { return instance.load(std::memory_order_acquire); }

private:
    static QMSync& creationLock() {
        static QMSync lock;
        return lock;
    }

    static T* createOnce() {
        QMSyncGuard guard(creationLock());
        T* created = instance.load(std::memory_order_relaxed);
        if (created == nullptr) {
            created = new T;
            try {
                qm_RegisterSingletonDestroyer(&QMSingleton::destroy);
            } catch (...) {
                // Nobody would ever destroy it.
                delete created;
                throw;
            }
            instance.store(created, std::memory_order_release);
        }
        return created;
    }

    // The pointer is cleared last: a destructor that asks for its own instance must not make a second one.
    static void destroy() {
        delete instance.load(std::memory_order_acquire);
        instance.store(nullptr, std::memory_order_release);
    }

    inline static std::atomic<T*> instance{nullptr};
};
