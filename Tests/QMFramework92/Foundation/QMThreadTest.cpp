#include "Foundation/QMThread.h"

#include <gtest/gtest.h>
#include <semaphore.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <functional>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Pattern/QMSingleton.h"
#include "Tests/QMFramework92/Foundation/PriorityRights.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/HeapWatch.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/Support/ProcessState.h"

namespace {

std::atomic<bool> nextJoinFails{false};

}  // namespace

// Every pthread_join of this program comes through here; the linker gives the functions their names.
extern "C" int __real_pthread_join(pthread_t thread, void** result);
extern "C" int __wrap_pthread_join(pthread_t thread, void** result) {
    return nextJoinFails.exchange(false) ? EDEADLK : __real_pthread_join(thread, result);
}

namespace {

using std::chrono::milliseconds;
using wpp_test::EmptyHeap;
using wpp_test::kGenerousLimit;
using wpp_test::LogCapture;
using wpp_test::mayUseNice;
using wpp_test::niceOf;
using wpp_test::openDescriptors;
using wpp_test::Stopwatch;
using wpp_test::waitUntil;

constexpr const char* kBanner = "ASSERT Failed! - QMFramework92/Foundation/QMThread(";

/// An owner whose procedure is private and given by the test.
class Owner {
public:
    explicit Owner(std::function<void()> procedure = [] {}) : body(std::move(procedure)) {}

private:
    friend struct QMThreadTraits<Owner>;
    void MainProc() { body(); }

    std::function<void()> body;
};

/// Runs until it is told to end.
class RunningOwner {
public:
    void MainProc() {
        started.SetEvent();
        QMEvent::WaitEvent(&end, QM_WAIT_INFINITE);
    }

    void waitUntilRunning() { ASSERT_EQ(QMEvent::WaitEvent(&started, 10000), 0); }

    QMEvent started;
    QMEvent end;
};

class QMThreadTest : public testing::Test {
protected:
    void TearDown() override { qm_DestroySingletons(); }

    /// What the registry knows of a thread with this name while it runs its procedure.
    static QMThreadRecord recordOfThreadNamed(const char* name, unsigned registryValue = 0) {
        QMThreadRecord record{};
        Owner owner([&record] { QMThreadMng::getInstance()->FindThread(pthread_self(), record); });
        QMThread<Owner> thread(&owner, registryValue);
        EXPECT_TRUE(thread.Start(name));
        EXPECT_TRUE(thread.WaitExit(10000));
        return record;
    }

