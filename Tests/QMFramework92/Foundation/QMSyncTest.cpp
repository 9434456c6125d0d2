#include "Foundation/QMSync.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <functional>
#include <future>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Tests/Support/Deadline.h"
#include "Tests/Support/LogCapture.h"

namespace {

/// The error that the next call of a semaphore function reports; 0 lets it through.
std::atomic<int> nextSemaphoreError{0};

bool semaphoreCallFails() {
    const int error = nextSemaphoreError.exchange(0);
    if (error != 0) {
        errno = error;
    }
    return error != 0;
}

/// What clock_gettime reports instead of the time while `isSet`; it fails where there is no time.
struct FakeClock {
    bool isSet = false;
    std::optional<timespec> time;
};
FakeClock fakeClock;

/// The deadline of the last timed wait of the calling thread.
thread_local timespec lastDeadline{};

}  // namespace

// Every call of this program comes through here; the linker gives the functions their names.
extern "C" int __real_sem_init(sem_t* semaphore, int shared, unsigned value);
extern "C" int __wrap_sem_init(sem_t* semaphore, int shared, unsigned value) {
    return semaphoreCallFails() ? -1 : __real_sem_init(semaphore, shared, value);
}

extern "C" int __real_sem_wait(sem_t* semaphore);
extern "C" int __wrap_sem_wait(sem_t* semaphore) {
    return semaphoreCallFails() ? -1 : __real_sem_wait(semaphore);
}

extern "C" int __real_sem_timedwait(sem_t* semaphore, const timespec* deadline);
extern "C" int __wrap_sem_timedwait(sem_t* semaphore, const timespec* deadline) {
    lastDeadline = *deadline;
    return semaphoreCallFails() ? -1 : __real_sem_timedwait(semaphore, deadline);
}

extern "C" int __real_clock_gettime(clockid_t clock, timespec* time);
extern "C" int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    if (!fakeClock.isSet) {
        return __real_clock_gettime(clock, time);
    }
    if (!fakeClock.time) {
        errno = EOVERFLOW;
        return -1;
    }
    *time = *fakeClock.time;
    return 0;
}

