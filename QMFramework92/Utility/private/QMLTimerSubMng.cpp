#include "Utility/QMLTimerSubMng.h"

#include <chrono>
#include <thread>

#include "Diagnostics/QMAssert.h"
#include "Foundation/QMWatchDog.h"

namespace {

using namespace std::chrono_literals;

// What MultiWait returns for the events in the order in which waitForSignal lists them.
constexpr int kStopSignal = 0;
constexpr int kWakeSignal = 1;

constexpr std::uint32_t kReadyLimitMs = 3000;
constexpr std::uint32_t kStopLimitMs = 3000;
constexpr auto kPauseAfterFailedWait = 100ms;

}  // namespace

int QMThreadTraits<QMLTimerSubMng>::run(QMLTimerSubMng* owner) {
    owner->MainProc();
    return 0;
}

QMLTimerSubMng::QMLTimerSubMng(std::uint32_t configuration, int priority, QMTickSource& source)
    : configurationValue(configuration),
      threadPriority(priority),
      tickSource(source),
      thread(this, kRegistryValue) {}

QMLTimerSubMng::~QMLTimerSubMng() {
    Stop(kStopLimitMs);
}

bool QMLTimerSubMng::Start(const char* name) {
    QMSyncGuard guard(lifeLock);
    stopRequested = false;
    QMEvent::Drain(&readyEvent);
    if (!thread.Start(name)) {
        return false;
    }
    // Before the thread has registered itself a priority would only be noted, and whether it can be had would
    // stay unknown.
    QMEvent::WaitEvent(&readyEvent, kReadyLimitMs);
    return thread.SetPriority(threadPriority);
}

bool QMLTimerSubMng::Stop(std::uint32_t timeoutMs) {
    QMSyncGuard guard(lifeLock);
    stopRequested = true;
    stopEvent.SetEvent();
    return thread.WaitExit(timeoutMs);
}

bool QMLTimerSubMng::Add(QMLTimer* timer, std::uint32_t intervalMs) {
    QMSyncGuard guard(mapLock);
    if (!timers.add(timer, intervalMs, tickSource.GetTickCount())) {
        return false;
    }
    wakeEvent.SetEvent();
    return true;
}

bool QMLTimerSubMng::Remove(const QMLTimer* timer) {
    QMSyncGuard guard(mapLock);
    return timers.remove(timer);
}

bool QMLTimerSubMng::Find(const QMLTimer* timer, QMLTimerEntry* entry) {
    QMLTimerEntry found{};
    QMSyncGuard guard(mapLock);
    return timers.find(timer, entry == nullptr ? found : *entry);
}

void QMLTimerSubMng::ClearAll() {
    QMSyncGuard guard(mapLock);
    timers.clear();
}

std::size_t QMLTimerSubMng::Count() {
    QMSyncGuard guard(mapLock);
    return timers.size();
}

void QMLTimerSubMng::MainProc() {
    std::optional<std::uint32_t> waitMs = nextWait();
    readyEvent.SetEvent();
    for (;;) {
        const int result = waitForSignal(waitMs);
        if (stopRequested) {
            return;
        }
        if (result == kWakeSignal || result == QMEvent::kTimedOut) {
            waitMs = RunTimerPass();
            continue;
        }
        if (result != kStopSignal) {
            QM_ASSERT_FAILED();
            // A wait fails at once, and would do so again and again while the cause lasts.
            std::this_thread::sleep_for(kPauseAfterFailedWait);
        }
        // A leftover stop signal may have taken a wake signal along.
        waitMs = nextWait();
    }
}

int QMLTimerSubMng::waitForSignal(std::optional<std::uint32_t> waitMs) {
    QMEvent* events[] = {&stopEvent, &wakeEvent};
    QMWatchDog::getInstance()->EnterWait();
    const int result = QMEvent::MultiWait(2, events, waitMs.value_or(QM_WAIT_INFINITE), false);
    QMWatchDog::getInstance()->LeaveWait();
    return result;
}

std::optional<std::uint32_t> QMLTimerSubMng::RunTimerPass() {
    QMSyncGuard guard(mapLock);
    timers.firePass(tickSource.GetTickCount());
    // What fired took its time, so the wait counts from a fresh tick.
    return timers.nextWait(tickSource.GetTickCount());
}

std::optional<std::uint32_t> QMLTimerSubMng::nextWait() {
    QMSyncGuard guard(mapLock);
    return timers.nextWait(tickSource.GetTickCount());
}
