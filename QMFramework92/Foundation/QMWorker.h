#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>
#include <memory>

#include "Foundation/QMLMsgBox.h"
#include "Foundation/QMSync.h"
#include "Foundation/QMThread.h"
#include "Pattern/QMUncopyable.h"
#include "inc/QMThreadSafety.h"

/// A message box and the thread that runs it.
///
/// Not running -> (Start) running -> (Stop) not running, as often as wanted. The box exists as long as the
/// worker; what is pushed while the worker does not run is discarded when it starts. A stop requested at the
/// box itself ends the loop, and Stop then takes the thread away.
///
/// A unit that keeps sending to itself keeps Stop waiting (see QMLMsgBox).
///
/// Start and Stop may come from any thread and take turns under the state lock, Stop for as long as the
/// thread needs to end. From the worker's own thread Start is refused, and Stop only requests the stop. Two
/// workers must not stop each other from their handlers at once: each would wait for the other.
///
///     QMWorker worker(kUnitId, kRegistryValue);
///     worker.GetMsgBox().RegisterHandler(kMySid, &handler);
///     worker.Start("Worker");
class QMWorker : private QMUncopyable {
public:
    /// `ownUnitId` shows in the box's queue-full texts; `registryRecordValue` goes into the thread registry's
    /// record as it is.
    explicit QMWorker(std::uint32_t ownUnitId, std::uint32_t registryRecordValue = 0)
        : unitId(ownUnitId), registryValue(registryRecordValue) {}

    /// Stops the worker, however long that takes. Not on its own thread.
    ~QMWorker();

    /// Starts the thread under `name` (as QMThread::Start) and waits up to 3000 ms until its loop is ready.
    /// @return false, with the worker not running and no thread left, when the thread cannot be created or
    ///         does not get ready in time; false, with nothing changed, when it runs ("error [%s]\n").
    bool Start(const char* name);

    /// Requests the stop and joins the thread, however long that takes; longer than timeoutMs is reported in
    /// the log. What is pending while a handler runs is delivered first; what is still queued at the end is
    /// discarded by the next start.
    /// @return true when the worker does not run any more, or did not; false when joining failed (logged),
    ///         and from the worker's own thread, whose owner still has to stop it.
    bool Stop(unsigned timeoutMs);

    QMLMsgBox& GetMsgBox() { return box; }

private:
    friend struct QMThreadTraits<QMWorker>;

    int runBox();
    bool isReady();
    bool isOwnThread() const;
    bool createThread() QM_REQUIRES(stateLock);
    bool endThread(unsigned timeoutMs) QM_REQUIRES(stateLock);

    // Fixed after construction.
    const std::uint32_t unitId;
    const std::uint32_t registryValue;

    // Synchronised by themselves.
    QMLMsgBox box;
    std::atomic<pthread_t> boxThread{};  // 0 while nobody runs the box

    QMSync stateLock;
    std::unique_ptr<QMThread<QMWorker>> thread QM_GUARDED_BY(stateLock);
};

/// The thread of a worker runs the worker's box and is started once the box is ready.
template <>
struct QMThreadTraits<QMWorker> {
    static bool canStart(const QMWorker* worker) { return worker != nullptr; }
    static int run(QMWorker* worker) { return worker->runBox(); }
    static bool afterStart(QMWorker* worker) { return worker->isReady(); }
};