namespace {

using std::chrono::milliseconds;
using wpp_test::LogCapture;
using wpp_test::Stopwatch;
using wpp_test::waitUntil;

// The lock's clock may be slewed against the one that measures here.
constexpr milliseconds kClockSlack{10};

/// Whether another thread gets the lock at once; it gives it back.
bool isFreeForOthers(QMSync& lock) {
    return std::async(std::launch::async,
                      [&lock] {
                          const bool locked = lock.Lock(0) == QMSync::kLocked;
                          if (locked) {
                              lock.Unlock();
                          }
                          return locked;
                      })
        .get();
}

TEST(QMSync, FailingWaitIsLoggedAndLeavesTheLockFree) {
    LogCapture log;
    QMSync lock;
    nextSemaphoreError = EINVAL;
    EXPECT_EQ(lock.Lock(QM_WAIT_INFINITE), 2);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] Lock()@QMSync("), 1U);
    EXPECT_EQ(log.count(" : std library error [22 : Invalid argument] , sem_wait()"), 1U);
    EXPECT_TRUE(isFreeForOthers(lock));
}

TEST(QMSync, FailingTimedWaitIsLoggedAndLeavesTheLockFree) {
    LogCapture log;
    QMSync lock;
    nextSemaphoreError = EINVAL;
    EXPECT_EQ(lock.Lock(1000), 2);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] Lock()@QMSync("), 1U);
    EXPECT_EQ(log.count(" : std library error [22 : Invalid argument] , sem_timedwait()"), 1U);
    EXPECT_TRUE(isFreeForOthers(lock));
}

TEST(QMSync, FailingCreationIsLoggedAndLeavesNoHandle) {
    LogCapture log;
    nextSemaphoreError = ENOSYS;
    QMSync lock;
    EXPECT_EQ(log.count(" : std library error [38 : Function not implemented] , sem_init()"), 1U);
    EXPECT_EQ(lock.Lock(0), 2);
    EXPECT_EQ(log.count(" : handle is not created"), 1U);
}

TEST(QMSync, IsFreeAtFirst) {
    QMSync lock;
    EXPECT_TRUE(isFreeForOthers(lock));
}

TEST(QMSync, TwoLocksTakeTwoUnlocksBeforeAnotherThreadGetsIt) {
    QMSync lock;
    EXPECT_EQ(lock.Lock(QM_WAIT_INFINITE), QMSync::kLocked);
    EXPECT_EQ(lock.Lock(QM_WAIT_INFINITE), QMSync::kLocked);
    EXPECT_FALSE(isFreeForOthers(lock));
    lock.Unlock();
    EXPECT_FALSE(isFreeForOthers(lock));
    lock.Unlock();
    EXPECT_TRUE(isFreeForOthers(lock));
}

TEST(QMSync, LockZeroOnAHeldLockTimesOutAtOnceAndSilently) {
    QMSync lock;
    LogCapture log;
    ASSERT_EQ(lock.Lock(0), QMSync::kLocked);
    const Stopwatch stopwatch;
    const int result = std::async(std::launch::async, [&lock] { return lock.Lock(0); }).get();
    EXPECT_EQ(result, QMSync::kTimedOut);
    EXPECT_LT(stopwatch.elapsed(), wpp_test::kGenerousLimit);
    EXPECT_EQ(log.text(), "");
    lock.Unlock();
}

TEST(QMSync, DeadlineBehindTheEndOfTheClockIsPutThere) {
    constexpr std::time_t kEnd = std::numeric_limits<std::time_t>::max();
    QMSync lock;
    for (const std::time_t left : {0, 1, 2, 3}) {
        fakeClock = {true, timespec{kEnd - left, 999999999}};
        nextSemaphoreError = ETIMEDOUT;
        EXPECT_EQ(lock.Lock(1500), QMSync::kTimedOut);
        EXPECT_EQ(lastDeadline.tv_sec, left < 2 ? kEnd : kEnd - left + 2);
        EXPECT_EQ(lastDeadline.tv_nsec, 499999999);
    }
    fakeClock = {};
}

TEST(QMSync, TimedLockWithoutAClockTakesWhatIsFreeAndTimesOutAtOnceOtherwise) {
    QMSync lock;
    fakeClock = {true, std::nullopt};
    EXPECT_EQ(lock.Lock(60000), QMSync::kLocked);
    const Stopwatch stopwatch;
    const int result = std::async(std::launch::async, [&lock] { return lock.Lock(60000); }).get();
    fakeClock = {};
    EXPECT_EQ(result, QMSync::kTimedOut);
    EXPECT_LT(stopwatch.elapsed(), wpp_test::kGenerousLimit);
    lock.Unlock();
}

TEST(QMSync, Lock1500WaitsOneAndAHalfSeconds) {
    QMSync lock;
    ASSERT_EQ(lock.Lock(0), QMSync::kLocked);
    const Stopwatch stopwatch;
    const int result = std::async(std::launch::async, [&lock] { return lock.Lock(1500); }).get();
    EXPECT_EQ(result, QMSync::kTimedOut);
    EXPECT_GE(stopwatch.elapsed() + kClockSlack, milliseconds(1500));
    EXPECT_LT(stopwatch.elapsed(), wpp_test::kGenerousLimit);
    lock.Unlock();
}

TEST(QMSync, TimedLockGetsALockThatIsGivenBackInTime) {
    QMSync lock;
    ASSERT_EQ(lock.Lock(0), QMSync::kLocked);
    auto waiter = std::async(std::launch::async, [&lock] {
        const int result = lock.Lock(60000);
        lock.Unlock();
        return result;
    });
    lock.Unlock();
    EXPECT_EQ(waiter.get(), QMSync::kLocked);
}

TEST(QMSync, GuardsWhatSeveralThreadsChange) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 2000;
    QMSync lock;
    int counter = 0;
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < kRounds; ++n) {
                QMSyncGuard guard(lock);
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, kThreads * kRounds);
}

std::atomic<int> interruptions{0};

