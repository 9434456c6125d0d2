#include "Foundation/QMLMsgBox.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <exception>
#include <iterator>
#include <new>
#include <optional>
#include <thread>
#include <utility>

#include "Diagnostics/QMAssert.h"
#include "Diagnostics/QMCallStack.h"
#include "Diagnostics/QMLog.h"
#include "Foundation/QMWatchDog.h"
#include "Foundation/private/QMLowAddress.h"

namespace {

constexpr int kCanRun = 0;
constexpr int kCannotRun = -1;
constexpr int kRunEnded = 0;
constexpr int kSignalWritten = 1;
constexpr int kDumpDepth = 10;
constexpr std::uint32_t kMinBufferSize = 1;

// In the order of the array that the loop waits on; a stop comes before a wake.
enum : int { kStopIndex = 0, kWakeIndex = 1 };
constexpr unsigned kAwaitedEvents = 2;

// A wait that fails does so at once and without a descriptor to wait on, so nothing could wake this pause; it
// keeps the loop from spinning and flooding the log.
constexpr std::chrono::milliseconds kFailedWaitPause{100};

/// The pending entry at the front, taken out of its queue.
template <class Entry>
std::optional<Entry> takeFront(std::deque<Entry>& queue) {
    if (queue.empty()) {
        return std::nullopt;
    }
    std::optional<Entry> entry(std::move(queue.front()));
    queue.pop_front();
    return entry;
}

void reportNoMemory(const char* function, int line) {
    errno = ENOMEM;
    qm_LogStdErrorShort(QM_SOURCE_PATH, function, line);
}

/// Runs a handler and hands the text of what it throws to `report`.
template <class Call, class Report>
void runGuarded(Call call, Report report) {
    try {
        call();
    } catch (const std::exception& exception) {
        report(exception.what());
    } catch (...) {
        report("unknown");
    }
}

}  // namespace

QMLMsgBox::QueuedMessage::QueuedMessage(const QMMsgRecord& pushed) : record(pushed) {
    if (pushed.buffer != nullptr) {
        const auto* bytes = static_cast<const std::uint8_t*>(pushed.buffer);
        copy.assign(bytes, bytes + pushed.size);
        record.buffer = copy.data();
    } else {
        // Nobody shall read what is not there.
        record.size = 0;
    }
}

bool QMLMsgBox::PrepareRun() {
    int leftover = QMEvent::kSignalled;
    while (leftover == QMEvent::kSignalled) {
        leftover = QMEvent::WaitEvent(&readyEvent, 0);
    }
    QMEvent::Drain(&stopEvent);
    // Last, so that the signal of a stop that is requested from here on cannot have been drained.
    stopRequested = false;
    return leftover == QMEvent::kTimedOut;
}

int QMLMsgBox::Initialize() {
    if (!readyEvent.isValid() || !stopEvent.isValid() || !wakeEvent.isValid()) {
        QM_LOG_ERROR("handle error\n");
        return kCannotRun;
    }
    return kCanRun;
}

void QMLMsgBox::RequestStop() {
    stopRequested = true;
    // A full event collapses to one signal, which is as good.
    stopEvent.SetEvent();
}

int QMLMsgBox::WaitReady(std::uint32_t timeoutMs) {
    return QMEvent::WaitEvent(&readyEvent, timeoutMs);
}

QMIMsgHandler* QMLMsgBox::handlerOf(std::uint32_t id) const {
    const auto found = handlers.find(id);
    return found == handlers.end() ? nullptr : found->second;
}

QMIMsgHandler* QMLMsgBox::FindHandler(std::uint32_t id) {
    QMSyncGuard guard(handlerLock);
    return handlerOf(id);
}

bool QMLMsgBox::RemoveHandler(std::uint32_t id) {
    QMSyncGuard guard(handlerLock);
    return handlers.erase(id) != 0;
}

bool QMLMsgBox::IsOwnUnit(std::uint32_t id) {
    return FindHandler(id) != nullptr;
}

bool QMLMsgBox::RegisterHandler(std::uint32_t id, QMIMsgHandler* handler) {
    if (handler == nullptr) {
        QM_LOG_ERROR("invalid arg\n");
        return false;
    }
    QMSyncGuard guard(handlerLock);
    try {
        if (handlers.emplace(id, handler).second) {
            return true;
        }
    } catch (const std::bad_alloc&) {
        reportNoMemory("RegisterHandler", __LINE__);
        return false;
    }
    QM_LOG_ERROR("id[%d] is taken\n", static_cast<int>(id));
    return false;
}

int QMLMsgBox::PushMsg(const QMMsgRecord& record) {
    QMSyncGuard guard(queueLock);
    if (record.buffer != nullptr && (record.size < kMinBufferSize || record.size > kMaxBufferSize)) {
        QM_LOG_ERROR("param is NG [0x%08x][%d]\n", qm_LowAddress(record.buffer),
                     static_cast<int>(record.size));
        QMCallStack::dumpDirectly(kDumpDepth);
        return kBadParameter;
    }
    if (messages.size() >= kMaxPending) {
        QM_LOG_ERROR("msg queue is full : worker[%d]\n", static_cast<int>(unitId));
        return kQueueFull;
    }
    try {
        messages.emplace_back(record);
    } catch (const std::bad_alloc&) {
        reportNoMemory("PushMsg", __LINE__);
        return kQueueFull;
    }
    if (wakeEvent.SetEvent() != kSignalWritten) {
        QM_LOG_ERROR("SetEvent failed\n");
        return kWakeFailed;
    }
    return kQueued;
}

