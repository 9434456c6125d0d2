#include "Foundation/QMEvent.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <future>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Support/Deadline.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"

namespace {

using std::chrono::milliseconds;
using wpp_test::kGenerousLimit;
using wpp_test::LogCapture;
using wpp_test::openDescriptors;
using wpp_test::Stopwatch;
using wpp_test::waitUntil;

/// An event whose pipe the test can break from the outside.
class OpenedEvent {
public:
    OpenedEvent() {
        const std::set<int> before = openDescriptors();
        event = std::make_unique<QMEvent>();
        for (const int descriptor : openDescriptors()) {
            if (before.count(descriptor) == 0) {
                const bool readable = (fcntl(descriptor, F_GETFL) & O_ACCMODE) == O_RDONLY;
                (readable ? readEnd : writeEnd) = descriptor;
            }
        }
    }

    /// epoll refuses a regular file.
    void replaceReadEndByAFile() const {
        const int file = memfd_create("not watchable", MFD_CLOEXEC);
        dup3(file, readEnd, O_CLOEXEC);
        close(file);
    }

    std::unique_ptr<QMEvent> event;
    int readEnd = -1;
    int writeEnd = -1;
};

TEST(QMEvent, ThreeSignalsServeThreeWaits) {
    QMEvent event;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(event.SetEvent(), 1);
    }
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(QMEvent::WaitEvent(&event, 0), 0);
    }
    EXPECT_EQ(QMEvent::WaitEvent(&event, 0), -2);
}

TEST(QMEvent, WaitTimesOutAfterItsLimitSilently) {
    QMEvent event;
    LogCapture log;
    const Stopwatch stopwatch;
    EXPECT_EQ(QMEvent::WaitEvent(&event, 200), -2);
    EXPECT_GE(stopwatch.elapsed(), milliseconds(199));
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
    EXPECT_EQ(log.text(), "");
}

TEST(QMEvent, UnlimitedWaitEndsWithASignalOfAnotherThread) {
    QMEvent event;
    auto waiter =
        std::async(std::launch::async, [&] { return QMEvent::WaitEvent(&event, QM_WAIT_INFINITE); });
    EXPECT_EQ(event.SetEvent(), 1);
    EXPECT_EQ(waiter.get(), 0);
}

TEST(QMEvent, LimitAboveTheLargestIntWaitsWithoutLimit) {
    QMEvent event;
    auto waiter = std::async(std::launch::async, [&] { return QMEvent::WaitEvent(&event, 0x80000000U); });
    EXPECT_EQ(waiter.wait_for(milliseconds(50)), std::future_status::timeout);
    event.SetEvent();
    EXPECT_EQ(waiter.get(), 0);
}

TEST(QMEvent, MultiWaitReturnsTheIndexOfTheOneThatIsSet) {
    QMEvent first;
    QMEvent second;
    QMEvent* events[] = {&first, &second};
    second.SetEvent();
    EXPECT_EQ(QMEvent::MultiWait(2, events, 0, false), 1);
}

TEST(QMEvent, MultiWaitReturnsTheLowestIndexAndConsumesOneSignalOfEach) {
    QMEvent first;
    QMEvent second;
    QMEvent* events[] = {&first, &second};
    second.SetEvent();
    second.SetEvent();
    first.SetEvent();
    EXPECT_EQ(QMEvent::MultiWait(2, events, 0, false), 0);
    EXPECT_EQ(QMEvent::WaitEvent(&first, 0), -2);
    EXPECT_EQ(QMEvent::WaitEvent(&second, 0), 0);
    EXPECT_EQ(QMEvent::WaitEvent(&second, 0), -2);
}

TEST(QMEvent, MultiWaitTimesOutWhenNoneIsSet) {
    QMEvent first;
    QMEvent second;
    QMEvent* events[] = {&first, &second};
    EXPECT_EQ(QMEvent::MultiWait(2, events, 0, false), -2);
}

TEST(QMEvent, WaitForAllReturnsOnlyWhenEachWasSet) {
    QMEvent first;
    QMEvent second;
    QMEvent* events[] = {&first, &second};
    first.SetEvent();
    auto waiter =
        std::async(std::launch::async, [&] { return QMEvent::MultiWait(2, events, QM_WAIT_INFINITE, true); });
    EXPECT_EQ(waiter.wait_for(milliseconds(50)), std::future_status::timeout);
    second.SetEvent();
    EXPECT_EQ(waiter.get(), 0);
}

