#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <stdexcept>
#include <thread>

#include "Diagnostics/QMAssert.h"
#include "Diagnostics/QMLog.h"
#include "Foundation/QMEvent.h"
#include "Foundation/QMLMsgBox.h"
#include "Foundation/QMSync.h"
#include "Foundation/QMThread.h"
#include "Foundation/QMUnitFrame.h"
#include "Foundation/QMWorker.h"
#include "Pattern/QMFunctor.h"
#include "Pattern/QMSerializable.h"
#include "Pattern/QMSingleton.h"
#include "Pattern/QMSubject.h"
#include "Tests/Torture/ScenarioTools.h"
#include "Tests/Torture/Scenarios.h"
#include "Utility/QMLTimerMng.h"
#include "Utility/QMLTimerSubMng.h"
#include "Utility/QMString.h"
#include "inc/QMFramework.h"

namespace wpp_torture {

namespace {

constexpr std::uint32_t kUnit = 7;
constexpr std::uint32_t kSid = 70;
constexpr std::uint32_t kEvent = 71;

/// Counts what reaches it.
class CountingHandler : public QMIMsgHandler {
public:
    void OnMessage(std::uint32_t, const void*, std::uint32_t) override { ++messages; }
    void OnEvent(std::uint32_t, std::uint32_t) override { ++events; }

    std::atomic<int> messages{0};
    std::atomic<int> events{0};
};

QMMsgRecord hello() {
    return {kSid, 1, 0, "hello", 5, 0};
}

void logLines(Trial& trial) {
    trial.begin();
    QM_LOG_INFO("a line with a number %d and a text %s\n", 5, "text");
    qm_LogPlain(QM_SOURCE_PATH, __func__, __LINE__, "plain %f\n", 1.5);
    qm_LogWide(QM_SOURCE_PATH, __func__, __LINE__, QM_LOG_LEVEL_INFO, L"wide %d\n", 7);
    qm_PrintConsole("console %s\n", "text");
    trial.end();
}

void errorLines(Trial& trial) {
    trial.begin();
    QM_LOG_ERROR("an error %d\n", 5);
    QM_LOG_SYS("a notice\n");
    QM_LOG_STD_ERROR(", call()\n");
    QM_LOG_STD_ERROR_SHORT();
    QM_ASSERT_FAILED();
    trial.end();
}

void messageBoxQueues(Trial& trial) {
    QMLMsgBox box;
    trial.begin();
    trial.told(box.PushMsg(hello()) == QMIMsgBox::kQueued);
    trial.told(box.PushMsg({kSid, 2, 0, nullptr, 0, 0}) == QMIMsgBox::kQueued);
    trial.told(box.SetEvent(kEvent, 1, false) == QMIMsgBox::kQueued);
    trial.told(box.SetEvent(kEvent, 2, true) == QMIMsgBox::kQueued);
    trial.end();
    trial.require(box.PushMsg(hello()) == QMIMsgBox::kQueued, "the box takes no message afterwards");
    trial.require(box.SetEvent(kEvent, 1, false) == QMIMsgBox::kQueued, "the box takes no event afterwards");
}

void messageBoxHandlers(Trial& trial) {
    QMLMsgBox box;
    CountingHandler handler;
    trial.begin();
    const bool first = box.RegisterHandler(kSid, &handler);
    const bool second = box.RegisterHandler(kEvent, &handler);
    trial.told(first);
    trial.told(second);
    trial.require((box.FindHandler(kSid) == &handler) == first, "a handler is not where the status says");
    trial.require(box.RemoveHandler(kEvent) == second, "a handler cannot be removed as the status says");
    trial.end();
    box.RemoveHandler(kSid);
    trial.require(box.RegisterHandler(kSid, &handler), "no handler can be registered afterwards");
}

/// Pushes a message and an event and waits for them. @return whether both came.
bool isServed(QMWorker& worker, CountingHandler& handler) {
    const int messages = handler.messages;
    const int events = handler.events;
    return worker.GetMsgBox().PushMsg(hello()) == QMIMsgBox::kQueued &&
           worker.GetMsgBox().SetEvent(kEvent, 1, false) == QMIMsgBox::kQueued &&
           comes([&] { return handler.messages > messages && handler.events > events; });
}

void worker(Trial& trial) {
    QMWorker worker(kUnit);
    CountingHandler handler;
    worker.GetMsgBox().RegisterHandler(kSid, &handler);
    worker.GetMsgBox().RegisterHandler(kEvent, &handler);
    trial.begin();
    const bool started = worker.Start("Tortured");
    trial.told(started);
    if (started) {
        trial.expect(isServed(worker, handler), "the worker does not deliver");
    }
    trial.told(worker.Stop(kPatienceMs));
    trial.end();
    trial.require(worker.Start("Again"), "the worker does not start afterwards");
    trial.require(isServed(worker, handler), "the worker does not deliver afterwards");
    trial.require(worker.Stop(kPatienceMs), "the worker does not stop afterwards");
}

void unitFrame(Trial& trial) {
    QMLMsgBox box;
    CountingHandler handler;
    QMUnitFrame unit(kUnit);
    trial.begin();
    trial.told(unit.Register(&box, kSid, &handler));
    trial.told(unit.SendMsgSelf(1, 0, "hello", 5) == en_ERROR_NONE);
    trial.told(unit.SendEvtSelf(kEvent, 1) == en_ERROR_NONE);
    trial.end();
    trial.require(unit.SendMsgSelf(1, 0, "hello", 5) == en_ERROR_NONE, "the unit sends nothing afterwards");
    unit.Unregister();
}

/// Runs a procedure on a QMThread.
class ThreadOwner {
public:
    void MainProc() {
        ++runs;
        if (throwing) {
            throw std::runtime_error("a text that needs memory of its own, since it is long");
        }
    }

