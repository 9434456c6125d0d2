#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <vector>

#include "Foundation/QMEvent.h"
#include "Foundation/QMIMsgBox.h"
#include "Foundation/QMSync.h"
#include "inc/QMThreadSafety.h"

/// The message box of one thread: any thread pushes, the thread in Run hands each entry to its handler.
///
/// Life of a run: PrepareRun (before the thread exists) -> Initialize -> Run -> ready -> RequestStop -> Run
/// returns, and so on as often as wanted; QMWorker takes a box through it. What was queued before a run is
/// ready is discarded when the run begins, so nothing is left over from an earlier one.
///
/// Order: messages oldest first, then events oldest first, and before each event all messages that have come
/// meanwhile; so a message overtakes every event that still waits. The handler of a message is the one
/// registered for its SID, the handler of an event the one registered for its event id; an entry without a
/// handler is dropped silently. A handler that throws is logged at level error as
/// "catch exception. SID[%d] messageId[%d], what [%s]\n" or "catch exception. eventId[%d], what [%s]\n"
/// ("unknown" for what is no standard exception), and the loop goes on.
///
/// Limits: 256 pending messages, 256 pending events, 256 bytes per buffer. Without a handler that runs for
/// long they do not fill; with one, a push is refused and never waits.
///
/// A stop is looked at only when both queues are empty, so what is pending while a handler runs is delivered
/// before it, and a unit that sends itself something from each of its calls keeps a stop waiting for as long
/// as it does so. At a loop that waits, the stop goes first: what is pushed at that moment stays queued.
///
/// A wait that fails (no descriptor is left, say) prints the assertion banner and takes 100 ms; the queues
/// and a requested stop are looked at all the same.
///
/// Locks: the queue lock guards the queues and is never held while a handler runs; the handler lock is held
/// during the look-up and the call of a handler. They are never held together. The handler lock is
/// recursive, so a handler may register and remove; every other thread's RegisterHandler, FindHandler,
/// RemoveHandler and IsOwnUnit wait for a running call, so no caller may hold a lock that a handler takes.
///
///     QMLMsgBox& box = worker.GetMsgBox();
///     box.RegisterHandler(kMySid, &handler);
///     box.PushMsg({kMySid, kMsgHello, 0, "hello", 5, 0});
class QMLMsgBox : public QMIMsgBox {
public:
    static constexpr std::size_t kMaxPending = 256;       ///< of messages, and again of events
    static constexpr std::uint32_t kMaxBufferSize = 256;  ///< bytes

    QMLMsgBox() = default;

    /// No thread may be in any operation. Handlers are not touched; what is still queued is freed.
    ~QMLMsgBox() override = default;

    /// Makes the box forget the stop and the ready signal of an earlier run. Called while nobody runs it,
    /// before the thread that will is created; every stop requested from then on counts for the new run.
    /// @return false, logged by the wait, when the ready event cannot be waited for.
    bool PrepareRun();

    /// @return 0; non-zero, logged as "handle error\n", when an event of the box got no pipe at its making.
    ///         Such a box cannot be run; a new one is needed.
    int Initialize() override;

    /// Sets the stop event. Any thread may call it, also a handler; more than once does no harm.
    void RequestStop() override;

    int WaitReady(std::uint32_t timeoutMs) override;

    /// The pointer is borrowed and good until the handler's owner removes it.
    QMIMsgHandler* FindHandler(std::uint32_t id) override;

    /// Waits for a running handler call, whichever handler runs, so that afterwards the handler may be
    /// destroyed; from inside a call it does not wait.
    bool RemoveHandler(std::uint32_t id) override;

    /// @return whether a handler is registered here for `id`.
    bool IsOwnUnit(std::uint32_t id) override;

    /// Any thread may call it. At level error it logs
    /// - "param is NG [0x%08x][%d]\n" with address and size of a buffer that is not of 1 to 256 bytes, followed
    ///   by 10 frames of the stack (2),
    /// - "msg queue is full : worker[%d]\n" with the unit id of the latest run (3),
    /// - the failed allocation as "std library error [12 : ...]\n" (3),
    /// - "SetEvent failed\n" when the wake event was full and collapsed to one signal, or could not be set (1).
    ///   The message is queued, and a collapsed event still wakes the loop.
    int PushMsg(const QMMsgRecord& record) override;

    /// As PushMsg, with "event is full : worker[%d]\n" for 256 pending events, which is looked at before
    /// `replace` removes any. The new event stands behind all others also when it replaces.
    int SetEvent(int eventId, unsigned param, bool replace) override;

    /// Begins by discarding what is queued. When the ready event cannot be set it returns at once. One
    /// thread at a time.
    int Run(std::uint32_t ownUnitId) override;

    /// Registers a handler, borrowed until RemoveHandler; the same one may stand under several ids.
    /// @return false when it is null ("invalid arg\n"), `id` is taken ("id[%d] is taken\n") or there is no
    ///         memory ("std library error [12 : ...]\n"), each at level error.
    bool RegisterHandler(std::uint32_t id, QMIMsgHandler* handler);

private:
    /// A message with its own copy of the bytes, which `record` points to.
    struct QueuedMessage {
        explicit QueuedMessage(const QMMsgRecord& pushed);

        QMMsgRecord record;
        std::vector<std::uint8_t> copy;
    };

    struct QueuedEvent {
        std::uint32_t id;
        std::uint32_t param;
    };

    void removeEarlierEvents(std::uint32_t id) QM_REQUIRES(queueLock);
    QMIMsgHandler* handlerOf(std::uint32_t id) const QM_REQUIRES(handlerLock);

    // Steps of the loop.
    bool beginRun(std::uint32_t ownUnitId);
    bool isIdle();
    bool waitForWork();
    int waitForSignal();
    void deliverAll();
    bool deliverMessage();
    bool deliverEvent();
    void callHandler(const QMMsgRecord& message);
    void callHandler(const QueuedEvent& event);

    // Synchronised by themselves.
    QMEvent readyEvent;
    QMEvent stopEvent;
    QMEvent wakeEvent;
    // Tells a requested stop from a leftover signal, and is seen also when no event can be waited for.
    std::atomic<bool> stopRequested{false};

    QMSync handlerLock;
    std::map<std::uint32_t, QMIMsgHandler*> handlers QM_GUARDED_BY(handlerLock);

    QMSync queueLock;
    std::deque<QueuedMessage> messages QM_GUARDED_BY(queueLock);
    std::deque<QueuedEvent> events QM_GUARDED_BY(queueLock);
    std::uint32_t unitId QM_GUARDED_BY(queueLock) = 0;
};