TEST(QMEvent, WaitForAllCountsASecondSignalOfOneEventOnce) {
    QMEvent first;
    QMEvent second;
    QMEvent* events[] = {&first, &second};
    first.SetEvent();
    first.SetEvent();
    EXPECT_EQ(QMEvent::MultiWait(2, events, 50, true), -2);
    EXPECT_EQ(QMEvent::WaitEvent(&first, 0), 0);
    EXPECT_EQ(QMEvent::WaitEvent(&first, 0), -2);
}

TEST(QMEvent, WaitForAllGivesEachRoundTheFullTime) {
    QMEvent first;
    QMEvent second;
    QMEvent* events[] = {&first, &second};
    first.SetEvent();
    const Stopwatch stopwatch;
    EXPECT_EQ(QMEvent::MultiWait(2, events, 200, true), -2);
    EXPECT_GE(stopwatch.elapsed(), milliseconds(199));
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
}

TEST(QMEvent, WaitForAllOfSetEventsReturnsAtOnce) {
    QMEvent first;
    QMEvent second;
    QMEvent* events[] = {&first, &second};
    first.SetEvent();
    second.SetEvent();
    EXPECT_EQ(QMEvent::MultiWait(2, events, 0, true), 0);
}

TEST(QMEvent, FullPipeCollapsesToOnePendingSignal) {
    QMEvent event;
    LogCapture log;
    std::size_t written = 0;
    while (event.SetEvent() == 1) {
        ++written;
    }
    EXPECT_GT(written, 1U);
    EXPECT_EQ(QMEvent::WaitEvent(&event, 0), 0);
    EXPECT_EQ(QMEvent::WaitEvent(&event, 0), -2);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] SetEvent()@QMEvent("), 1U);
    EXPECT_EQ(log.count(" : std library error [11 : Resource temporarily unavailable]"), 1U);
}

TEST(QMEvent, DrainConsumesAllSignals) {
    QMEvent event;
    for (int i = 0; i < 5; ++i) {
        event.SetEvent();
    }
    EXPECT_EQ(QMEvent::Drain(&event), 1);
    EXPECT_EQ(QMEvent::WaitEvent(&event, 0), -2);
}

TEST(QMEvent, DrainOfAnEventThatIsNotSetReturnsOne) {
    QMEvent event;
    EXPECT_EQ(QMEvent::Drain(&event), 1);
}

TEST(QMEvent, NullArrayOrZeroCountIsAnError) {
    LogCapture log;
    QMEvent event;
    QMEvent* events[] = {&event};
    EXPECT_EQ(QMEvent::MultiWait(1, nullptr, 0, false), -3);
    EXPECT_EQ(QMEvent::MultiWait(1, nullptr, 0, true), -3);
    EXPECT_EQ(QMEvent::MultiWait(0, events, 0, false), -3);
    EXPECT_EQ(QMEvent::MultiWait(0, events, 0, true), -3);
    EXPECT_EQ(QMEvent::timedMultiWait(1, nullptr, false, 0), -1);
    EXPECT_EQ(QMEvent::timedMultiWait(0, events, true, 0), -1);
    EXPECT_EQ(log.text(), "");
}

TEST(QMEvent, NullEventIsAHandleError) {
    LogCapture log;
    EXPECT_EQ(QMEvent::WaitEvent(nullptr, 0), -3);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] timedMultiWait()@QMEvent("), 1U);
    EXPECT_EQ(log.count(" : handle error"), 1U);
    EXPECT_EQ(QMEvent::Drain(nullptr), 1);
}

TEST(QMEvent, SameEventListedTwiceIsAnError) {
    LogCapture log;
    QMEvent event;
    QMEvent* events[] = {&event, &event};
    EXPECT_EQ(QMEvent::MultiWait(2, events, 0, true), -3);
    EXPECT_EQ(log.count(" : std library error [17 : File exists]"), 1U);
}

TEST(QMEvent, FailedInitIsLoggedAndEveryUseReportsIt) {
    LogCapture log;
    std::unique_ptr<QMEvent> event;
    {
        wpp_test::NoMoreDescriptors limit;
        event = std::make_unique<QMEvent>();
    }
    EXPECT_EQ(log.count("[error] init()@QMEvent("), 1U);
    EXPECT_EQ(log.count(" : std library error [24 : Too many open files]"), 1U);
    EXPECT_EQ(QMEvent::WaitEvent(event.get(), 0), -3);
    EXPECT_EQ(log.count(" : handle error"), 1U);
    EXPECT_EQ(event->SetEvent(), 0);
}

