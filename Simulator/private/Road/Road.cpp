#include "Simulator/private/Road/Road.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "Simulator/private/Road/TlsFiles.h"

namespace simulator {

namespace {

constexpr const char* kRefusal = "{\"event\":\"order-refused\"";
constexpr const char* kHandled = "01";
constexpr int kSettledSamples = 10;
constexpr Milliseconds kSamplePeriod{20};

}  // namespace

Road::Road(const RoadOptions& roadOptions, std::ostream& output)
    : options(roadOptions),
      out(output),
      signals(loop, {[this](int signal) {
                         abandoned = "interrupted by signal " + std::to_string(signal);
                         interrupted = true;
                     },
                     [this] {
                         for (const auto& [name, child] : processes) {
                             child->checkEnd();
                         }
                     }}) {
    for (int number = 1; number <= options.scenario.phones; ++number) {
        roadPhones.push_back(makeRoadPhone(number));
    }
    if (!options.keepLog.empty()) {
        std::filesystem::create_directories(options.keepLog);
    }
    writeTlsFiles(directory);
}

void Road::beginRound(int number) {
    currentRound = number;
    for (const auto& [name, child] : processes) {
        child->forgetAll();
    }
}

void Road::launch(const std::string& name) {
    processes.erase(name);
    processes[name] = std::make_unique<PeerProcess>(
        loop, name, programOf(name), [this, name](const std::string& line) { onLine(name, line); });
}

void Road::order(const std::string& to, const Json& order) {
    if (to == "road") {
        obey(order);
    } else {
        process(to).order(order);
    }
}

PeerEvent Road::await(const Expectation& expectation) {
    PeerProcess& awaited = process(expectation.from);
    const Milliseconds limit = expectation.within.count() > 0 ? expectation.within : options.scenario.limit;
    const Deadline deadline(limit);
    while (true) {
        if (std::optional<PeerEvent> event = awaited.take(expectation)) {
            return *std::move(event);
        }
        checkAbandoned(expectation, awaited);
        if (deadline.passed()) {
            throw StageFailure(
                "no " + expectation.describe() + " within " + std::to_string(limit.count()) + " ms",
                expectation.from);
        }
        loop.step(deadline.remaining());
    }
}

std::optional<PeerEvent> Road::look(const Expectation& expectation) {
    loop.step(Milliseconds(0));
    return process(expectation.from).take(expectation);
}

PeerEvent Road::prove(const Expectation& expectation) {
    PeerEvent event = await(expectation);
    proof.push_back(event.time);
    return event;
}

void Road::forget(const Expectation& expectation) {
    const auto found = processes.find(expectation.from);
    while (found != processes.end() && found->second->take(expectation)) {
    }
}

void Road::forgetAll() {
    loop.step(Milliseconds(0));
    for (const auto& [name, child] : processes) {
        child->forgetAll();
    }
}

void Road::refuse(const Expectation& expectation, const std::string& complaint) {
    if (look(expectation)) {
        throw StageFailure(complaint, expectation.from);
    }
}

void Road::command(const Json& fields) {
    Json order = {{"order", "send"}};
    order.update(fields);
    process(kController).order(order);
    const PeerEvent reply =
        prove({kController, "reply", {{"message", fields["message"]}}, Json::object(), {}});
    if (reply.details["bytes"] != kHandled) {
        throw StageFailure(
            "command " + fields["message"].dump() + " was answered with " + reply.details["bytes"].dump(),
            kController);
    }
}

StageTimes Road::takeProof() {
    if (proof.empty()) {
        proof.push_back(monotonicSeconds());
    }
    const auto [first, last] = std::minmax_element(proof.begin(), proof.end());
    const StageTimes times{*first, *last};
    proof.clear();
    return times;
}

ProcessFigures Road::receiverFigures() const {
    const auto receiver = processes.find(kReceiver);
    return receiver == processes.end() ? ProcessFigures{} : ProcessFigures::of(receiver->second->id());
}

ProcessFigures Road::settledFigures() {
    const Deadline deadline(options.scenario.limit);
    ProcessFigures settled = receiverFigures();
    for (int same = 0; same < kSettledSamples && !deadline.passed(); ++same) {
        idle(kSamplePeriod);
        const ProcessFigures now = receiverFigures();
        if (now.descriptors != settled.descriptors || now.threads != settled.threads) {
            same = 0;
        }
        settled = now;
    }
    return settled;
}

void Road::idle(Milliseconds time) {
    const Deadline deadline(time);
    while (!deadline.passed()) {
        loop.step(deadline.remaining());
    }
}

void Road::describeProcesses(const std::string& about, std::ostream& output) const {
    for (const auto& [name, child] : processes) {
        const bool isPhone = name.rfind("phone ", 0) == 0;
        if (isPhone && name != about && roadPhones.size() > 1) {
            continue;
        }
        output << "--- last lines of " << name << "\n";
        for (const std::string& line : child->lastLines()) {
            output << line << "\n";
        }
    }
}

PeerProcess& Road::process(const std::string& name) {
    const auto found = processes.find(name);
    if (found == processes.end()) {
        throw StageFailure("there is no process \"" + name + "\"");
    }
    return *found->second;
}

PeerProcess::Program Road::programOf(const std::string& name) const {
    const std::string& program = name == kReceiver ? options.receiver : options.simulator;
    std::vector<std::string> arguments = argumentsOf(name);
    if (options.runWith.empty()) {
        return {program, arguments, directory.path(), logFileOf(name)};
    }
    // The other program would only report it in words of its own.
    if (::access(program.c_str(), X_OK) != 0) {
        throw std::system_error(errno, std::generic_category(), "start " + program);
    }
    arguments.insert(arguments.begin(), program);
    return {options.runWith, arguments, directory.path(), logFileOf(name)};
}

std::vector<std::string> Road::argumentsOf(const std::string& name) const {
    if (name == kReceiver) {
        return {};
    }
    const auto phone = std::find_if(roadPhones.begin(), roadPhones.end(),
                                    [&name](const RoadPhone& candidate) { return candidate.name == name; });
    if (phone == roadPhones.end()) {
        return {name};
    }
    return {"phone",  "--device", std::to_string(phone->device), "--client-id", phone->clientId,
            "--name", phone->name};
}

std::string Road::logFileOf(const std::string& name) const {
    if (options.keepLog.empty()) {
        return {};
    }
    std::string file = name;
    std::replace(file.begin(), file.end(), ' ', '-');
    return options.keepLog + "/" + file + (name == kReceiver ? ".log" : ".jsonl");
}

void Road::obey(const Json& order) {
    const std::string what = textField(order, "order");
    const std::string peer = textField(order, "peer");
    if (what == "kill") {
        processes.erase(peer);
    } else if (what == "restart") {
        launch(peer);
    } else {
        throw StageFailure("the road does not know the order \"" + what + "\"");
    }
}

void Road::onLine(const std::string& name, const std::string& line) {
    if (options.verbose) {
        out << name << ": " << line << std::endl;
    }
    if (line.rfind(kRefusal, 0) == 0 && !abandoned) {
        abandoned = name + " refused an order: " + line;
    }
}

void Road::checkAbandoned(const Expectation& expectation, const PeerProcess& awaited) {
    if (abandoned) {
        throw StageFailure(*abandoned, expectation.from);
    }
    if (awaited.hasEnded()) {
        throw StageFailure(awaited.name() + " has ended; no " + expectation.describe(), expectation.from);
    }
    const auto receiver = processes.find(kReceiver);
    if (receiver != processes.end() && receiver->second->hasEnded()) {
        throw StageFailure("the receiver has ended; no " + expectation.describe(), kReceiver);
    }
}

}  // namespace simulator
