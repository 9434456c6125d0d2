#include "Pattern/QMSingleton.h"

#include <deque>

#include "inc/QMThreadSafety.h"

namespace {

using Destroyer = void (*)();

class DestroyerQueue : private QMUncopyable {
public:
    void append(Destroyer destroy) {
        QMSyncGuard guard(lock);
        destroyers.push_back(destroy);
    }

    /// Removes and returns the oldest, null when there is none.
    Destroyer takeFirst() {
        QMSyncGuard guard(lock);
        if (destroyers.empty()) {
            return nullptr;
        }
        const Destroyer first = destroyers.front();
        destroyers.pop_front();
        return first;
    }

private:
    QMSync lock;
    std::deque<Destroyer> destroyers QM_GUARDED_BY(lock);
};

DestroyerQueue& destroyerQueue() {
    static DestroyerQueue queue;
    return queue;
}

}  // namespace

void qm_RegisterSingletonDestroyer(void (*destroy)()) {
    destroyerQueue().append(destroy);
}

void qm_DestroySingletons() {
    // The lock is free while a destroyer runs, since that may create and register another singleton.
    while (const Destroyer destroy = destroyerQueue().takeFirst()) {
        destroy();
    }
}