TEST(QMEvent, InitAfterAFailureMakesItUsable) {
    LogCapture log;
    std::unique_ptr<QMEvent> event;
    {
        wpp_test::NoMoreDescriptors limit;
        event = std::make_unique<QMEvent>();
    }
    event->init();
    EXPECT_EQ(event->SetEvent(), 1);
    EXPECT_EQ(QMEvent::WaitEvent(event.get(), 0), 0);
}

TEST(QMEvent, RepeatedInitForgetsSignalsAndLeaksNothing) {
    QMEvent event;
    event.SetEvent();
    const std::set<int> before = openDescriptors();
    event.init();
    EXPECT_EQ(openDescriptors().size(), before.size());
    EXPECT_EQ(QMEvent::WaitEvent(&event, 0), -2);
}

TEST(QMEvent, WaitWithoutADescriptorToSpareIsAnError) {
    LogCapture log;
    QMEvent event;
    int result = 0;
    {
        wpp_test::NoMoreDescriptors limit;
        result = QMEvent::WaitEvent(&event, 0);
    }
    EXPECT_EQ(result, -3);
    EXPECT_EQ(log.count("[error] timedMultiWait()@QMEvent("), 1U);
    EXPECT_EQ(log.count(" : std library error [24 : Too many open files]"), 1U);
}

TEST(QMEvent, WaitForAFewEventsNeedsNoMemory) {
    QMEvent first;
    QMEvent second;
    QMEvent* events[] = {&first, &second};
    // The first wait of a process sets up what the later ones share.
    EXPECT_EQ(QMEvent::WaitEvent(nullptr, 0), -3);
    second.SetEvent();
    int result = 0;
    {
        const wpp_test::EmptyHeap heap;
        result = QMEvent::MultiWait(2, events, 0, false);
    }
    EXPECT_EQ(result, 1);
}

TEST(QMEvent, WaitForManyWithoutMemoryIsAnErrorAndConsumesNothing) {
    LogCapture log;
    std::array<QMEvent, 9> many;
    std::array<QMEvent*, 9> events{};
    std::transform(many.begin(), many.end(), events.begin(), [](QMEvent& each) { return &each; });
    QMEvent& event = many.back();
    // The first wait and the first log line of a process set up what the later ones share.
    EXPECT_EQ(QMEvent::WaitEvent(nullptr, 0), -3);
    log.clear();
    event.SetEvent();
    const std::set<int> before = openDescriptors();
    int result = 0;
    {
        const wpp_test::EmptyHeap heap;
        result = QMEvent::MultiWait(events.size(), events.data(), 0, false);
    }
    EXPECT_EQ(result, -3);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(log.count("[error] timedMultiWait()@QMEvent("), 1U);
    EXPECT_EQ(log.count(" : std library error [12 : Cannot allocate memory]"), 1U);
    EXPECT_EQ(QMEvent::WaitEvent(&event, 0), 0);
}

TEST(QMEvent, WaitOnADescriptorThatCannotBeWatchedIsAnErrorAndLeaksNothing) {
    LogCapture log;
    OpenedEvent opened;
    opened.replaceReadEndByAFile();
    const std::set<int> before = openDescriptors();
    EXPECT_EQ(QMEvent::WaitEvent(opened.event.get(), 0), -3);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(log.count(" : std library error [1 : Operation not permitted]"), 1U);
}

TEST(QMEvent, WaitOnAPipeWithoutWriterIsAnErrorAndLeaksNothing) {
    LogCapture log;
    OpenedEvent opened;
    close(opened.writeEnd);
    const std::set<int> before = openDescriptors();
    EXPECT_EQ(QMEvent::WaitEvent(opened.event.get(), 1000), -3);
    EXPECT_EQ(openDescriptors(), before);
    EXPECT_EQ(log.count("[error] timedMultiWait()@QMEvent("), 1U);
}

TEST(QMEvent, SetEventOnAPipeWithoutReaderIsReported) {
    qm_IgnoreSigPipe();
    LogCapture log;
    OpenedEvent opened;
    close(opened.readEnd);
    EXPECT_EQ(opened.event->SetEvent(), 0);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] SetEvent()@QMEvent("), 1U);
    EXPECT_EQ(log.count(" : std library error [32 : Broken pipe]"), 1U);
}

TEST(QMEvent, FailingCloseIsReported) {
    LogCapture log;
    OpenedEvent opened;
    close(opened.readEnd);
    opened.event.reset();
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] ~QMEvent()@QMEvent("), 1U);
    EXPECT_EQ(log.count(" : std library error [9 : Bad file descriptor]"), 1U);
}

