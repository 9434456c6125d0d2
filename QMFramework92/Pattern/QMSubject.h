#pragma once

#include <list>
#include <vector>

#include "Foundation/QMSync.h"
#include "Pattern/QMUncopyable.h"
#include "inc/QMThreadSafety.h"

/// Abstract observer of a QMSubject.
class QMObserver_ {
public:
    virtual ~QMObserver_() = default;

    /// Called for each notification, on the notifying thread and with the subject's lock held. `data` is
    /// valid only during the call. It must not add or remove observers of the same subject.
    virtual unsigned update(unsigned eventId, const void* data, int size) = 0;
};

/// Observer that passes each notification to a member function of an object that it does not own.
template <class T>
class QMObserver final : public QMObserver_ {
public:
    using Handler = unsigned (T::*)(unsigned eventId, const void* data, int size);

    QMObserver(T* objectToCall, Handler memberToCall) : object(objectToCall), handler(memberToCall) {}

    unsigned update(unsigned eventId, const void* data, int size) override {
        return (object->*handler)(eventId, data, size);
    }

private:
    T* object;
    Handler handler;
};

/// Keeps a list of observers in registration order and notifies them. It owns none of them.
///
/// Any thread may call its operations; each holds the subject's lock for its whole run.
/// An addition that finds no memory throws std::bad_alloc and changes nothing.
///
///     QMObserver<Meter> observer(&meter, &Meter::onReading);
///     subject.AddObserver(&observer);
///     subject.NotifyObservers(kReading, &value, sizeof(value), QMSubject::kNotifyAll);
class QMSubject : private QMUncopyable {
public:
    enum NotifyMode : unsigned { kNotifyAll = 0, kNotifyRegisteredOnly = 1 };

    QMSubject();

    /// Logs "call RemoveObserver() before delete. [%d]\n" and a stack dump when observers are still attached.
    virtual ~QMSubject();

    /// Registers for all events. Each addition is an entry of its own. A null observer raises an assertion
    /// report; the result is then false.
    bool AddObserver(QMObserver_* observer);

    /// Registers for the given event ids, which are copied in their order.
    bool AddObserver(QMObserver_* observer, const unsigned* eventIds, unsigned count);

    /// Removes the observer's first entry. @return whether there was one. When it returns, no notification of
    /// that entry is running.
    bool RemoveObserver(QMObserver_* observer);

    /// Calls update of the observers in registration order: with mode 1 once for each registered id that
    /// equals eventId; with any other mode every entry once, whatever its ids.
    /// @return the largest value that update returned, 0 if none was called.
    unsigned NotifyObservers(unsigned eventId, const void* data, int size, unsigned mode);

private:
    struct Entry {
        QMObserver_* observer;
        std::vector<unsigned> eventIds;
    };

    QMSync lock;
    std::list<Entry> observers QM_GUARDED_BY(lock);
};
