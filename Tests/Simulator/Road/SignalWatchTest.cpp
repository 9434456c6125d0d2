#include "Simulator/private/Road/SignalWatch.h"

#include <sys/wait.h>
#include <unistd.h>

#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

class SignalWatchTest : public LoopTest {
protected:
    std::vector<int> interrupts;
    int childEnds = 0;
    SignalWatch watch{loop, {[this](int signal) { interrupts.push_back(signal); }, [this] { ++childEnds; }}};
};

TEST_F(SignalWatchTest, ReportsInterruptAndTermination) {
    ASSERT_EQ(::kill(::getpid(), SIGINT), 0);
    EXPECT_TRUE(stepUntil([&] { return interrupts == std::vector<int>{SIGINT}; }));
    ASSERT_EQ(::kill(::getpid(), SIGTERM), 0);
    EXPECT_TRUE(stepUntil([&] { return interrupts == std::vector<int>{SIGINT, SIGTERM}; }));
}

TEST_F(SignalWatchTest, ReportsTheEndOfAChild) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::_exit(0);
    }
    EXPECT_TRUE(stepUntil([&] { return childEnds > 0; }));
    EXPECT_EQ(::waitpid(child, nullptr, 0), child);
}

TEST(SignalWatch, GivesTheSignalsBackAtTheEnd) {
    sigset_t before;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &before);
    PollLoop loop;
    {
        const SignalWatch watch(loop, {[](int) {}, [] {}});
    }
    sigset_t after;
    ::pthread_sigmask(SIG_SETMASK, nullptr, &after);
    for (const int signal : {SIGINT, SIGTERM, SIGCHLD}) {
        EXPECT_EQ(::sigismember(&after, signal), ::sigismember(&before, signal));
    }
}

}  // namespace
}  // namespace simulator
