#include "private/StepClock.h"

#include <gtest/gtest.h>

namespace wifi_projection_protocol {
namespace {

using std::chrono::milliseconds;

TEST(StepClock, HasNoDeadlineAtFirst) {
    const StepClock clock;
    EXPECT_EQ(clock.next(), Supervised::kNoDeadline);
    EXPECT_FALSE(clock.isRunning(Step::kHello));
}

TEST(StepClock, DeadlineIsTheLimitFromNow) {
    StepClock clock;
    const auto before = StepClock::Clock::now();
    clock.begin(Step::kHello, milliseconds(500));
    const auto after = StepClock::Clock::now();
    EXPECT_GE(clock.next(), before + milliseconds(500));
    EXPECT_LE(clock.next(), after + milliseconds(500));
    EXPECT_TRUE(clock.isRunning(Step::kHello));
}

TEST(StepClock, EarliestDeadlineComesNext) {
    StepClock clock;
    clock.begin(Step::kStartResult, milliseconds(60000));
    const auto late = clock.next();
    clock.begin(Step::kMessage, milliseconds(1));
    EXPECT_LT(clock.next(), late);
    clock.end(Step::kMessage);
    EXPECT_EQ(clock.next(), late);
}

TEST(StepClock, NoDeadlineIsLeftAfterTheLastStep) {
    StepClock clock;
    clock.begin(Step::kHello, milliseconds(1));
    clock.end(Step::kHello);
    EXPECT_EQ(clock.next(), Supervised::kNoDeadline);
}

}  // namespace
}  // namespace wifi_projection_protocol
