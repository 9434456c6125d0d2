#include "Simulator/private/Road/Road.h"

#include <signal.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "Tests/Simulator/LoopFixture.h"
#include "Tests/Support/RunWith.h"

namespace simulator {
namespace {

namespace fs = std::filesystem;

/// A road with real peers; where the receiver should be there is a script.
class RoadTest : public LoopTest {
protected:
    RoadTest() {
        ::setenv("TMPDIR", directory.path().c_str(), 1);
        options.simulator = SIMULATOR_PROGRAM;
        options.runWith = wpp_test::runWith();
        options.scenario.limit = Milliseconds(10000);
    }
    ~RoadTest() override { ::unsetenv("TMPDIR"); }

    void useReceiver(const std::string& script) {
        options.receiver = (directory.path() / "receiver").string();
        std::ofstream(options.receiver) << "#!/bin/sh\n" << script << "\n";
        fs::permissions(options.receiver, fs::perms::owner_all);
    }

    static Expectation expect(const std::string& from, const std::string& name,
                              Milliseconds within = Milliseconds(0)) {
        return {from, name, Json::object(), Json::object(), within};
    }

    template <typename Action>
    static std::string failureOf(Action action) {
        try {
            action();
        } catch (const StageFailure& failure) {
            return failure.what();
        }
        return {};
    }

    RoadOptions options;
    std::ostringstream output;
};

TEST_F(RoadTest, GivesOrdersAndWaitsForWhatComesOfThem) {
    Road road(options, output);
    road.launch(Road::kController);
    EXPECT_EQ(road.prove(expect(Road::kController, "listening")).details["socket"], "WPP_SOCKET_FROM_WPP");
    road.order(Road::kController, {{"order", "end"}});
    EXPECT_EQ(road.prove(expect(Road::kController, "exit")).details["status"], 0);
    const StageTimes times = road.takeProof();
    EXPECT_LT(times.first, times.last);
}

TEST_F(RoadTest, EachProcessRunsWithTheProgramThatIsToRunIt) {
    useReceiver("echo run itself");
    const fs::path runner = directory.path() / "runner";
    std::ofstream(runner) << "#!/bin/sh\necho \"run $(basename $1) with $#\"\n";
    fs::permissions(runner, fs::perms::owner_all);
    options.runWith = runner.string();
    options.verbose = true;
    Road road(options, output);
    road.launch(Road::kReceiver);
    EXPECT_EQ(road.prove(expect(Road::kReceiver, "exit")).details["status"], 0);
    EXPECT_NE(output.str().find("run receiver with 1"), std::string::npos) << output.str();
    EXPECT_EQ(output.str().find("run itself"), std::string::npos);
}

TEST_F(RoadTest, WhatIsForgottenIsNotThereAnyMore) {
    Road road(options, output);
    road.launch(Road::kController);
    road.launch(Road::kBluetooth);
    road.await(expect(Road::kBluetooth, "listening"));
    road.idle(Milliseconds(1));
    road.forgetAll();
    road.order(Road::kBluetooth, {{"order", "end"}});
    EXPECT_EQ(road.await(expect(Road::kBluetooth, "exit")).details["status"], 0);
    EXPECT_EQ(failureOf([&] { road.refuse(expect(Road::kBluetooth, "listening"), "it is there"); }), "");
}

TEST_F(RoadTest, IdleTimeIsTakenAndTheProcessesGoOnMeanwhile) {
    Road road(options, output);
    road.launch(Road::kController);
    EXPECT_GT(road.processId(Road::kController), 0);
    const wpp_test::Stopwatch watch;
    road.idle(Milliseconds(50));
    EXPECT_GE(watch.elapsed(), Milliseconds(49));
    EXPECT_FALSE(road.isInterrupted());
}

TEST_F(RoadTest, WaitThatTakesTooLongFails) {
    Road road(options, output);
    road.launch(Road::kBluetooth);
    const wpp_test::Stopwatch watch;
    EXPECT_EQ(failureOf([&] { road.await(expect(Road::kBluetooth, "snow", Milliseconds(60))); }),
              "no \"snow\" from bluetooth within 60 ms");
    EXPECT_GE(watch.elapsed(), Milliseconds(60));
    EXPECT_LT(watch.elapsed(), wpp_test::kGenerousLimit);
}

TEST_F(RoadTest, RefusedOrderFailsTheNextWaitAtOnce) {
    Road road(options, output);
    road.launch(Road::kController);
    road.order(Road::kController, {{"order", "dance"}});
    EXPECT_NE(failureOf([&] {
                  road.await(expect(Road::kController, "dance"));
              }).find("controller refused an order"),
              std::string::npos);
}

TEST_F(RoadTest, EndOfTheProcessWaitedForFailsAtOnce) {
    Road road(options, output);
    road.launch(Road::kController);
    road.order(Road::kController, {{"order", "die"}});
    EXPECT_EQ(failureOf([&] { road.await(expect(Road::kController, "snow")); }),
              "controller has ended; no \"snow\" from controller");
}

TEST_F(RoadTest, EndOfTheReceiverFailsEveryWait) {
    useReceiver("exit 1");
    Road road(options, output);
    road.launch(Road::kController);
    road.launch(Road::kReceiver);
    EXPECT_EQ(failureOf([&] { road.await(expect(Road::kController, "snow")); }),
              "the receiver has ended; no \"snow\" from controller");
}

TEST_F(RoadTest, SignalFailsTheNextWait) {
    Road road(options, output);
    road.launch(Road::kController);
    ASSERT_EQ(::kill(::getpid(), SIGTERM), 0);
    EXPECT_EQ(failureOf([&] { road.await(expect(Road::kController, "snow")); }), "interrupted by signal 15");
}

TEST_F(RoadTest, ForgottenEventsAreNotTaken) {
    useReceiver("echo one; read line");
    Road road(options, output);
    road.launch(Road::kReceiver);
    const Expectation log{Road::kReceiver, "log", {{"line", "one"}}, Json::object(), Milliseconds(50)};
    Expectation generous = log;
    generous.within = Milliseconds(10000);
    road.await(generous);
    road.launch(Road::kController);
    road.await(expect(Road::kController, "listening"));
    road.forget(log);
    EXPECT_NE(failureOf([&] { road.await(log); }), "");
}

TEST_F(RoadTest, EventThatMustNotBeThereFails) {
    Road road(options, output);
    road.launch(Road::kController);
    road.refuse(expect(Road::kController, "snow"), "it snows");
    road.order(Road::kController, {{"order", "die"}});
    road.await(expect(Road::kController, "exit"));
    EXPECT_EQ(failureOf([&] { road.refuse(expect(Road::kController, "dying"), "it dies"); }), "it dies");
}

TEST_F(RoadTest, ProcessThatWasNeverLaunchedIsNamed) {
    Road road(options, output);
    EXPECT_EQ(failureOf([&] {
                  road.order("postman", {{"order", "ring"}});
              }),
              "there is no process \"postman\"");
}

TEST_F(RoadTest, KillsAndRestartsPeersOnOrder) {
    Road road(options, output);
    road.launch(Road::kController);
    road.await(expect(Road::kController, "listening"));
    road.order("road", {{"order", "restart"}, {"peer", "controller"}});
    road.await(expect(Road::kController, "listening"));
    road.order("road", {{"order", "kill"}, {"peer", "controller"}});
    EXPECT_EQ(failureOf([&] { road.await(expect(Road::kController, "x")); }),
              "there is no process \"controller\"");
    EXPECT_EQ(failureOf([&] {
                  road.order("road", {{"order", "repave"}});
              }),
              "the road does not know the order \"repave\"");
}

TEST_F(RoadTest, LeavesNothingBehind) {
    {
        Road road(options, output);
        road.launch(Road::kController);
        road.await(expect(Road::kController, "listening"));
        EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), {}), 1);
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), {}), 0);
}