TEST(QMEvent, BothEndsAreClosedOnExec) {
    const OpenedEvent opened;
    EXPECT_EQ(fcntl(opened.readEnd, F_GETFD), FD_CLOEXEC);
    EXPECT_EQ(fcntl(opened.writeEnd, F_GETFD), FD_CLOEXEC);
}

TEST(QMEvent, DestructionClosesBothEnds) {
    const std::set<int> before = openDescriptors();
    { QMEvent event; }
    EXPECT_EQ(openDescriptors(), before);
}

TEST(QMEvent, WaitsLeaveNoDescriptorBehind) {
    QMEvent event;
    QMEvent* events[] = {&event};
    const std::set<int> before = openDescriptors();
    event.SetEvent();
    QMEvent::WaitEvent(&event, 0);
    QMEvent::WaitEvent(&event, 0);
    event.SetEvent();
    QMEvent::MultiWait(1, events, 0, false);
    QMEvent::MultiWait(1, events, 0, false);
    EXPECT_EQ(openDescriptors(), before);
}

TEST(QMEvent, OneSignalWakesOneOfTwoWaitersAndTheOtherTimesOut) {
    constexpr int kRounds = 20;
    QMEvent event;
    LogCapture log;
    for (int round = 0; round < kRounds; ++round) {
        const auto wait = [&event] { return QMEvent::WaitEvent(&event, 50); };
        auto first = std::async(std::launch::async, wait);
        auto second = std::async(std::launch::async, wait);
        event.SetEvent();
        std::vector<int> results{first.get(), second.get()};
        std::sort(results.begin(), results.end());
        EXPECT_EQ(results, (std::vector<int>{-2, 0}));
    }
    EXPECT_EQ(log.text(), "");
}

TEST(QMEvent, EachSignalWakesExactlyOneOfManyWaiters) {
    constexpr int kWaiters = 8;
    constexpr int kRounds = 50;
    QMEvent event;
    std::atomic<int> woken{0};
    for (int round = 0; round < kRounds; ++round) {
        woken = 0;
        std::vector<std::thread> waiters;
        for (int i = 0; i < kWaiters; ++i) {
            waiters.emplace_back([&] {
                if (QMEvent::WaitEvent(&event, QM_WAIT_INFINITE) == 0) {
                    ++woken;
                }
            });
        }
        for (int i = 0; i < kWaiters; ++i) {
            event.SetEvent();
        }
        for (std::thread& waiter : waiters) {
            waiter.join();
        }
        EXPECT_EQ(woken, kWaiters);
    }
    EXPECT_EQ(QMEvent::WaitEvent(&event, 0), -2);
}

TEST(QMEvent, WaiterRobbedOfEverySignalKeepsItsLimit) {
    QMEvent event;
    LogCapture log;
    std::atomic<bool> finished{false};
    const auto rob = [&] {
        while (!finished) {
            event.SetEvent();
            QMEvent::WaitEvent(&event, 0);
        }
    };
    std::thread robber(rob);
    const Stopwatch stopwatch;
    const int result = QMEvent::WaitEvent(&event, 300);
    finished = true;
    robber.join();
    EXPECT_TRUE(result == 0 || result == -2) << result;
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
}

TEST(QMEvent, InterruptedWaitStartsAgainInFull) {
    static std::atomic<int> interruptions;
    interruptions = 0;
    struct sigaction action {};
    struct sigaction former {};
    action.sa_handler = [](int) { ++interruptions; };
    sigaction(SIGUSR1, &action, &former);

    QMEvent event;
    LogCapture log;
    std::atomic<int> result{1};
    std::thread waiter([&] { result = QMEvent::WaitEvent(&event, 1000); });
    // Signals come far more often than the limit, for longer than the limit.
    const wpp_test::Deadline deadline(milliseconds(1500));
    waitUntil([&] {
        pthread_kill(waiter.native_handle(), SIGUSR1);
        return deadline.passed();
    });
    EXPECT_EQ(result, 1);
    const Stopwatch stopwatch;
    waiter.join();
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
    EXPECT_EQ(result, -2);
    EXPECT_GT(interruptions, 0);
    EXPECT_EQ(log.text(), "");
    sigaction(SIGUSR1, &former, nullptr);
}

TEST(QMEvent, FirstWaitIgnoresSigPipeAndLaterOnesLeaveItAlone) {
    QMEvent event;
    struct sigaction action {};
    QMEvent::WaitEvent(&event, 0);
    sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_IGN);

    const auto former = std::signal(SIGPIPE, SIG_DFL);
    QMEvent::WaitEvent(&event, 0);
    sigaction(SIGPIPE, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
    std::signal(SIGPIPE, former);
}

}  // namespace