    static std::string osNameOfThreadNamed(const char* name) {
        std::array<char, 64> osName{};
        Owner owner([&osName] { pthread_getname_np(pthread_self(), osName.data(), osName.size()); });
        QMThread<Owner> thread(&owner);
        EXPECT_TRUE(thread.Start(name));
        EXPECT_TRUE(thread.WaitExit(10000));
        return osName.data();
    }
};

TEST_F(QMThreadTest, StartRunsTheOwnersProcedureOnAThreadOfItsOwn) {
    std::thread::id ranOn;
    Owner owner([&ranOn] { ranOn = std::this_thread::get_id(); });
    QMThread<Owner> thread(&owner);
    EXPECT_TRUE(thread.Start("procedure"));
    EXPECT_TRUE(thread.WaitExit(10000));
    EXPECT_NE(ranOn, std::thread::id());
    EXPECT_NE(ranOn, std::this_thread::get_id());
}

TEST_F(QMThreadTest, NameOf127CharactersIsKept) {
    const std::string name(127, 'n');
    EXPECT_EQ(recordOfThreadNamed(name.c_str()).name, name);
}

TEST_F(QMThreadTest, NameOf128CharactersBecomesNoName) {
    EXPECT_STREQ(recordOfThreadNamed(std::string(128, 'n').c_str()).name, "no_name");
}

TEST_F(QMThreadTest, NullNameBecomesNoName) {
    EXPECT_STREQ(recordOfThreadNamed(nullptr).name, "no_name");
}

TEST_F(QMThreadTest, OperatingSystemShowsTheFirst15Characters) {
    EXPECT_EQ(osNameOfThreadNamed("ServerStream_s92"), "ServerStream_s9");
    EXPECT_EQ(osNameOfThreadNamed("short"), "short");
    EXPECT_EQ(osNameOfThreadNamed(nullptr), "no_name");
}

TEST_F(QMThreadTest, RegistryHoldsTheThreadWhileItRuns) {
    const QMThreadRecord record = recordOfThreadNamed("registered", 4000);
    EXPECT_STREQ(record.name, "registered");
    EXPECT_EQ(record.registryValue, 4000U);
    QMThreadRecord afterwards{};
    EXPECT_FALSE(QMThreadMng::getInstance()->FindThread(record.handle, afterwards));
}

TEST_F(QMThreadTest, SecondStartOfARunningThreadFails) {
    RunningOwner owner;
    QMThread<RunningOwner> thread(&owner);
    ASSERT_TRUE(thread.Start("first"));
    owner.waitUntilRunning();
    LogCapture log;
    EXPECT_FALSE(thread.Start("second"));
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] Start()@QMThread("), 1U);
    EXPECT_EQ(log.count(" : error [second]"), 1U);
    owner.end.SetEvent();
    EXPECT_TRUE(thread.WaitExit(10000));
}

TEST_F(QMThreadTest, StartWithoutAnOwnerFails) {
    LogCapture log;
    QMThread<Owner> thread(nullptr);
    EXPECT_FALSE(thread.Start("orphan"));
    EXPECT_EQ(log.count(" : error [orphan]"), 1U);
    EXPECT_TRUE(thread.WaitExit(10000));
}

TEST_F(QMThreadTest, FailedStartWithANullNameIsLogged) {
    LogCapture log;
    QMThread<Owner> thread(nullptr);
    EXPECT_FALSE(thread.Start(nullptr));
    EXPECT_EQ(log.count(" : error [(null)]"), 1U);
}

TEST_F(QMThreadTest, ThreadThatCannotBeCreatedLeavesTheObjectNotRunning) {
    Owner owner;
    QMThread<Owner> thread(&owner);
    LogCapture log;
    {
        wpp_test::NoMoreThreads limit;
        EXPECT_FALSE(thread.Start("unborn"));
    }
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] Start()@QMThread("), 1U);
    EXPECT_NE(log.text().find(" : QMThread::Start() failed !! [unborn]\r\n"), std::string::npos);
    EXPECT_TRUE(thread.WaitExit(0));
    EXPECT_TRUE(thread.Start("born"));
    EXPECT_TRUE(thread.WaitExit(10000));
}

TEST_F(QMThreadTest, PrioritySetBeforeTheStartIsAppliedByTheThreadAndRecorded) {
    int nice = 0;
    QMThreadRecord record{};
    Owner owner([&] {
        nice = niceOf(gettid());
        QMThreadMng::getInstance()->FindThread(pthread_self(), record);
    });
    QMThread<Owner> thread(&owner);
    LogCapture log;
    EXPECT_TRUE(thread.SetPriority(253));
    EXPECT_TRUE(thread.Start("lower"));
    EXPECT_TRUE(thread.WaitExit(10000));
    EXPECT_EQ(nice, 2);
    EXPECT_EQ(record.priority, 253);
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMThreadTest, PendingPriorityIsAppliedOnce) {
    std::vector<int> nices;
    Owner owner([&nices] { nices.push_back(niceOf(gettid())); });
    QMThread<Owner> thread(&owner);
    EXPECT_TRUE(thread.SetPriority(254));
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(thread.Start("twice"));
        EXPECT_TRUE(thread.WaitExit(10000));
    }
    EXPECT_EQ(nices, (std::vector<int>{3, niceOf(gettid())}));
}

TEST_F(QMThreadTest, PriorityWithoutASettingIsTheOneThatTheThreadHas) {
    const int own = QMThreadMng::getInstance()->GetCurrentThreadPriority();
    EXPECT_EQ(recordOfThreadNamed("inherits").priority, own);
}

TEST_F(QMThreadTest, PriorityOfARunningThreadIsSetAtOnce) {
    RunningOwner owner;
    QMThread<RunningOwner> thread(&owner);
    ASSERT_TRUE(thread.Start("running"));
    owner.waitUntilRunning();
    EXPECT_TRUE(thread.SetPriority(255));
    EXPECT_EQ(thread.GetPriority(), 255);
    owner.end.SetEvent();
    EXPECT_TRUE(thread.WaitExit(10000));
}

