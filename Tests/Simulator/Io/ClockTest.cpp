#include "Simulator/private/Io/Clock.h"

#include <gtest/gtest.h>
#include <time.h>

namespace simulator {
namespace {

TEST(Clock, SecondsAreThoseOfTheSystemsMonotonicClock) {
    const double before = monotonicSeconds();
    timespec now{};
    ASSERT_EQ(::clock_gettime(CLOCK_MONOTONIC, &now), 0);
    const double system = static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
    EXPECT_GE(system, before - 1e-6);
    EXPECT_LE(system, monotonicSeconds() + 1e-6);
}

TEST(Deadline, HasPassedOnceNothingRemains) {
    const Deadline passed(Milliseconds(0));
    EXPECT_TRUE(passed.passed());
    EXPECT_EQ(passed.remaining(), Milliseconds(0));
}

TEST(Deadline, RemainsUntilItsLimit) {
    const Deadline ahead(Milliseconds(60000));
    EXPECT_FALSE(ahead.passed());
    EXPECT_GT(ahead.remaining(), Milliseconds(50000));
    EXPECT_LE(ahead.remaining(), Milliseconds(60000));
}

}  // namespace
}  // namespace simulator
