#include <csignal>
#include <fstream>

#include "Simulator/private/Road/RoadStages.h"
#include "Tests/Simulator/WholeRoadFixture.h"

namespace simulator {
namespace {

std::vector<std::string> scenario(const std::string& name) {
    return {"--scenario", std::string(SCENARIO_DIRECTORY) + "/" + name + ".json"};
}

TEST_F(WholeRoad, EveryStageIsReachedWithConfiguredMaterial) {
    EXPECT_EQ(walk({"--tls", "configured"}), "status 0") << printed;
    expectStagesInOrder(wholeRoad(TlsSource::kConfigured));
    EXPECT_EQ(filesLeft(), 0u);
}

TEST_F(WholeRoad, EveryStageIsReachedWithRequestedMaterial) {
    EXPECT_EQ(walk({"--tls", "requested"}), "status 0") << printed;
    expectStagesInOrder(wholeRoad(TlsSource::kRequested));
    EXPECT_EQ(filesLeft(), 0u);
}

TEST_F(WholeRoad, TwelvePhonesTakeItTogether) {
    EXPECT_EQ(walk({"--phones", "12", "--tls", "requested"}), "status 0") << printed;
    expectStagesInOrder(wholeRoad(TlsSource::kRequested));
}

TEST_F(WholeRoad, ScenarioWithItsOwnSettingsReachesEveryStage) {
    EXPECT_EQ(walk(scenario("two-phones")), "status 0") << printed;
}

TEST_F(WholeRoad, HostilePhonesAreTurnedAway) {
    EXPECT_EQ(walk(scenario("hostile-phones")), "status 0") << printed;
}

TEST_F(WholeRoad, ReceiverOutlivesAnUnhelpfulController) {
    EXPECT_EQ(walk(scenario("unhelpful-controller")), "status 0") << printed;
}

TEST_F(WholeRoad, ReceiverOutlivesABrokenBluetoothProcess) {
    EXPECT_EQ(walk(scenario("broken-bluetooth")), "status 0") << printed;
}

TEST_F(WholeRoad, InterruptEndsEveryProcessAndLeavesNothingBehind) {
    std::ofstream("endless.json")
        << R"({"course":["process up",{"stage":"wait","expect":[{"from":"controller","event":"snow"}]}]})";
    start({"--scenario", "endless.json", "--verbose"});
    ASSERT_TRUE(readUntil("] process up")) << printed;
    ASSERT_EQ(::kill(child->id(), SIGTERM), 0);
    // The output ends only when no process holds its other end any more.
    EXPECT_EQ(end(), "status 1");
    EXPECT_NE(printed.find("road: stage \"wait\" failed: interrupted by signal 15"), std::string::npos)
        << printed;
    EXPECT_EQ(filesLeft(), 1u);  // the scenario
}

TEST_F(WholeRoad, UsageErrorHasAStatusOfItsOwn) {
    EXPECT_EQ(walk({"--phones", "0"}), "status 2");
}

}  // namespace
}  // namespace simulator