TEST_F(QMThreadTest, Priority150SetsNiceMinus20WhereThatIsAllowed) {
    const bool allowed = mayUseNice(-20);
    RunningOwner owner;
    QMThread<RunningOwner> thread(&owner);
    ASSERT_TRUE(thread.Start("highest"));
    owner.waitUntilRunning();
    LogCapture log;
    EXPECT_EQ(thread.SetPriority(150), allowed);
    EXPECT_EQ(thread.GetPriority() == 177, allowed);
    EXPECT_EQ(log.count(", setpriority()"), allowed ? 0U : 1U);
    owner.end.SetEvent();
    EXPECT_TRUE(thread.WaitExit(10000));
}

TEST_F(QMThreadTest, PriorityDuringStartUpIsNeverLost) {
    for (int round = 0; round < 100; ++round) {
        RunningOwner owner;
        QMThread<RunningOwner> thread(&owner);
        std::thread setter([&thread] { EXPECT_TRUE(thread.SetPriority(252)); });
        ASSERT_TRUE(thread.Start("racing"));
        setter.join();
        owner.waitUntilRunning();
        EXPECT_EQ(thread.GetPriority(), 252);
        owner.end.SetEvent();
        EXPECT_TRUE(thread.WaitExit(10000));
    }
}

TEST_F(QMThreadTest, PriorityOfAThreadThatHasNotStartedIsLoggedAndMinus1) {
    Owner owner;
    QMThread<Owner> thread(&owner);
    LogCapture log;
    EXPECT_EQ(thread.GetPriority(), -1);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] GetPriority()@QMThread("), 1U);
    EXPECT_EQ(log.count(" : invalid thread id"), 1U);
}

TEST_F(QMThreadTest, StandardExceptionIsLoggedWithItsTextBannerAndStack) {
    Owner owner([] { throw std::runtime_error("x"); });
    QMThread<Owner> thread(&owner);
    LogCapture log;
    EXPECT_TRUE(thread.Start("thrower"));
    EXPECT_TRUE(thread.WaitExit(10000));
    const std::vector<std::string> lines = log.lines();
    ASSERT_GT(lines.size(), 6U);
    EXPECT_EQ(lines[0].rfind("[error] Entry()@QMThread(", 0), 0U);
    EXPECT_EQ(lines[0].substr(lines[0].find(" : ")), " : catch exception. thread name [thrower], what [x]");
    EXPECT_EQ(lines[1], "#########");
    EXPECT_EQ(lines[2], "#########");
    EXPECT_EQ(lines[3].rfind(kBanner, 0), 0U);
    EXPECT_NE(lines[6].find("dumpDirectly()@QMCallStack("), std::string::npos);
}

TEST_F(QMThreadTest, ThreadThatCannotBeRegisteredIsReportedAndRunsItsProcedure) {
    QMThreadMng::getInstance();
    sem_t ran;
    sem_init(&ran, 0, 0);
    Owner owner([&ran] { sem_post(&ran); });
    QMThread<Owner> thread(&owner);
    LogCapture log;
    // The first wait, log line and stack dump of a process set up what the later ones share.
    EXPECT_EQ(QMEvent::WaitEvent(nullptr, 0), -3);
    qm_ReportAssertion("warm/up", 1);
    log.clear();
    {
        const EmptyHeap heap;
        thread.Start("unknown");
        sem_wait(&ran);
    }
    EXPECT_TRUE(thread.WaitExit(10000));
    EXPECT_EQ(log.count("[error] Entry()@QMThread("), 1U);
    EXPECT_TRUE(log.contains(" : catch exception. thread name [unknown], what [std::bad_alloc]"));
    EXPECT_EQ(log.count(kBanner), 1U);
    sem_destroy(&ran);
}

TEST_F(QMThreadTest, OtherExceptionIsLoggedWithBannerAndStack) {
    Owner owner([] { throw 5; });
    QMThread<Owner> thread(&owner);
    LogCapture log;
    EXPECT_TRUE(thread.Start("thrower"));
    EXPECT_TRUE(thread.WaitExit(10000));
    const std::vector<std::string> lines = log.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines[0].substr(lines[0].find(" : ")), " : catch exception. thread name [thrower]");
    EXPECT_EQ(log.count(kBanner), 1U);
    EXPECT_GT(log.count("dumpDirectly()@QMCallStack("), 0U);
}