TEST_F(RoadTest, KeepsTheOutputOfEveryProcessIfAsked) {
    options.keepLog = "logs";
    {
        Road road(options, output);
        road.launch("phone 1");
        road.order("phone 1", {{"order", "close"}, {"link", "rfcomm"}});
        road.await(expect("phone 1", "closed"));
    }
    EXPECT_NE(readFile("logs/phone-1.jsonl").find("\"event\":\"closed\""), std::string::npos);
}

TEST_F(RoadTest, ShowsEveryLineWhenVerbose) {
    options.verbose = true;
    Road road(options, output);
    road.launch(Road::kController);
    road.await(expect(Road::kController, "listening"));
    EXPECT_EQ(output.str().rfind("controller: {\"event\":\"listening\"", 0), 0u) << output.str();
}

TEST_F(RoadTest, DescribesTheHeadUnitAndTheProcessInQuestion) {
    options.scenario.phones = 2;
    Road road(options, output);
    for (const char* const name : {"controller", "phone 1", "phone 2"}) {
        road.launch(name);
    }
    std::ostringstream text;
    road.describeProcesses("phone 2", text);
    EXPECT_NE(text.str().find("--- last lines of controller"), std::string::npos);
    EXPECT_NE(text.str().find("--- last lines of phone 2"), std::string::npos);
    EXPECT_EQ(text.str().find("--- last lines of phone 1"), std::string::npos);
}

}  // namespace
}  // namespace simulator