    std::atomic<int> runs{0};
    bool throwing = false;
};

void takeThread(Trial& trial, bool throwing) {
    ThreadOwner owner;
    owner.throwing = throwing;
    QMThread<ThreadOwner> thread(&owner);
    trial.begin();
    trial.told(thread.SetPriority(251));
    const bool started = thread.Start("Tortured");
    trial.told(started);
    trial.told(thread.WaitExit(kPatienceMs));
    trial.expect(owner.runs == (started ? 1 : 0), "the thread has not run");
    trial.end();
    owner.throwing = false;
    const int runs = owner.runs;
    trial.require(thread.Start("Again"), "the thread does not start afterwards");
    trial.require(thread.WaitExit(kPatienceMs), "the thread cannot be joined afterwards");
    trial.require(owner.runs == runs + 1, "the thread does not run afterwards");
}

void thread(Trial& trial) {
    takeThread(trial, false);
}

void threadThatThrows(Trial& trial) {
    takeThread(trial, true);
}

void events(Trial& trial) {
    QMEvent first;
    QMEvent second;
    QMEvent* both[] = {&first, &second};
    trial.begin();
    trial.told(first.SetEvent() == 1);
    trial.told(QMEvent::WaitEvent(&first, 0) == QMEvent::kSignalled);
    trial.told(second.SetEvent() == 1);
    trial.told(QMEvent::MultiWait(2, both, 0, false) == 1);
    trial.told(first.SetEvent() == 1 && second.SetEvent() == 1);
    trial.told(QMEvent::MultiWait(2, both, 0, true) == 0);
    QMEvent::Drain(&first);
    trial.end();
    QMEvent::Drain(&first);
    QMEvent::Drain(&second);
    trial.require(first.SetEvent() == 1, "the event cannot be set afterwards");
    trial.require(QMEvent::MultiWait(2, both, 0, false) == 0, "the event cannot be waited for afterwards");
}

/// A wait without memory takes no signal that it then cannot report.
void eventKeepsItsSignal(Trial& trial) {
    QMEvent event;
    event.SetEvent();
    trial.begin();
    const bool taken = QMEvent::WaitEvent(&event, 0) == QMEvent::kSignalled;
    trial.told(taken);
    trial.end();
    trial.require(taken || QMEvent::WaitEvent(&event, 0) == QMEvent::kSignalled, "the signal got lost");
}

void syncs(Trial& trial) {
    char name[32];
    std::snprintf(name, sizeof(name), "torture-%d", static_cast<int>(getpid()));
    trial.begin();
    {
        QMSync unnamed;
        QMSync named(name, QMSync::kNamed);
        for (QMSync* lock : {&unnamed, &named}) {
            const bool locked = lock->Lock(kPatienceMs) == QMSync::kLocked;
            trial.told(locked);
            trial.expect(lock->Lock(kPatienceMs) == QMSync::kLocked, "the lock is not recursive");
            lock->Unlock();
            lock->Unlock();
        }
    }
    trial.end();
    QMSync again(name, QMSync::kNamed);
    trial.require(again.Lock(kPatienceMs) == QMSync::kLocked, "the named lock was left held");
    again.Unlock();
    unlinkSemaphore(name);
}

class CountingTimer : public QMLTimer {
public:
    void Fire(const QMLTimerEntry&) override { ++fired; }