TEST_F(QMThreadTest, EntryReturnsMinus1AfterAnException) {
    Owner owner([] { throw std::runtime_error("x"); });
    QMThread<Owner> thread(&owner);
    LogCapture log;
    EXPECT_EQ(thread.Entry(), -1);
}

TEST_F(QMThreadTest, EntryReturnsTheResultOfTheProcedure) {
    Owner owner;
    QMThread<Owner> thread(&owner);
    EXPECT_EQ(thread.Entry(), 0);
}

TEST_F(QMThreadTest, WaitExitReportsASlowEndAfterItsLimitAndStillJoins) {
    LogCapture log;
    Owner owner([&log] { log.waitFor("Error, QMThread::WaitExit() timed out[100ms]. thread name[slow]"); });
    QMThread<Owner> thread(&owner);
    ASSERT_TRUE(thread.Start("slow"));
    const Stopwatch stopwatch;
    EXPECT_TRUE(thread.WaitExit(100));
    EXPECT_GE(stopwatch.elapsed(), milliseconds(99));
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
    EXPECT_EQ(log.count("[error] WaitEventTimeoutThread()@QMThread("), 1U);
    EXPECT_EQ(log.count(kBanner), 1U);
    EXPECT_GT(log.count("dumpDirectly()@QMCallStack("), 0U);
}

TEST_F(QMThreadTest, ThreadThatNeeds300MillisecondsIsJoinedByWaitExit100) {
    LogCapture log;
    QMEvent never;
    const Stopwatch stopwatch;
    Owner owner([&never] { QMEvent::WaitEvent(&never, 300); });
    QMThread<Owner> thread(&owner);
    ASSERT_TRUE(thread.Start("slow"));
    EXPECT_TRUE(thread.WaitExit(100));
    EXPECT_GE(stopwatch.elapsed(), milliseconds(299));
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
    EXPECT_EQ(log.count("timed out[100ms]"), 1U);
}

TEST_F(QMThreadTest, WaitExitAfterAReportedOneWatchesAgain) {
    LogCapture log;
    Owner owner([&log] { log.waitFor("timed out[50ms]"); });
    QMThread<Owner> thread(&owner);
    for (unsigned round = 1; round <= 2; ++round) {
        log.clear();
        ASSERT_TRUE(thread.Start("slow"));
        EXPECT_TRUE(thread.WaitExit(50));
        EXPECT_EQ(log.count("timed out[50ms]"), 1U) << round;
    }
}

TEST_F(QMThreadTest, WaitExitOfAThreadThatEndsInTimeIsSilent) {
    LogCapture log;
    Owner owner;
    QMThread<Owner> thread(&owner);
    ASSERT_TRUE(thread.Start("quick"));
    EXPECT_TRUE(thread.WaitExit(60000));
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMThreadTest, WaitExitWithoutLimitNeverReports) {
    LogCapture log;
    RunningOwner owner;
    QMThread<RunningOwner> thread(&owner);
    ASSERT_TRUE(thread.Start("unlimited"));
    owner.end.SetEvent();
    EXPECT_TRUE(thread.WaitExit(QM_WAIT_INFINITE));
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMThreadTest, WaitExitOfANeverStartedThreadReturnsTrueAtOnce) {
    LogCapture log;
    Owner owner;
    QMThread<Owner> thread(&owner);
    const Stopwatch stopwatch;
    EXPECT_TRUE(thread.WaitExit(60000));
    EXPECT_LT(stopwatch.elapsed(), kGenerousLimit);
    EXPECT_EQ(log.text(), "");
}

TEST_F(QMThreadTest, WaitExitWithoutAThreadToWatchOnlyJoins) {
    RunningOwner owner;
    QMThread<RunningOwner> thread(&owner);
    ASSERT_TRUE(thread.Start("unwatched"));
    owner.end.SetEvent();
    LogCapture log;
    {
        wpp_test::NoMoreThreads limit;
        EXPECT_TRUE(thread.WaitExit(10000));
    }
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] WaitExit()@QMThread("), 1U);
    EXPECT_EQ(log.count(" : Error, pthread_create failed."), 1U);
}

