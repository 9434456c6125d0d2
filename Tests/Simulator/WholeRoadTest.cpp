#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>

#include "Simulator/private/Road/ChildProcess.h"
#include "Simulator/private/Road/RoadStages.h"
#include "Tests/Simulator/LoopFixture.h"
#include "Tests/Support/RunWith.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

/// Runs the program with the real receiver, as its user does.
class WholeRoad : public LoopTest {
protected:
    WholeRoad() { ::setenv("TMPDIR", directory.path().c_str(), 1); }
    ~WholeRoad() override { ::unsetenv("TMPDIR"); }

    void start(const std::vector<std::string>& options) {
        std::vector<std::string> command{SIMULATOR_PROGRAM, "road", "--receiver", RECEIVER_PROGRAM};
        if (const std::string runner = wpp_test::runWith(); !runner.empty()) {
            command.insert(command.begin(), runner);
            command.insert(command.end(), {"--run-with", runner});
        }
        command.insert(command.end(), options.begin(), options.end());
        const std::string program = command.front();
        command.erase(command.begin());
        child = std::make_unique<ChildProcess>(program, command, directory.path().string());
        output = child->takeOutput();
    }

    /// Reads what the program prints until `text` is there or its output ends.
    bool readUntil(const std::string& text) {
        char chunk[4096];
        while (printed.find(text) == std::string::npos) {
            const ssize_t size = ::read(output.get(), chunk, sizeof(chunk));
            if (size <= 0) {
                return false;
            }
            printed.append(chunk, static_cast<std::size_t>(size));
        }
        return true;
    }

    /// Reads to the end of the output. @return how the program ended.
    std::string end() {
        readUntil(std::string(1, '\0'));
        stepUntil([&] { return child->poll().has_value(); });
        return describeStatus(child->poll().value());
    }

    std::string walk(const std::vector<std::string>& options) {
        start(options);
        return end();
    }

    void expectStagesInOrder(const std::vector<std::string>& names) const {
        std::size_t at = 0;
        for (const std::string& name : names) {
            at = printed.find("] " + name, at);
            ASSERT_NE(at, std::string::npos) << name << "\n" << printed;
        }
    }

    std::size_t filesLeft() const {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory.path()), {}));
    }

    std::unique_ptr<ChildProcess> child;
    UniqueFd output;
    std::string printed;
};

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

/// Some of the names and numbers are each phone's own, and in each round others.
TEST_F(WholeRoad, AllDevicesAreServedTogetherTwiceInARow) {
    std::ofstream("load.json") << R"({"phones":254,"rounds":2,"limit_ms":60000,"course":[
        "process up","protocol started","settings","device","RFCOMM connected","Wi-Fi status","TCP connected",
        "TCP accepted","may it start","ready","connected","start","loss","terminate"]})";
    EXPECT_EQ(walk({"--scenario", "load.json"}), "status 0") << printed;
    EXPECT_NE(printed.find("round 2: receiver "), std::string::npos) << printed;
    std::cout << printed;
}

TEST_F(WholeRoad, RoundsAreOfOneReceiver) {
    EXPECT_EQ(walk({"--rounds", "2", "--tls", "requested"}), "status 0") << printed;
    expectStagesInOrder({"round 1: process up", "round 1: key fetched", "round 1: loss", "round 2: device",
                         "round 2: loss", "round 2: terminate"});
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
