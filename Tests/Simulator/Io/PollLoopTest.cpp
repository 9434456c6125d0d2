#include "Simulator/private/Io/PollLoop.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "Simulator/private/Io/UniqueFd.h"
#include "Tests/Support/Deadline.h"

namespace simulator {
namespace {

constexpr Milliseconds kLimit = wpp_test::kGenerousLimit;

struct Pipe {
    Pipe() {
        int ends[2] = {-1, -1};
        EXPECT_EQ(::pipe(ends), 0);
        readEnd.reset(ends[0]);
        writeEnd.reset(ends[1]);
    }
    void signal() const { EXPECT_EQ(::write(writeEnd.get(), "x", 1), 1); }

    UniqueFd readEnd;
    UniqueFd writeEnd;
};

TEST(PollLoop, CallsTheHandlerOfAReadyDescriptor) {
    PollLoop loop;
    const Pipe pipe;
    short seen = 0;
    loop.watch(pipe.readEnd.get(), POLLIN, [&](short events) { seen = events; });
    pipe.signal();
    loop.step(kLimit);
    EXPECT_EQ(seen, POLLIN);
}

TEST(PollLoop, ReportsAHangUpWithoutBeingAsked) {
    PollLoop loop;
    Pipe pipe;
    short seen = 0;
    loop.watch(pipe.readEnd.get(), 0, [&](short events) { seen = events; });
    pipe.writeEnd.reset();
    loop.step(kLimit);
    EXPECT_EQ(seen, POLLHUP);
}

TEST(PollLoop, DoesNotCallAForgottenDescriptor) {
    PollLoop loop;
    const Pipe pipe;
    bool called = false;
    loop.watch(pipe.readEnd.get(), POLLIN, [&](short) { called = true; });
    loop.forget(pipe.readEnd.get());
    pipe.signal();
    loop.step(Milliseconds(0));
    EXPECT_FALSE(called);
}

TEST(PollLoop, HandlerMayForgetADescriptorReadyWithIt) {
    PollLoop loop;
    const Pipe first;
    const Pipe second;
    int calls = 0;
    const auto forgetBoth = [&](short) {
        ++calls;
        loop.forget(first.readEnd.get());
        loop.forget(second.readEnd.get());
    };
    loop.watch(first.readEnd.get(), POLLIN, forgetBoth);
    loop.watch(second.readEnd.get(), POLLIN, forgetBoth);
    first.signal();
    second.signal();
    loop.step(kLimit);
    EXPECT_EQ(calls, 1);
}

TEST(PollLoop, ReadinessOfAnEarlierWatchDoesNotReachALaterOne) {
    PollLoop loop;
    const Pipe first;
    const Pipe second;
    bool lateCalled = false;
    const auto rewatchOther = [&](int other) {
        loop.watch(other, POLLIN, [&](short) { lateCalled = true; });
    };
    loop.watch(first.readEnd.get(), POLLIN, [&](short) { rewatchOther(second.readEnd.get()); });
    loop.watch(second.readEnd.get(), POLLIN, [&](short) { rewatchOther(first.readEnd.get()); });
    first.signal();
    second.signal();
    loop.step(kLimit);
    EXPECT_FALSE(lateCalled);
}

TEST(PollLoop, RunsATimerOnceWhenItIsDue) {
    PollLoop loop;
    int calls = 0;
    const wpp_test::Stopwatch watch;
    loop.after(Milliseconds(30), [&] { ++calls; });
    while (calls == 0) {
        loop.step(kLimit);
    }
    EXPECT_GE(watch.elapsed(), Milliseconds(30));
    EXPECT_LT(watch.elapsed(), kLimit);
    loop.step(Milliseconds(0));
    EXPECT_EQ(calls, 1);
}

TEST(PollLoop, RunsTimersInTheOrderOfTheirTimes) {
    PollLoop loop;
    std::vector<int> order;
    loop.after(Milliseconds(20), [&] { order.push_back(2); });
    loop.after(Milliseconds(1), [&] { order.push_back(1); });
    while (order.size() < 2) {
        loop.step(kLimit);
    }
    EXPECT_EQ(order, (std::vector<int>{1, 2}));
}

TEST(PollLoop, DoesNotRunACancelledTimer) {
    PollLoop loop;
    bool called = false;
    const PollLoop::TimerId timer = loop.after(Milliseconds(0), [&] { called = true; });
    loop.cancel(timer);
    loop.step(Milliseconds(0));
    EXPECT_FALSE(called);
}

TEST(PollLoop, RunEndsWithStop) {
    PollLoop loop;
    loop.after(Milliseconds(0), [&] { loop.stop(); });
    const wpp_test::Stopwatch watch;
    loop.run();
    EXPECT_LT(watch.elapsed(), kLimit);
}

TEST(PollLoop, StepReturnsAfterItsLimit) {
    PollLoop loop;
    const wpp_test::Stopwatch watch;
    loop.step(Milliseconds(30));
    EXPECT_GE(watch.elapsed(), Milliseconds(29));
    EXPECT_LT(watch.elapsed(), kLimit);
}

}  // namespace
}  // namespace simulator
