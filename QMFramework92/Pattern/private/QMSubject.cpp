#include "Pattern/QMSubject.h"

#include <algorithm>
#include <utility>

#include "Diagnostics/QMAssert.h"
#include "Diagnostics/QMCallStack.h"
#include "Diagnostics/QMLog.h"

QMSubject::QMSubject() = default;

QMSubject::~QMSubject() {
    constexpr int kDumpDepth = 10;
    QMSyncGuard guard(lock);
    if (!observers.empty()) {
        QM_LOG_ERROR("call RemoveObserver() before delete. [%d]\n", static_cast<int>(observers.size()));
        QMCallStack::dumpDirectly(kDumpDepth);
        observers.clear();
    }
}

bool QMSubject::AddObserver(QMObserver_* observer) {
    return AddObserver(observer, nullptr, 0);
}

bool QMSubject::AddObserver(QMObserver_* observer, const unsigned* eventIds, unsigned count) {
    if (observer == nullptr) {
        QM_ASSERT_FAILED();
        return false;
    }
    Entry entry{observer, {}};
    if (eventIds != nullptr) {
        entry.eventIds.assign(eventIds, eventIds + count);
    }
    QMSyncGuard guard(lock);
    observers.push_back(std::move(entry));
    return true;
}

bool QMSubject::RemoveObserver(QMObserver_* observer) {
    if (observer == nullptr) {
        return false;
    }
    QMSyncGuard guard(lock);
    const auto found = std::find_if(observers.begin(), observers.end(),
                                    [observer](const Entry& entry) { return entry.observer == observer; });
    if (found == observers.end()) {
        return false;
    }
    observers.erase(found);
    return true;
}

unsigned QMSubject::NotifyObservers(unsigned eventId, const void* data, int size, unsigned mode) {
    unsigned largest = 0;
    QMSyncGuard guard(lock);
    for (const Entry& entry : observers) {
        const auto calls = mode == kNotifyRegisteredOnly
                               ? std::count(entry.eventIds.begin(), entry.eventIds.end(), eventId)
                               : 1;
        for (auto i = calls; i > 0; --i) {
            largest = std::max(largest, entry.observer->update(eventId, data, size));
        }
    }
    return largest;
}
