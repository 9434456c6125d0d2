#pragma once

#include <cstdint>

#include "Foundation/QMSync.h"
#include "Pattern/QMUncopyable.h"

/// Counting signal on a pipe: each SetEvent adds one pending signal, each successful wait consumes one.
///
/// It owns both ends of the pipe from init to its end and needs no lock: the kernel synchronises what passes
/// through them. Any number of threads may set and wait at once; a signal wakes exactly one waiter. A full
/// pipe collapses to one pending signal at the next SetEvent. No operation throws.
///
///     QMEvent stop, wake;
///     QMEvent* events[] = {&stop, &wake};
///     while (QMEvent::MultiWait(2, events, QM_WAIT_INFINITE, false) == 1) ...  // until stop.SetEvent()
class QMEvent : private QMUncopyable {
public:
    enum WaitResult : int { kSignalled = 0, kTimedOut = -2, kError = -3 };

    /// Calls init(); a failure is only logged, and every wait on the event then reports "handle error\n".
    QMEvent();

    /// Closes both descriptors when both are valid.
    ~QMEvent();

    /// Creates the pipe afresh, both ends close-on-exec and non-blocking. Meanwhile no other thread may use
    /// the event.
    void init();

    /// @return whether init has got a pipe. Not while another thread is in init.
    bool isValid() const { return readDescriptor >= 0; }

    /// @return 1 when the signal was written; 0 otherwise, also when a full pipe was collapsed to one signal.
    int SetEvent();

    /// Waits for one event. @return 0 signalled (one signal consumed), -2 timed out, -3 error (logged).
    static int WaitEvent(QMEvent* event, std::uint32_t timeoutMs);

    /// Waits for the first (waitAll false) or all (waitAll true) of `count` events.
    /// @return the index of the first signalled event (waitAll false) or 0 when each was signalled (true);
    ///         -2 timed out, -3 error (logged; silent for a zero count or a null array).
    static int MultiWait(unsigned count, QMEvent** events, std::uint32_t timeoutMs, bool waitAll);

    /// Consumes all pending signals without waiting. @return always 1.
    static int Drain(QMEvent* event);

    /// The engine behind the waits: as MultiWait, and -1 for a zero count or a null array. A negative timeout
    /// waits without limit. An interrupted wait waits again in full; one whose signal another waiter took
    /// goes on for the rest of its time. With waitAll each further round has the full time. No event may be
    /// listed twice. The first call of the process ignores SIGPIPE, as qm_IgnoreSigPipe does.
    static int timedMultiWait(unsigned count, QMEvent** events, bool waitAll, int timeoutMs);

private:
    void closeBoth();

    // Fixed after init; the kernel synchronises what passes through them.
    int readDescriptor = -1;
    int writeDescriptor = -1;
};

/// Ignores SIGPIPE for the whole process, once, so that a write to a vanished peer fails instead of killing
/// the process. Any thread may call it.
void qm_IgnoreSigPipe();
