#include "Tests/Torture/RoadTorture.h"

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <optional>
#include <sstream>

#include "Simulator/private/Road/Road.h"
#include "Simulator/private/Road/RoadStages.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Torture/ControlFile.h"

namespace wpp_torture {

namespace {

using simulator::Expectation;
using simulator::Json;
using simulator::Milliseconds;
using simulator::PeerEvent;
using simulator::Road;
using simulator::StageFailure;

constexpr Milliseconds kStageLimit{2000};
constexpr Milliseconds kFirstEndLimit{1500};  // a command 1 of which the empty heap takes the frame
constexpr Milliseconds kEndLimit{10000};
constexpr int kCannotStart = 1;  // the receiver's status when there is no memory to begin with
constexpr std::size_t kShownLines = 15;

/// One road from its beginning to the receiver's end.
class TorturedRoad {
public:
    TorturedRoad(const RoadPrograms& programs, simulator::TlsSource tls, const Injection& injection,
                 bool isListing)
        : control((directory.path() / "control").string()), road(optionsFor(programs, tls), nowhere) {
        control->failing = static_cast<std::uint32_t>(injection.failing);
        control->index = injection.index;
        control->stack = injection.stack;
        control->listing = isListing ? 1 : 0;
        control->armed = 1;
        // The receiver's child process inherits it; the peers have no hooks to read it.
        setenv(kControlVariable, control.path().c_str(), 1);
    }

    RoadOutcome take(simulator::TlsSource tls) {
        takeStages(tls);
        if (!end) {
            bringMemoryBack();
            endByCommand();
        }
        judge();
        return outcome;
    }

    std::vector<std::uint64_t> stacks() const {
        const std::uint64_t count = std::min<std::uint64_t>(control->allocations, kMostRecords);
        return {control->stacks, control->stacks + count};
    }

private:
    simulator::RoadOptions optionsFor(const RoadPrograms& programs, simulator::TlsSource tls) const {
        simulator::RoadOptions options;
        options.receiver = programs.receiver;
        options.simulator = programs.simulator;
        options.keepLog = (directory.path() / "log").string();
        options.scenario.tls = tls;
        options.scenario.limit = kStageLimit;
        return options;
    }

    void takeStages(simulator::TlsSource tls) {
        for (const std::string& name : simulator::wholeRoad(tls)) {
            if (name == "terminate") {
                return;
            }
            try {
                simulator::findRoadStage(name)->take(road);
                road.takeProof();
            } catch (const std::exception& failure) {
                outcome.stage = name + ": " + failure.what();
                end = awaitEnd(Milliseconds(0));
                return;
            }
        }
    }

    /// An empty heap is taken back once it has had its effect; one that comes only with the end stays.
    void bringMemoryBack() {
        if (control->failures != 0) {
            control->armed = 0;
        }
    }

    void endByCommand() {
        orderEnd();
        end = awaitEnd(kFirstEndLimit);
        if (!end) {
            control->armed = 0;
            road.launch(Road::kController);
            awaitLink();
            orderEnd();
            end = awaitEnd(kEndLimit);
        }
    }

    void orderEnd() { road.order(Road::kController, {{"order", "send"}, {"message", 1}}); }

    void awaitLink() {
        try {
            road.await({Road::kController, "link-up", {{"socket", "WPP_SOCKET_TO_WPP"}}, Json::object(), {}});
        } catch (const StageFailure&) {
            // The receiver's silence shows in the wait that follows.
        }
    }

    std::optional<PeerEvent> awaitEnd(Milliseconds limit) {
        try {
            return road.await({Road::kReceiver, "exit", Json::object(), Json::object(),
                               limit.count() == 0 ? Milliseconds(1) : limit});
        } catch (const StageFailure&) {
            return std::nullopt;
        }
    }

    void judge() {
        outcome.everyStage = outcome.stage.empty();
        outcome.failures = control->failures;
        outcome.allocations = control->allocations;
        outcome.beforeMain = control->beforeMain;
        outcome.where = firstFailure();
        const std::vector<std::string> lines = receiverLines();
        for (const std::string& line : lines) {
            outcome.logged = outcome.logged || isNewsOfFailure(line);
        }
        outcome.finding = findingOf();
        if (!outcome.finding.empty()) {
            const std::size_t shown = std::min(lines.size(), kShownLines);
            outcome.lastLog.assign(lines.end() - static_cast<std::ptrdiff_t>(shown), lines.end());
        }
    }

    std::string findingOf() const {
        if (!end) {
            return "does not end on command 1";
        }
        if (end->details.contains("signal")) {
            return "ended by signal " + end->details["signal"].dump();
        }
        const int status = end->details["status"].get<int>();
        if (status != 0 && (status != kCannotStart || !outcome.logged)) {
            return "ended with status " + std::to_string(status);
        }
        if (!outcome.everyStage && !outcome.logged) {
            return "silent";
        }
        return {};
    }

    static bool isNewsOfFailure(const std::string& line) {
        return line.find("[error]") != std::string::npos &&
               line.find("StartProjection timeout") == std::string::npos;
    }

    std::vector<std::string> receiverLines() const {
        std::ifstream file(directory.path() / "log" / "receiver.log");
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    std::vector<std::string> firstFailure() const {
        std::vector<std::string> frames;
        for (std::uint32_t i = 0; i < control->frameCount; ++i) {
            const Frame& frame = control->frames[i];
            std::ostringstream text;
            text << (frame.module[0] == '\0' ? "receiver" : frame.module) << "+0x" << std::hex
                 << frame.offset;
            frames.push_back(text.str());
        }
        return frames;
    }

    const wpp_test::TemporaryDirectory directory;
    std::ostringstream nowhere;
    ControlFile control;
    Road road;
    std::optional<PeerEvent> end;
    RoadOutcome outcome;
};

}  // namespace

RoadOutcome takeTorturedRoad(const RoadPrograms& programs, simulator::TlsSource tls,
                             const Injection& injection) {
    return TorturedRoad(programs, tls, injection, false).take(tls);
}

std::vector<std::uint64_t> listStacks(const RoadPrograms& programs, simulator::TlsSource tls,
                                      RoadOutcome& outcome) {
    TorturedRoad road(programs, tls, {}, true);
    outcome = road.take(tls);
    return road.stacks();
}

}  // namespace wpp_torture
