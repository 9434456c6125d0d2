#include "Simulator/private/CommandLine.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <filesystem>

namespace simulator {

namespace {

constexpr int kUsageError = 2;
constexpr double kSoakMinutes = 30;
constexpr double kMillisecondsPerMinute = 60000;

/// Options as they stand on the command line; those left out do not override the scenario.
struct RoadFlags {
    std::optional<int> phones;
    std::optional<int> rounds;
    std::optional<std::string> tls;
    std::string scenarioFile;
};

void addPhone(CLI::App& app, PhoneIdentity& phone) {
    CLI::App* const command =
        app.add_subcommand("phone", "Play a phone: orders on standard input, events on standard output");
    command
        ->add_option("--device", phone.device, "Its id with the head unit's Bluetooth process, 1 if left out")
        ->check(CLI::Range(0, 254));
    command->add_option("--client-id", phone.clientId, "How it calls itself to the receiver")->required();
    command->add_option("--name", phone.name, "Its name");
    command->add_option("--description", phone.description, "Its description");
}

/// Which processes there are and what becomes of their output.
void addProcesses(CLI::App& command, RoadOptions& road) {
    command.add_option("--receiver", road.receiver, "The receiver's program")
        ->check(CLI::ExistingFile)
        ->capture_default_str();
    command
        .add_option("--run-with", road.runWith,
                    "A program, such as an emulator, that gets each process's program and arguments to run")
        ->check(CLI::ExistingFile);
    command.add_option("--keep-log", road.keepLog, "Keep the output of every process in this directory");
}

void addRoad(CLI::App& app, RoadOptions& road, RoadFlags& flags) {
    CLI::App* const command =
        app.add_subcommand("road", "Start the receiver and its peers and take phones along the whole road");
    command->add_option("--phones", flags.phones, "How many phones, each from a loopback address of its own")
        ->check(CLI::Range(1, Scenario::kMostPhones));
    command->add_option("--rounds", flags.rounds, "How often the phones take the road, with one receiver")
        ->check(CLI::Range(1, Scenario::kMostRounds));
    command
        ->add_option("--tls", flags.tls,
                     "Where the receiver gets its TLS material from: configured, requested")
        ->check(CLI::IsMember({"configured", "requested"}));
    command->add_option("--scenario", flags.scenarioFile, "Read the course from this JSON file")
        ->check(CLI::ExistingFile);
    addProcesses(*command, road);
    command->add_flag("--verbose", road.verbose, "Show every line of every process");
}

void addTorture(CLI::App& app, RoadOptions& road, TortureOptions& torture, std::string& pointsFile) {
    CLI::App* const command = app.add_subcommand(
        "torture", "Kill the controller, the Bluetooth process and the phone at every point of a list");
    command->add_option("--points", pointsFile, "The list of points, a JSON file")
        ->check(CLI::ExistingFile)
        ->required();
    command->add_option("--rounds", torture.rounds, "How many kills at each point")
        ->check(CLI::PositiveNumber);
    command
        ->add_option("--victim", torture.victim,
                     "Only the points of this one: controller, bluetooth, phone 1")
        ->check(CLI::IsMember({"controller", "bluetooth", "phone 1"}));
    command->add_option("--growth", torture.growthKiB, "The most KiB that the receiver may grow by one kill")
        ->capture_default_str();
    addProcesses(*command, road);
    command->add_flag("--verbose", road.verbose, "Show every line of every process");
}

void addSoak(CLI::App& app, CommandLine& line, double& minutes) {
    CLI::App* const command = app.add_subcommand(
        "soak",
        "Mix everything in one receiver for a long time: phones that come and go, strangers, commands");
    command->add_option("--minutes", minutes, "How long, 30 if left out")->check(CLI::PositiveNumber);
    command->add_option("--seed", line.soak.seed, "Of the order in which things happen")
        ->capture_default_str();
    addProcesses(*command, line.road);
}

Scenario readScenario(const std::string& file) {
    try {
        return Scenario::parse(readFile(file));
    } catch (const JsonError& error) {
        throw JsonError(file + ": " + error.what());
    }
}

Scenario scenarioOf(const RoadFlags& flags) {
    Scenario scenario = flags.scenarioFile.empty() ? Scenario::ordinary() : readScenario(flags.scenarioFile);
    scenario.phones = flags.phones.value_or(scenario.phones);
    scenario.rounds = flags.rounds.value_or(scenario.rounds);
    if (flags.tls) {
        scenario.tls = tlsSourceOf(*flags.tls);
    }
    return scenario;
}

Role roleOf(const CLI::App& app) {
    const std::string name = app.get_subcommands().front()->get_name();
    if (name == "controller") {
        return Role::kController;
    }
    if (name == "bluetooth") {
        return Role::kBluetooth;
    }
    if (name == "phone") {
        return Role::kPhone;
    }
    if (name == "torture") {
        return Role::kTorture;
    }
    return name == "soak" ? Role::kSoak : Role::kRoad;
}

}  // namespace

std::optional<CommandLine> CommandLine::parse(std::vector<std::string> arguments, const std::string& ownPath,
                                              std::ostream& output, std::ostream& errors, int& exitStatus) {
    CommandLine result;
    RoadFlags flags;
    result.road.simulator = ownPath;
    result.road.receiver = (std::filesystem::path(ownPath).parent_path() / "WppReceiver").string();
    CLI::App app(
        "Plays the peers of the receiver: the head unit's controller and Bluetooth process, and phones",
        "wpp-simulator");
    app.require_subcommand(1);
    app.add_subcommand("controller",
                       "Play the controller: orders on standard input, events on standard output");
    app.add_subcommand("bluetooth",
                       "Play the Bluetooth process: orders on standard input, events on standard output");
    addPhone(app, result.phone);
    addRoad(app, result.road, flags);
    std::string pointsFile;
    addTorture(app, result.road, result.torture, pointsFile);
    double minutes = kSoakMinutes;
    addSoak(app, result, minutes);
    try {
        std::reverse(arguments.begin(), arguments.end());
        app.parse(arguments);
        result.role = roleOf(app);
        result.road.receiver = std::filesystem::absolute(result.road.receiver).string();
        if (!result.road.runWith.empty()) {
            result.road.runWith = std::filesystem::absolute(result.road.runWith).string();
        }
        result.road.scenario = result.role == Role::kSoak ? Soak::scenario() : scenarioOf(flags);
        if (result.role == Role::kTorture) {
            // The receiver asks for its TLS material, which makes one point more.
            result.road.scenario.tls = TlsSource::kRequested;
            result.torture.points = parseKillPoints(readFile(pointsFile));
        }
        result.soak.time = Milliseconds(static_cast<std::int64_t>(minutes * kMillisecondsPerMinute));
        return result;
    } catch (const CLI::ParseError& error) {
        exitStatus = app.exit(error, output, errors) == 0 ? 0 : kUsageError;
    } catch (const JsonError& error) {
        errors << "wpp-simulator: " << error.what() << std::endl;
        exitStatus = kUsageError;
    }
    return std::nullopt;
}

}  // namespace simulator
