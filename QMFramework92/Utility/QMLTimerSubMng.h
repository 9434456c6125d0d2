#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "Foundation/QMEvent.h"
#include "Foundation/QMSync.h"
#include "Foundation/QMThread.h"
#include "Pattern/QMUncopyable.h"
#include "Utility/QMLTimer.h"
#include "Utility/QMLTimerQueue.h"
#include "Utility/QMTickCount.h"
#include "Utility/QMTickSource.h"
#include "inc/QMThreadSafety.h"

class QMLTimerSubMng;

/// The timer thread starts only for an owner that is set, and runs that owner's loop.
template <>
struct QMThreadTraits<QMLTimerSubMng> {
    static bool canStart(const QMLTimerSubMng* owner) { return owner != nullptr; }
    static int run(QMLTimerSubMng* owner);
    static bool afterStart(QMLTimerSubMng* /*owner*/) { return true; }
};

/// Fires timers on a thread of its own and of its own priority.
///
///     QMLTimerSubMng timers(30, 200);
///     timers.Start();
///     timers.Add(&blink, 500);  // blink.Fire runs every 500 ms until timers.Remove(&blink)
///
/// Life: stopped -> running (Start) -> stopped (Stop, also by the destructor), and so on. Timers may be added,
/// and stay, while it is stopped; what fell due meanwhile fires once after the next Start. How timers repeat
/// is told in QMLTimerQueue. Timers are borrowed: each must live until Remove or ClearAll has returned, after
/// which it is not running and will not run.
///
/// Any thread may call every operation. Fire runs on the timer thread with the map lock held, so Add, Remove
/// and the others wait for a pass that is under way. A timer must not change the timers of its own sub-manager
/// while it fires (it would get away with it, since the lock is recursive), and must not call Start or Stop.
/// Lock order: the life lock before the thread's own locks; the map lock is taken alone.
class QMLTimerSubMng : private QMUncopyable {
public:
    static constexpr const char* kDefaultName = "QMLTimerSubMng";
    static constexpr std::uint32_t kRegistryValue = 4000;

    /// @param configuration kept and not interpreted.
    /// @param priority of the thread, on the framework's scale.
    /// @param source of the time; borrowed, must outlive the sub-manager's running thread.
    QMLTimerSubMng(std::uint32_t configuration, int priority,
                   QMTickSource& source = *QMTickCount::getInstance());
    ~QMLTimerSubMng();

    /// Starts the thread under the name and gives it its priority. @return whether both succeeded; each
    /// failure is logged. Where only the priority could not be set (it may take rights that the process does
    /// not have) the thread runs, with the priority of the thread that called, and its timers fire.
    bool Start(const char* name = kDefaultName);

    /// Ends the thread and waits for its end, however long that takes; longer than timeoutMs is reported in
    /// the log. @return true when the thread was joined or not running, false when joining failed (logged).
    bool Stop(std::uint32_t timeoutMs);

    /// The first time comes intervalMs from now; 0 is served as 1. @return whether the timer was inserted:
    /// false when it is null or present already, or when there is no memory.
    bool Add(QMLTimer* timer, std::uint32_t intervalMs);

    /// @return whether the timer was present.
    bool Remove(const QMLTimer* timer);

    /// @return whether the timer is present; `entry` is filled when it is, and may be left out.
    bool Find(const QMLTimer* timer, QMLTimerEntry* entry = nullptr);

    void ClearAll();

    /// The number of timers.
    std::size_t Count();

    /// Fires what is due now; the thread calls it after each wait. @return the milliseconds until the next
    /// timer is due (0 when one is due already), nothing when there is no timer.
    std::optional<std::uint32_t> RunTimerPass();

    std::uint32_t GetConfiguration() const { return configurationValue; }
    int GetThreadPriority() const { return threadPriority; }

private:
    friend struct QMThreadTraits<QMLTimerSubMng>;

    // Steps of the thread.
    void MainProc();
    std::optional<std::uint32_t> nextWait();
    int waitForSignal(std::optional<std::uint32_t> waitMs);

    // Fixed after construction.
    const std::uint32_t configurationValue;
    const int threadPriority;
    QMTickSource& tickSource;

    // Synchronised by themselves. The flag alone says whether to stop, the event only ends the wait: so a
    // signal left over from an earlier Stop ends nothing.
    std::atomic<bool> stopRequested{false};
    QMEvent stopEvent;
    QMEvent wakeEvent;
    QMEvent readyEvent;

    QMSync mapLock;
    QMLTimerQueue timers QM_GUARDED_BY(mapLock);

    // Held through the whole of Start and Stop, so that neither meets the other half-way.
    QMSync lifeLock;
    QMThread<QMLTimerSubMng> thread QM_GUARDED_BY(lifeLock);
};
