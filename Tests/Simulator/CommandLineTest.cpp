#include "Simulator/private/CommandLine.h"

#include <filesystem>
#include <fstream>

#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

class CommandLineTest : public LoopTest {
protected:
    CommandLineTest() { std::ofstream("WppReceiver") << "stands for the program"; }

    std::optional<CommandLine> parse(const std::vector<std::string>& arguments) {
        return CommandLine::parse(arguments, (directory.path() / "wpp-simulator").string(), output, errors,
                                  status);
    }

    std::ostringstream output;
    std::ostringstream errors;
    int status = -1;
};

TEST_F(CommandLineTest, EachSubCommandIsARole) {
    EXPECT_EQ(parse({"controller"})->role, Role::kController);
    EXPECT_EQ(parse({"bluetooth"})->role, Role::kBluetooth);
    EXPECT_EQ(parse({"phone", "--client-id", "x"})->role, Role::kPhone);
    EXPECT_EQ(parse({"road"})->role, Role::kRoad);
}

TEST_F(CommandLineTest, TortureTakesItsPointsAndRounds) {
    std::ofstream("kills.json") << R"({"points":[{"point":"p","victim":"controller","through":"ready"}]})";
    const auto line = parse({"torture", "--points", "kills.json", "--rounds", "14", "--victim", "phone 1"});
    ASSERT_TRUE(line) << errors.str();
    EXPECT_EQ(line->role, Role::kTorture);
    EXPECT_EQ(line->torture.points.size(), 1u);
    EXPECT_EQ(line->torture.rounds, 14);
    EXPECT_EQ(line->torture.victim, "phone 1");
    EXPECT_EQ(line->road.scenario.tls, TlsSource::kRequested);
}

TEST_F(CommandLineTest, TortureNeedsPoints) {
    EXPECT_FALSE(parse({"torture"}));
    EXPECT_EQ(status, 2);
}

TEST_F(CommandLineTest, PhoneTakesItsIdentity) {
    const auto line =
        parse({"phone", "--device", "7", "--client-id", "x", "--name", "n", "--description", "d"});
    ASSERT_TRUE(line);
    EXPECT_EQ(line->phone.device, 7);
    EXPECT_EQ(line->phone.clientId, "x");
    EXPECT_EQ(line->phone.name, "n");
    EXPECT_EQ(line->phone.description, "d");
}

TEST_F(CommandLineTest, PhoneNeedsAClientId) {
    EXPECT_FALSE(parse({"phone"}));
    EXPECT_EQ(status, 2);
    EXPECT_NE(errors.str().find("--client-id"), std::string::npos);
}

TEST_F(CommandLineTest, RoadHasOnePhoneAndConfiguredMaterialByDefault) {
    const auto line = parse({"road"});
    ASSERT_TRUE(line);
    EXPECT_EQ(line->road.scenario.phones, 1);
    EXPECT_EQ(line->road.scenario.tls, TlsSource::kConfigured);
    EXPECT_EQ(line->road.receiver, (directory.path() / "WppReceiver").string());
    EXPECT_EQ(line->road.simulator, (directory.path() / "wpp-simulator").string());
    EXPECT_FALSE(line->road.verbose);
    EXPECT_EQ(line->road.keepLog, "");
    EXPECT_EQ(line->road.runWith, "");
}

TEST_F(CommandLineTest, RoadTakesItsOptions) {
    std::ofstream("Other") << "stands for another program";
    const auto line = parse({"road", "--phones", "254", "--tls", "requested", "--receiver", "Other",
                             "--keep-log", "logs", "--verbose", "--run-with", "Other"});
    ASSERT_TRUE(line) << errors.str();
    EXPECT_EQ(line->road.scenario.phones, 254);
    EXPECT_EQ(line->road.scenario.tls, TlsSource::kRequested);
    EXPECT_EQ(std::filesystem::path(line->road.receiver), std::filesystem::current_path() / "Other");
    EXPECT_EQ(std::filesystem::path(line->road.runWith), std::filesystem::current_path() / "Other");
    EXPECT_EQ(line->road.keepLog, "logs");
    EXPECT_TRUE(line->road.verbose);
}

TEST_F(CommandLineTest, ScenarioFileIsReadAndOptionsOverrideIt) {
    std::ofstream("scenario.json") << R"({"phones":3,"tls":"requested","limit_ms":77})";
    const auto asWritten = parse({"road", "--scenario", "scenario.json"});
    ASSERT_TRUE(asWritten);
    EXPECT_EQ(asWritten->road.scenario.phones, 3);
    EXPECT_EQ(asWritten->road.scenario.limit, Milliseconds(77));
    const auto overridden =
        parse({"road", "--scenario", "scenario.json", "--phones", "5", "--tls", "configured"});
    ASSERT_TRUE(overridden);
    EXPECT_EQ(overridden->road.scenario.phones, 5);
    EXPECT_EQ(overridden->road.scenario.tls, TlsSource::kConfigured);
    EXPECT_EQ(overridden->road.scenario.limit, Milliseconds(77));
}

TEST_F(CommandLineTest, ScenarioThatCannotBeUnderstoodIsAUsageError) {
    std::ofstream("scenario.json") << "{\"course\":[\"take-off\"]}";
    EXPECT_FALSE(parse({"road", "--scenario", "scenario.json"}));
    EXPECT_EQ(status, 2);
    EXPECT_EQ(errors.str(), "wpp-simulator: scenario.json: the road has no stage \"take-off\"\n");
}

TEST_F(CommandLineTest, WrongValuesAreUsageErrors) {
    for (const std::vector<std::string>& arguments :
         std::vector<std::vector<std::string>>{{},
                                               {"fly"},
                                               {"road", "--phones", "0"},
                                               {"road", "--phones", "255"},
                                               {"road", "--rounds", "0"},
                                               {"soak", "--minutes", "0"},
                                               {"road", "--tls", "maybe"},
                                               {"road", "--scenario", "missing.json"},
                                               {"road", "--receiver", "missing"},
                                               {"phone", "--client-id", "x", "--device", "255"}}) {
        status = -1;
        EXPECT_FALSE(parse(arguments)) << testing::PrintToString(arguments);
        EXPECT_EQ(status, 2) << testing::PrintToString(arguments);
    }
}

TEST_F(CommandLineTest, HelpGoesToTheOutput) {
    EXPECT_FALSE(parse({"--help"}));
    EXPECT_EQ(status, 0);
    EXPECT_NE(output.str().find("road"), std::string::npos);
    EXPECT_EQ(errors.str(), "");
}

}  // namespace
}  // namespace simulator
