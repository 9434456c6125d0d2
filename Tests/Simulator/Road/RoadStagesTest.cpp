#include "Simulator/private/Road/RoadStages.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace simulator {
namespace {

TEST(RoadStages, WholeRoadIsInTheOrderInWhichAPhoneTakesIt) {
    EXPECT_EQ(wholeRoad(TlsSource::kConfigured),
              (std::vector<std::string>{"process up", "protocol started", "settings", "device",
                                        "RFCOMM connected", "Wi-Fi status", "TCP connected", "TCP accepted",
                                        "may it start", "ready", "connected", "start", "start stopped",
                                        "start again", "loss", "terminate"}));
}

TEST(RoadStages, MaterialIsFetchedBetweenConnectingAndTls) {
    const std::vector<std::string> names = wholeRoad(TlsSource::kRequested);
    const auto fetched = std::find(names.begin(), names.end(), "key fetched");
    ASSERT_NE(fetched, names.end());
    EXPECT_EQ(*(fetched - 1), "TCP connected");
    EXPECT_EQ(*(fetched + 1), "TCP accepted");
    EXPECT_EQ(names.size(), wholeRoad(TlsSource::kConfigured).size() + 1);
}

TEST(RoadStages, StagesAreFoundByTheirNames) {
    ASSERT_NE(findRoadStage("loss"), nullptr);
    EXPECT_STREQ(findRoadStage("loss")->name, "loss");
    EXPECT_EQ(findRoadStage("Loss"), nullptr);
}

TEST(RoadStages, EveryStageNamesTheMessagesThatMakeIt) {
    EXPECT_STREQ(findRoadStage("key fetched")->messages, "2007, 1011");
    EXPECT_STREQ(findRoadStage("start")->messages, "1006, 2002");
    EXPECT_STREQ(findRoadStage("process up")->messages, "");
}

}  // namespace
}  // namespace simulator