int QMLMsgBox::SetEvent(int eventId, unsigned param, bool replace) {
    const auto id = static_cast<std::uint32_t>(eventId);
    QMSyncGuard guard(queueLock);
    if (events.size() >= kMaxPending) {
        QM_LOG_ERROR("event is full : worker[%d]\n", static_cast<int>(unitId));
        return kQueueFull;
    }
    try {
        events.push_back({id, param});
    } catch (const std::bad_alloc&) {
        reportNoMemory("SetEvent", __LINE__);
        return kQueueFull;
    }
    if (replace) {
        removeEarlierEvents(id);
    }
    if (wakeEvent.SetEvent() != kSignalWritten) {
        QM_LOG_ERROR("SetEvent failed\n");
        return kWakeFailed;
    }
    return kQueued;
}

/// Those before the last one, which has come in their place: an event is given up only for one that is queued.
void QMLMsgBox::removeEarlierEvents(std::uint32_t id) {
    const auto last = std::prev(events.end());
    const auto kept =
        std::remove_if(events.begin(), last, [id](const QueuedEvent& event) { return event.id == id; });
    events.erase(kept, last);
}

int QMLMsgBox::Run(std::uint32_t ownUnitId) {
    if (!beginRun(ownUnitId)) {
        return kRunEnded;
    }
    while (!isIdle() || waitForWork()) {
        deliverAll();
        // What is pushed before this signal goes is queued by then, so the next pass sees it.
        QMEvent::Drain(&wakeEvent);
    }
    QMEvent::Drain(&wakeEvent);
    return kRunEnded;
}

bool QMLMsgBox::beginRun(std::uint32_t ownUnitId) {
    QMSyncGuard guard(queueLock);
    messages.clear();
    events.clear();
    unitId = ownUnitId;
    return readyEvent.SetEvent() == kSignalWritten;
}

bool QMLMsgBox::isIdle() {
    QMSyncGuard guard(queueLock);
    return messages.empty() && events.empty();
}

/// @return false when the run is to end.
bool QMLMsgBox::waitForWork() {
    const int signalled = waitForSignal();
    if (signalled == kStopIndex) {
        return !stopRequested;
    }
    if (signalled != kWakeIndex) {
        QM_ASSERT_FAILED();
        if (stopRequested) {
            return false;
        }
        std::this_thread::sleep_for(kFailedWaitPause);
    }
    return true;
}

/// One wait between the hooks of the supervision. @return as QMEvent::MultiWait.
int QMLMsgBox::waitForSignal() {
    QMEvent* awaited[kAwaitedEvents] = {&stopEvent, &wakeEvent};
    try {
        QMWatchDog::getInstance()->EnterWait();
        const int signalled = QMEvent::MultiWait(kAwaitedEvents, awaited, QM_WAIT_INFINITE, false);
        QMWatchDog::getInstance()->LeaveWait();
        return signalled;
    } catch (const std::bad_alloc&) {
        // The supervision is made on its first use.
        reportNoMemory("Run", __LINE__);
        return QMEvent::kError;
    }
}

void QMLMsgBox::deliverAll() {
    do {
        while (deliverMessage()) {
        }
    } while (deliverEvent());
}

bool QMLMsgBox::deliverMessage() {
    std::optional<QueuedMessage> message;
    {
        QMSyncGuard guard(queueLock);
        message = takeFront(messages);
    }
    if (message) {
        callHandler(message->record);
    }
    return message.has_value();
}

bool QMLMsgBox::deliverEvent() {
    std::optional<QueuedEvent> event;
    {
        QMSyncGuard guard(queueLock);
        event = takeFront(events);
    }
    if (event) {
        callHandler(*event);
    }
    return event.has_value();
}

void QMLMsgBox::callHandler(const QMMsgRecord& message) {
    QMSyncGuard guard(handlerLock);
    QMIMsgHandler* const handler = handlerOf(message.sid);
    if (handler == nullptr) {
        return;
    }
    runGuarded([&] { handler->OnMessage(message.msgId, message.buffer, message.size); },
               [&](const char* what) {
                   qm_Log(QM_SOURCE_PATH, "Run", __LINE__, QM_LOG_LEVEL_ERROR,
                          "catch exception. SID[%d] messageId[%d], what [%s]\n",
                          static_cast<int>(message.sid), static_cast<int>(message.msgId), what);
               });
}

void QMLMsgBox::callHandler(const QueuedEvent& event) {
    QMSyncGuard guard(handlerLock);
    QMIMsgHandler* const handler = handlerOf(event.id);
    if (handler == nullptr) {
        return;
    }
    runGuarded([&] { handler->OnEvent(event.id, event.param); },
               [&](const char* what) {
                   qm_Log(QM_SOURCE_PATH, "Run", __LINE__, QM_LOG_LEVEL_ERROR,
                          "catch exception. eventId[%d], what [%s]\n", static_cast<int>(event.id), what);
               });
}
