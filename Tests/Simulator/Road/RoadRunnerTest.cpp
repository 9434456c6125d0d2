#include "Simulator/private/Road/RoadRunner.h"

#include <filesystem>
#include <fstream>

#include "Tests/Simulator/LoopFixture.h"
#include "Tests/Support/RunWith.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

class RoadRunnerTest : public LoopTest {
protected:
    RoadRunnerTest() {
        options.simulator = SIMULATOR_PROGRAM;
        options.runWith = wpp_test::runWith();
        options.receiver = "/bin/false";
    }

    int run(const std::string& scenario) {
        options.scenario = Scenario::parse(scenario);
        return RoadRunner(options, output).run();
    }

    bool printed(const std::string& text) const { return output.str().find(text) != std::string::npos; }

    RoadOptions options;
    std::ostringstream output;
};

TEST_F(RoadRunnerTest, PrintsEachStageAndTheEnd) {
    EXPECT_EQ(run(R"({"course":[
        {"stage":"controller comes","orders":[{"to":"road","order":"restart","peer":"controller"}],
         "expect":[{"from":"controller","event":"listening"}]},
        {"stage":"controller goes","orders":[{"to":"controller","order":"end"}],
         "expect":[{"from":"controller","event":"exit","where":{"status":0}}]}]})"),
              0)
        << output.str();
    EXPECT_TRUE(printed("] controller comes\n"));
    EXPECT_TRUE(printed("] controller goes\n"));
    EXPECT_TRUE(printed("road: every stage reached, 2 stages with 1 phone in"));
}

TEST_F(RoadRunnerTest, StageThatIsNotReachedIsNamedWithTheReason) {
    EXPECT_EQ(run(R"({"course":[
        {"stage":"controller comes","orders":[{"to":"road","order":"restart","peer":"controller"}]},
        {"stage":"it snows","expect":[{"from":"controller","event":"snow","within_ms":50}]},
        {"stage":"never"}]})"),
              1);
    EXPECT_TRUE(printed("road: stage \"it snows\" failed: no \"snow\" from controller within 50 ms\n"))
        << output.str();
    EXPECT_TRUE(printed("--- last lines of controller\n"));
    EXPECT_TRUE(printed("road: failed at \"it snows\", 1 of 3 stages reached with 1 phone\n"));
}

TEST_F(RoadRunnerTest, StageReachedBeforeItsForerunnerIsNamed) {
    EXPECT_EQ(run(R"({"course":[
        {"stage":"first","orders":[{"to":"road","order":"restart","peer":"controller"}],
         "expect":[{"from":"controller","event":"listening"}]},
        {"stage":"second","orders":[{"to":"controller","order":"die"}],
         "expect":[{"from":"controller","event":"exit"}]},
        {"stage":"third","expect":[{"from":"controller","event":"dying"}]}]})"),
              1);
    EXPECT_TRUE(printed("stage \"third\" is out of order: it was reached before \"second\"")) << output.str();
}

TEST_F(RoadRunnerTest, ReceiverThatEndsAtOnceFailsTheFirstStage) {
    EXPECT_EQ(run("{}"), 1);
    EXPECT_TRUE(printed("road: stage \"process up\" failed: the receiver has ended;")) << output.str();
    EXPECT_TRUE(printed("road: failed at \"process up\", 0 of 16 stages reached with 1 phone\n"));
}

TEST_F(RoadRunnerTest, ReceiverThatCannotBeStartedFailsTheFirstStage) {
    options.receiver = "/missing/receiver";
    EXPECT_EQ(run("{}"), 1);
    EXPECT_TRUE(printed("road: stage \"process up\" failed: start /missing/receiver: No such file"))
        << output.str();
}

TEST_F(RoadRunnerTest, StagesOfThePhonesAreTakenInEachRound) {
    EXPECT_EQ(run(R"({"rounds":3,"course":[
        {"stage":"here","orders":[{"to":"road","order":"restart","peer":"controller"}]},{"stage":"there"}]})"),
              0)
        << output.str();
    for (const char* const line : {"] round 1: here\n", "] round 1: there\n", "] round 3: here\n",
                                   "] round 2: receiver 0.0 MB, 0 descriptors, 0 waits, 0 threads; at most",
                                   "road: every stage reached, 6 stages with 1 phone in",
                                   "road: after 3 rounds the receiver is as after 2: 0.0 MB,"}) {
        EXPECT_TRUE(printed(line)) << line << "\n" << output.str();
    }
}

TEST_F(RoadRunnerTest, NotificationLeftAtTheEndOfARoundFailsIt) {
    const std::string told = R"(echo '{"event":"notification","time":1e9}')";
    std::ofstream("teller") << "#!/bin/sh\n" << told << "\n" << told << "\nexec sleep 100\n";
    fs::permissions("teller", fs::perms::owner_all);
    options.simulator = fs::absolute("teller").string();
    options.runWith.clear();
    EXPECT_EQ(run(R"({"rounds":2,"course":[
        {"stage":"told","orders":[{"to":"road","order":"restart","peer":"controller"}],
         "expect":[{"from":"controller","event":"notification"}]}]})"),
              1);
    EXPECT_TRUE(printed("failed: the controller was told more than there was to tell")) << output.str();
}

TEST_F(RoadRunnerTest, TimesOfManyPhonesAreTheFirstOnesAndTheLastOnes) {
    EXPECT_EQ(run(R"({"phones":2,"course":[{"stage":"nothing"}]})"), 0);
    EXPECT_TRUE(printed("] nothing, last phone ")) << output.str();
}

}  // namespace
}  // namespace simulator
