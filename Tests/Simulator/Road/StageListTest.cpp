#include "Simulator/private/Road/StageList.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

class StageListTest : public testing::Test {
protected:
    StageList stages{{"up", "started", "connected"}};
};

TEST_F(StageListTest, NothingIsMissingWhenAllWereReachedInOrder) {
    EXPECT_FALSE(stages.reach("up", {1, 1}));
    EXPECT_FALSE(stages.reach("started", {2, 2}));
    EXPECT_FALSE(stages.reach("connected", {3, 3}));
    EXPECT_FALSE(stages.missing());
    EXPECT_EQ(stages.reachedCount(), 3u);
}

TEST_F(StageListTest, FirstStageNotReachedIsNamed) {
    EXPECT_FALSE(stages.reach("up", {1, 1}));
    EXPECT_EQ(stages.missing(), "started");
}

TEST_F(StageListTest, StageThatLeavesOneOutIsOutOfOrder) {
    EXPECT_FALSE(stages.reach("up", {1, 1}));
    EXPECT_EQ(stages.reach("connected", {2, 2}),
              "stage \"connected\" is out of order: \"started\" is missing");
    EXPECT_EQ(stages.missing(), "started");
}

TEST_F(StageListTest, StageReachedBeforeItsForerunnerIsOutOfOrder) {
    EXPECT_FALSE(stages.reach("up", {2, 2}));
    EXPECT_EQ(stages.reach("started", {1, 3}),
              "stage \"started\" is out of order: it was reached before \"up\"");
    EXPECT_EQ(stages.missing(), "started");
}

TEST_F(StageListTest, FirstPhonesOfTwoStagesCountForTheirOrder) {
    EXPECT_FALSE(stages.reach("up", {1, 5}));
    EXPECT_FALSE(stages.reach("started", {2, 3}));
}

TEST_F(StageListTest, StageBehindTheLastIsOutOfOrder) {
    StageList none({});
    EXPECT_EQ(none.reach("up", {1, 1}), "stage \"up\" is out of order: no stage is left");
}

}  // namespace
}  // namespace simulator
