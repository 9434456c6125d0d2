#include "Tests/Support/Deadline.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using wpp_test::Deadline;
using wpp_test::Stopwatch;
using wpp_test::waitUntil;

TEST(Deadline, PassesAfterItsLimit) {
    const Deadline deadline(milliseconds(20));
    EXPECT_LE(deadline.remaining(), milliseconds(20));
    EXPECT_TRUE(waitUntil([&deadline] { return deadline.passed(); }));
    EXPECT_EQ(deadline.remaining(), milliseconds(0));
}

TEST(Deadline, GenerousLimitIsFarAway) {
    EXPECT_FALSE(Deadline().passed());
}

TEST(WaitUntil, ReturnsAsSoonAsThePredicateIsTrue) {
    int calls = 0;
    EXPECT_TRUE(waitUntil([&calls] { return ++calls == 3; }));
    EXPECT_EQ(calls, 3);
}

TEST(WaitUntil, GivesUpAtItsLimit) {
    const Stopwatch stopwatch;
    EXPECT_FALSE(waitUntil([] { return false; }, milliseconds(30)));
    EXPECT_GE(stopwatch.elapsed(), milliseconds(29));
    EXPECT_LT(stopwatch.elapsed(), wpp_test::kGenerousLimit);
}

TEST(ShortestOf, MeasuresOnceWhenTheFirstTimeIsBelowTheLimit) {
    int measured = 0;
    EXPECT_EQ(wpp_test::shortestOf(milliseconds(10), [&] { return milliseconds(++measured); }),
              milliseconds(1));
    EXPECT_EQ(measured, 1);
}

TEST(ShortestOf, GivesTheShortestOfFiveThatAllLieAbove) {
    int measured = 0;
    EXPECT_EQ(wpp_test::shortestOf(milliseconds(10), [&] { return milliseconds(20 - ++measured); }),
              milliseconds(15));
}

}  // namespace