    std::atomic<int> fired{0};
};

void timers(Trial& trial) {
    CountingTimer timer;
    QMLTimerSubMng timers(30, 251);
    trial.begin();
    const bool started = timers.Start();
    const bool added = timers.Add(&timer, 1);
    trial.told(started);
    trial.told(added);
    if (started && added) {
        trial.expect(comes([&] { return timer.fired > 0; }), "the timer does not fire");
    }
    trial.require(timers.Remove(&timer) == added, "a timer cannot be removed as the status says");
    trial.told(timers.Stop(kPatienceMs));
    trial.end();
    const int fired = timer.fired;
    trial.require(timers.Start() && timers.Add(&timer, 1), "no timer can be added afterwards");
    trial.require(comes([&] { return timer.fired > fired; }), "no timer fires afterwards");
    timers.ClearAll();
    trial.require(timers.Stop(kPatienceMs), "the timers do not stop afterwards");
}

void timerManager(Trial& trial) {
    CountingTimer timer;
    trial.begin();
    const int row = QMLTimerMng::getInstance()->AddTimer(&timer, 1000);
    trial.told(row != QMLTimerMng::kNoRow);
    trial.end();
    QMLTimerMng* const manager = QMLTimerMng::getInstance();
    const int again = row == QMLTimerMng::kNoRow ? manager->AddTimer(&timer, 1000) : row;
    trial.require(again != QMLTimerMng::kNoRow, "the manager takes no timer afterwards");
    QMLTimerSubMng* const timers = manager->GetSubMng(again);
    trial.require(timers != nullptr && timers->Remove(&timer), "the timer is not in its row");
    QMLTimerMng::StopThreads();
    qm_DestroySingletons();
}

void strings(Trial& trial) {
    constexpr const char* kLong = "a text that is too long to lie within the string itself";
    QMString text("kept, and long enough to need memory of its own", QM_CODE_PAGE_UTF8);
    const std::string before = text.ToCHAR(QM_CODE_PAGE_UTF8);
    trial.begin();
    {
        QMString copy(text);
        QMString wide(L"a wide text that is too long to lie within the string itself");
        const bool appended = text.Append(QMString(kLong, QM_CODE_PAGE_UTF8));
        trial.told(appended);
        trial.told(text.AppendToHead(copy));
        const QMString part = text.SubStr(2, 40);
        const QMString sum = copy + kLong;
        trial.told(part.Length() == 40);
        trial.told(sum.Length() == copy.Length() + std::strlen(kLong));
        trial.told(wide.ToWCHAR() != nullptr);
    }
    trial.end();
    trial.require(text.Length() >= before.size(), "a failed change has taken something away");
    trial.require(text.Append(QMString("!", QM_CODE_PAGE_UTF8)), "the string takes nothing afterwards");
}

void archive(Trial& trial) {
    QMSerialization::Archive archive;
    trial.begin();
    archive.clear();
    archive.write(std::int32_t{5});
    archive.write(std::string("a text that is too long to lie within the string itself"));
    archive.write("bytes", 5);
    std::string text;
    std::int32_t number = 0;
    archive.read(number);
    archive.read(text);
    trial.end();
    trial.require(number == 5, "a number got lost");
    archive.clear();
    archive.write(std::int32_t{6});
    archive.read(number);
    trial.require(number == 6, "the archive holds nothing afterwards");
}

class CallCounter {
public:
    void take(bool) { ++calls; }
    unsigned takeEvent(unsigned, const void*, int) { return ++calls; }