TEST_F(QMThreadTest, FailingJoinIsLoggedAndTheObjectIsReset) {
    std::atomic<pthread_t> self{};
    QMEvent started;
    QMEvent end;
    Owner owner([&] {
        self = pthread_self();
        started.SetEvent();
        QMEvent::WaitEvent(&end, QM_WAIT_INFINITE);
    });
    QMThread<Owner> thread(&owner);
    ASSERT_TRUE(thread.Start("unjoined"));
    ASSERT_EQ(QMEvent::WaitEvent(&started, 10000), 0);
    LogCapture log;
    nextJoinFails = true;
    EXPECT_FALSE(thread.WaitExit(10000));
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.count("[error] WaitExit()@QMThread("), 1U);
    EXPECT_EQ(log.count(" : std library error [35 : Resource deadlock avoided] , pthread_join() failed !! "
                        "ret[35]"),
              1U);
    QMThreadRecord record{};
    EXPECT_FALSE(QMThreadMng::getInstance()->FindThread(self, record));
    EXPECT_TRUE(thread.WaitExit(0));
    end.SetEvent();
    pthread_join(self, nullptr);
}

TEST_F(QMThreadTest, ThreadMayBeStartedAgainAfterWaitExit) {
    std::atomic<int> runs{0};
    Owner owner([&runs] { ++runs; });
    QMThread<Owner> thread(&owner);
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(thread.Start("again"));
        EXPECT_TRUE(thread.WaitExit(10000));
    }
    EXPECT_EQ(runs, 3);
}

TEST_F(QMThreadTest, ThousandStartsAndEndsLeaveNothingBehind) {
    Owner owner;
    QMThread<Owner> thread(&owner);
    ASSERT_TRUE(thread.Start("first"));
    ASSERT_TRUE(thread.WaitExit(10000));
    const std::set<int> descriptors = openDescriptors();
    const std::size_t threads = wpp_test::threadCount();
    for (int i = 0; i < 1000; ++i) {
        ASSERT_TRUE(thread.Start("one of many"));
        ASSERT_TRUE(thread.WaitExit(10000));
    }
    EXPECT_EQ(openDescriptors(), descriptors);
    // A joined thread may stay listed for a moment.
    EXPECT_TRUE(waitUntil([threads] { return wpp_test::threadCount() <= threads; }));
}

/// An owner whose traits refuse the start or fail after it.
struct ParticularOwner {
    bool startAllowed = true;
    bool readyAfterStart = true;
    std::atomic<bool> ran{false};
};

}  // namespace

template <>
struct QMThreadTraits<ParticularOwner> {
    static bool canStart(const ParticularOwner* owner) { return owner->startAllowed; }
    static int run(ParticularOwner* owner) {
        owner->ran = true;
        return 17;
    }
    static bool afterStart(ParticularOwner* owner) { return owner->readyAfterStart; }
};

namespace {

TEST_F(QMThreadTest, OwnerMayRefuseTheStart) {
    LogCapture log;
    ParticularOwner owner;
    owner.startAllowed = false;
    QMThread<ParticularOwner> thread(&owner);
    EXPECT_FALSE(thread.Start("refused"));
    EXPECT_EQ(log.count(" : error [refused]"), 1U);
    EXPECT_TRUE(thread.WaitExit(0));
    EXPECT_FALSE(owner.ran);
}

TEST_F(QMThreadTest, OwnersStepAfterTheStartDecidesItsResult) {
    ParticularOwner owner;
    owner.readyAfterStart = false;
    QMThread<ParticularOwner> thread(&owner);
    EXPECT_FALSE(thread.Start("not ready"));
    EXPECT_TRUE(thread.WaitExit(10000));
    EXPECT_TRUE(owner.ran);
}

TEST_F(QMThreadTest, EntryReturnsWhatTheOwnersTraitsReturn) {
    ParticularOwner owner;
    QMThread<ParticularOwner> thread(&owner);
    EXPECT_EQ(thread.Entry(), 17);
}

}  // namespace