/// Interrupts system calls of one thread with SIGUSR1.
class Interrupter {
public:
    Interrupter() {
        interruptions = 0;
        struct sigaction action {};
        action.sa_handler = [](int) { ++interruptions; };
        sigaction(SIGUSR1, &action, &former);
    }
    ~Interrupter() { sigaction(SIGUSR1, &former, nullptr); }
    Interrupter(const Interrupter&) = delete;
    Interrupter& operator=(const Interrupter&) = delete;

    /// Keeps interrupting until the thread has seen `count` signals.
    bool interrupt(std::thread& thread, int count) {
        return waitUntil([&] {
            pthread_kill(thread.native_handle(), SIGUSR1);
            return interruptions >= count;
        });
    }

private:
    struct sigaction former {};
};

TEST(QMSync, InterruptedUnlimitedLockGoesOnWaiting) {
    QMSync lock;
    Interrupter interrupter;
    LogCapture log;
    ASSERT_EQ(lock.Lock(0), QMSync::kLocked);
    std::atomic<int> result{-1};
    std::thread waiter([&] {
        result = lock.Lock(QM_WAIT_INFINITE);
        lock.Unlock();
    });
    EXPECT_TRUE(interrupter.interrupt(waiter, 20));
    EXPECT_EQ(result, -1);
    lock.Unlock();
    waiter.join();
    EXPECT_EQ(result, QMSync::kLocked);
    EXPECT_EQ(log.text(), "");
}

TEST(QMSync, InterruptedTimedLockKeepsItsDeadline) {
    QMSync lock;
    Interrupter interrupter;
    LogCapture log;
    ASSERT_EQ(lock.Lock(0), QMSync::kLocked);
    const Stopwatch stopwatch;
    std::atomic<int> result{-1};
    std::thread waiter([&] { result = lock.Lock(500); });
    // Signals go on until the lock gives up; a restarted limit would never end.
    EXPECT_TRUE(waitUntil([&] {
        if (result == -1) {
            pthread_kill(waiter.native_handle(), SIGUSR1);
        }
        return result != -1;
    }));
    waiter.join();
    EXPECT_EQ(result, QMSync::kTimedOut);
    EXPECT_GT(interruptions, 0);
    EXPECT_GE(stopwatch.elapsed() + kClockSlack, milliseconds(500));
    EXPECT_EQ(log.text(), "");
    lock.Unlock();
}

TEST(QMSync, UnnamedKindWithANameIsALockOfItsOwn) {
    QMSync lock("name", QMSync::kUnnamed);
    EXPECT_EQ(lock.Lock(0), QMSync::kLocked);
    QMSync other("name", QMSync::kUnnamed);
    EXPECT_TRUE(isFreeForOthers(other));
    lock.Unlock();
}

TEST(QMSync, NullNameLeavesNoHandle) {
    LogCapture log;
    QMSync lock(nullptr, QMSync::kUnnamed);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] QMSync()@QMSync("), 1U);
    EXPECT_EQ(log.count(" : invalid arg : name is null"), 1U);
    EXPECT_EQ(lock.Lock(QM_WAIT_INFINITE), QMSync::kError);
}

TEST(QMSync, UnknownKindLeavesNoHandle) {
    LogCapture log;
    QMSync lock("name", 2);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].substr(log.lines()[0].find(" : ")), " : invalid arg");
    EXPECT_EQ(lock.Lock(QM_WAIT_INFINITE), QMSync::kError);
}

TEST(QMSync, EachLockWithoutHandleIsReportedWithAStackDump) {
    LogCapture log;
    QMSync lock("name", 2);
    log.clear();
    EXPECT_EQ(lock.Lock(QM_WAIT_INFINITE), QMSync::kError);
    EXPECT_EQ(lock.Lock(0), QMSync::kError);
    EXPECT_EQ(log.count("[error] Lock()@QMSync("), 2U);
    EXPECT_EQ(log.count(" : handle is not created"), 2U);
    EXPECT_GE(log.count("dumpDirectly()@QMCallStack("), 2U);
    EXPECT_LE(log.count("dumpDirectly()@QMCallStack("), 20U);
}

