// The kills against the real receiver.

#include "Simulator/private/Torture/KillTorture.h"

#include <cstdlib>
#include <iostream>
#include <sstream>

#include "Tests/Simulator/LoopFixture.h"
#include "Tests/Support/RunWith.h"

namespace simulator {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SIMULATOR_UNDER_SANITIZER
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define SIMULATOR_UNDER_SANITIZER
#endif
#endif

// A sanitizer keeps what is freed for a while; the address sanitizer tells of what is lost in a way of its own,
// by the receiver's exit status.
#ifdef SIMULATOR_UNDER_SANITIZER
constexpr long kGrowthKiB = 1 << 20;
#else
constexpr long kGrowthKiB = 2048;
#endif

class KillTortureTest : public LoopTest, public testing::WithParamInterface<const char*> {
protected:
    KillTortureTest() {
        ::setenv("TMPDIR", directory.path().c_str(), 1);
        road.simulator = SIMULATOR_PROGRAM;
        road.receiver = RECEIVER_PROGRAM;
        road.runWith = wpp_test::runWith();
        road.scenario.tls = TlsSource::kRequested;
        road.scenario.limit = Milliseconds(20000);
        // An emulator keeps what it has translated.
        options.growthKiB = road.runWith.empty() ? kGrowthKiB : 1 << 20;
    }
    ~KillTortureTest() override { ::unsetenv("TMPDIR"); }

    int torture(std::vector<KillPoint> points) {
        options.points = std::move(points);
        return KillTorture(road, options, output).run();
    }

    static KillPoint pointThrough(const std::string& stage) {
        KillPoint point;
        point.name = "a point";
        point.victim = Road::kController;
        point.through = stage;
        return point;
    }

    bool printed(const std::string& text) const { return output.str().find(text) != std::string::npos; }

    RoadOptions road;
    TortureOptions options;
    std::ostringstream output;
};

TEST_P(KillTortureTest, ReceiverOutlivesAPeerThatIsKilledAnywhere) {
    options.victim = GetParam();
    EXPECT_EQ(torture(parseKillPoints(readFile(KILL_POINTS))), 0) << output.str();
    std::cout << output.str();
}

INSTANTIATE_TEST_SUITE_P(EveryVictim, KillTortureTest, testing::Values("controller", "bluetooth", "phone 1"),
                         [](const auto& tested) {
                             return std::string(tested.param).substr(0, std::string(tested.param).find(' '));
                         });

TEST_F(KillTortureTest, TellsOfEachPointAndOfAll) {
    options.rounds = 2;
    EXPECT_EQ(torture({pointThrough("settings")}), 0) << output.str();
    EXPECT_TRUE(printed("a point: 2 of 2 kills survived")) << output.str();
    EXPECT_TRUE(printed("torture: 2 of 2 kills at 1 points survived")) << output.str();
}

TEST_F(KillTortureTest, WhatIsNotReportedFailsTheKill) {
    road.scenario.limit = Milliseconds(5000);
    KillPoint point = pointThrough("process up");
    point.after.push_back({Road::kBluetooth, "snow"});
    EXPECT_EQ(torture({point}), 1);
    EXPECT_TRUE(printed("torture: \"a point\" failed: no \"snow\" from bluetooth")) << output.str();
    EXPECT_TRUE(printed("torture: 0 of 1 kills at 1 points survived")) << output.str();
}

TEST_F(KillTortureTest, WhatMustNotBeReportedFailsTheKill) {
    KillPoint point = pointThrough("RFCOMM connected");
    point.victim = Road::kBluetooth;
    point.after.push_back({"phone 1", "rfcomm-closed"});
    point.then = {{{Road::kController, {{"order", "send"}, {"message", 1005}, {"btDeviceId", 1}}}},
                  {{Road::kController, "reply", {{"message", 1005}}}}};
    point.never.push_back({Road::kController, "sent", {{"message", 1005}}});
    EXPECT_EQ(torture({point}), 1);
    EXPECT_TRUE(printed("there is \"sent\" {\"message\":1005} from controller all the same")) << output.str();
}

TEST_F(KillTortureTest, MemoryThatGrowsFailsTheKill) {
    options.growthKiB = -(1 << 20);
    EXPECT_EQ(torture({pointThrough("process up")}), 1);
    EXPECT_TRUE(printed("failed: the receiver's memory has grown by")) << output.str();
}

TEST_F(KillTortureTest, NoPointIsNoSuccess) {
    EXPECT_EQ(torture({}), 1);
}

}  // namespace
}  // namespace simulator
