#include "Diagnostics/QMAssert.h"

#include <gtest/gtest.h>

#include <string>

#include "Tests/Support/LogCapture.h"

namespace {

using wpp_test::LogCapture;

std::string bannerFor(const std::string& file, int line) {
    return "\033[49m#########\n#########\nASSERT Failed! - " + file + "(" + std::to_string(line) +
           ")\n#########\n#########\n\033[0m";
}

TEST(QMAssert, TrueConditionPrintsNothing) {
    LogCapture log;
    QM_ASSERT(1 + 1 == 2);
    EXPECT_EQ(log.text(), "");
}

TEST(QMAssert, FalseConditionPrintsTheBannerWithTheFullPath) {
    LogCapture log;
    const int line = __LINE__ + 1;
    QM_ASSERT(1 + 1 == 3);
    EXPECT_EQ(log.text().rfind(bannerFor("Tests/QMFramework92/Diagnostics/QMAssertTest", line), 0), 0U);
}

TEST(QMAssert, FalseConditionDumpsTheStackBehindTheBanner) {
    LogCapture log;
    QM_ASSERT(1 + 1 == 3);
    EXPECT_GT(log.count("[error] dumpDirectly()@QMCallStack("), 3U);
}

TEST(QMAssert, CodeBehindAFalseConditionStillRuns) {
    LogCapture log;
    bool reached = false;
    QM_ASSERT(!log.text().empty());
    reached = true;
    EXPECT_TRUE(reached);
    EXPECT_TRUE(log.contains("ASSERT Failed! - "));
}

TEST(QMAssert, ConditionIsEvaluatedOnce) {
    LogCapture log;
    int evaluations = 0;
    QM_ASSERT(++evaluations == 1);
    EXPECT_EQ(evaluations, 1);
}

TEST(QMAssert, KnownFailureReportsItsPlace) {
    LogCapture log;
    const int line = __LINE__ + 1;
    QM_ASSERT_FAILED();
    EXPECT_EQ(log.text().rfind(bannerFor("Tests/QMFramework92/Diagnostics/QMAssertTest", line), 0), 0U);
}

}  // namespace