    unsigned calls = 0;
};

void functors(Trial& trial) {
    CallCounter counter;
    using Functor =
        MemFunHandler<QMFunctor<void, Typelist<bool, NullType>>, CallCounter*, void (CallCounter::*)(bool)>;
    const Functor functor(&counter, &CallCounter::take);
    trial.begin();
    const std::unique_ptr<Functor> clone(functor.Clone());
    trial.end();
    (*clone)(true);
    trial.require(counter.calls == 1, "the clone calls nobody");
}

void subject(Trial& trial) {
    CallCounter counter;
    QMSubject subject;
    QMObserver<CallCounter> observer(&counter, &CallCounter::takeEvent);
    const unsigned ids[] = {kEvent};
    bool all = false;
    try {
        trial.begin();
        subject.AddObserver(&observer);
        subject.AddObserver(&observer, ids, 1);
        all = true;
    } catch (const std::bad_alloc&) {
        trial.told(false);
    }
    trial.end();
    subject.NotifyObservers(kEvent, nullptr, 0, QMSubject::kNotifyAll);
    trial.require(all ? counter.calls == 2 : counter.calls < 2,
                  "an addition that failed has changed something");
    while (subject.RemoveObserver(&observer)) {
    }
    trial.require(subject.AddObserver(&observer), "no observer can be added afterwards");
    subject.RemoveObserver(&observer);
}

class TorturedSingleton : public QMSingleton<TorturedSingleton> {
public:
    int value = 5;

private:
    friend class QMSingleton<TorturedSingleton>;
    TorturedSingleton() = default;
    ~TorturedSingleton() = default;
};

void singleton(Trial& trial) {
    struct Ending {
        ~Ending() { qm_DestroySingletons(); }
    } ending;
    trial.begin();
    TorturedSingleton::getInstance();
    trial.end();
    trial.require(TorturedSingleton::getInstance()->value == 5, "there is no singleton afterwards");
}

void frameworkLife(Trial& trial) {
    trial.begin();
    trial.told(qm_FwInitialize("TorturedProcessWithALongName", -1) != 0);
    QM_LOG_INFO("alive\n");
    qm_FwTerminate();
    trial.end();
    trial.require(qm_FwInitialize("Again", -1) != 0, "the framework does not start afterwards");
    trial.require(std::strcmp(qm_GetProcessName(), "Again") == 0, "the framework keeps an earlier name");
    qm_FwTerminate();
}

void memoryReport(Trial& trial) {
    trial.begin();
    trial.told(qm_FwInitialize("Tortured", -1) != 0);
    qm_SetMemoryAccounting(1);
    qm_FwTerminate();
    trial.end();
    qm_SetMemoryAccounting(0);
}

}  // namespace

const std::vector<Scenario>& frameworkScenarios() {
    constexpr bool kMayThrow = true;
    constexpr bool kLogsErrors = true;
    static const std::vector<Scenario> scenarios = [&] {
        std::vector<Scenario> all{
            {"log-lines", logLines},
            {"error-lines", errorLines, false, kLogsErrors},
            {"message-box-queues", messageBoxQueues},
            {"message-box-handlers", messageBoxHandlers},
            {"worker", worker},
            {"unit-frame", unitFrame},
            {"thread", thread},
            {"thread-that-throws", threadThatThrows, false, kLogsErrors},
            {"events", events},
            {"event-keeps-its-signal", eventKeepsItsSignal},
            {"syncs", syncs},
            {"timers", timers},
            {"timer-manager", timerManager, kMayThrow},
            {"strings", strings},
            {"archive", archive, kMayThrow},
            {"functors", functors, kMayThrow},
            {"subject", subject},
            {"singleton", singleton, kMayThrow},
            {"framework-life", frameworkLife},
            {"memory-report", memoryReport},
        };
        const std::vector<Scenario> more = inputOutputScenarios();
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }();
    return scenarios;
}

}  // namespace wpp_torture