TEST(QMSync, UnlockWithoutHandleIsReportedWithAStackDump) {
    LogCapture log;
    QMSync lock("name", 2);
    log.clear();
    lock.Unlock();
    EXPECT_EQ(log.count("[error] Unlock()@QMSync("), 1U);
    EXPECT_EQ(log.count(" : handle is not created"), 1U);
    EXPECT_GE(log.count("dumpDirectly()@QMCallStack("), 1U);
    EXPECT_LE(log.count("dumpDirectly()@QMCallStack("), 10U);
}

TEST(QMSync, GuardHoldsTheLockForItsScope) {
    QMSync lock;
    {
        QMSyncGuard guard(lock);
        EXPECT_FALSE(isFreeForOthers(lock));
    }
    EXPECT_TRUE(isFreeForOthers(lock));
}

TEST(QMSync, GuardOfALockWithoutHandleReportsOnce) {
    LogCapture log;
    QMSync lock("name", 2);
    { QMSyncGuard guard(lock); }
    EXPECT_EQ(log.count(" : handle is not created"), 1U);
}

/// A semaphore name of this test process alone, gone at the end.
class NamedSync : public testing::Test {
protected:
    explicit NamedSync(const std::string& suffix = "") : name("wpp-" + std::to_string(getpid()) + suffix) {}
    void TearDown() override { sem_unlink(("/" + name).c_str()); }

    /// Runs `step` in a child process. @return its result.
    static int inAnotherProcess(const std::function<int()>& step) {
        const pid_t child = fork();
        if (child == 0) {
            _exit(step());
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    const std::string name;
};

TEST_F(NamedSync, UsesTheSemaphoreOfItsNameBehindASlash) {
    QMSync lock(name.c_str(), QMSync::kNamed);
    sem_t* semaphore = sem_open(("/" + name).c_str(), 0);
    ASSERT_NE(semaphore, SEM_FAILED);
    int value = -1;
    sem_getvalue(semaphore, &value);
    EXPECT_EQ(value, 1);
    EXPECT_EQ(lock.Lock(0), QMSync::kLocked);
    sem_getvalue(semaphore, &value);
    EXPECT_EQ(value, 0);
    lock.Unlock();
    sem_close(semaphore);
}

TEST_F(NamedSync, IsSharedWithASecondProcess) {
    QMSync lock(name.c_str(), QMSync::kNamed);
    const auto lockThere = [this] {
        QMSync there(name.c_str(), QMSync::kNamed);
        const int result = there.Lock(0);
        if (result == QMSync::kLocked) {
            there.Unlock();
        }
        return result;
    };
    ASSERT_EQ(lock.Lock(0), QMSync::kLocked);
    EXPECT_EQ(inAnotherProcess(lockThere), QMSync::kTimedOut);
    lock.Unlock();
    EXPECT_EQ(inAnotherProcess(lockThere), QMSync::kLocked);
    EXPECT_EQ(lock.Lock(0), QMSync::kLocked);
    lock.Unlock();
}

TEST_F(NamedSync, DestructionLeavesTheSemaphore) {
    { QMSync lock(name.c_str(), QMSync::kNamed); }
    sem_t* semaphore = sem_open(("/" + name).c_str(), 0);
    EXPECT_NE(semaphore, SEM_FAILED);
    sem_close(semaphore);
}

TEST_F(NamedSync, ImpossibleNameIsLoggedAndLeavesNoHandle) {
    LogCapture log;
    QMSync lock(std::string(300, 'x').c_str(), QMSync::kNamed);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] openNamed()@QMSync("), 1U);
    EXPECT_EQ(log.count(" , sem_open()"), 1U);
    EXPECT_EQ(lock.Lock(QM_WAIT_INFINITE), QMSync::kError);
}

class LongNamedSync : public NamedSync {
protected:
    LongNamedSync() : NamedSync("-a-name-that-is-longer-than-31-characters") {}
};

TEST_F(LongNamedSync, UsesTheWholeName) {
    QMSync lock(name.c_str(), QMSync::kNamed);
    sem_t* semaphore = sem_open(("/" + name).c_str(), 0);
    EXPECT_NE(semaphore, SEM_FAILED);
    sem_close(semaphore);
}

}  // namespace
