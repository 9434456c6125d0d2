#include <fstream>
#include <iostream>

#include "Tests/Simulator/WholeRoadFixture.h"

namespace simulator {
namespace {

using Load = WholeRoad;

/// Some of the names and numbers are each phone's own, and in each round others.
TEST_F(Load, AllDevicesAreServedTogetherTwiceInARow) {
    std::ofstream("load.json") << R"({"phones":254,"rounds":2,"limit_ms":60000,"course":[
        "process up","protocol started","settings","device","RFCOMM connected","Wi-Fi status","TCP connected",
        "TCP accepted","may it start","ready","connected","start","loss","terminate"]})";
    EXPECT_EQ(walk({"--scenario", "load.json"}), "status 0") << printed;
    EXPECT_NE(printed.find("round 2: receiver "), std::string::npos) << printed;
    std::cout << printed;
}

TEST_F(Load, RoundsAreOfOneReceiver) {
    EXPECT_EQ(walk({"--rounds", "2", "--tls", "requested"}), "status 0") << printed;
    expectStagesInOrder({"round 1: process up", "round 1: key fetched", "round 1: loss", "round 2: device",
                         "round 2: loss", "round 2: terminate"});
}

TEST_F(Load, SoakOfAMomentPasses) {
    EXPECT_EQ(walk({"--minutes", "0.05", "--seed", "5"}, "soak"), "status 0") << printed;
    EXPECT_NE(printed.find("soak: passed, seed 5"), std::string::npos) << printed;
    EXPECT_EQ(filesLeft(), 0u);
}

}  // namespace
}  // namespace simulator
