#include "Tests/Torture/RoadTorture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <thread>

#include "Simulator/private/Road/Road.h"
#include "Simulator/private/Road/RoadStages.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Torture/AcceptedOutcomes.h"

namespace wpp_torture {

namespace {

using simulator::Expectation;
using simulator::Json;
using simulator::Milliseconds;
using simulator::PeerEvent;
using simulator::Road;
using simulator::StageFailure;

constexpr Milliseconds kStageLimit{2500};
constexpr Milliseconds kListingLimit{20000};  // nothing fails there: only a busy machine is late
constexpr Milliseconds kEndLimit{1500};       // of one attempt
constexpr int kEndAttempts = 14;
constexpr int kFreshControllerAttempt = 4;
constexpr Milliseconds kLook{20};
constexpr int kStopProtocol = 1001;
constexpr int kNeverAnswered = 1000;
constexpr int kCannotStart = 1;  // the receiver's status when there is no memory to begin with
constexpr std::size_t kShownLines = 15;
const std::string kSilent = "silent";
const std::string kDoesNotEnd = "does not end on command 1";
const std::string kNotUsable = "not usable again: ";

/// One road from its beginning to the receiver's end.
class TorturedRoad {
public:
    TorturedRoad(const RoadPrograms& programs, simulator::TlsSource tls, const Injection& injection,
                 bool isListing)
        : injected(injection),
          torturesCalls(programs.calls),
          control((programs.calls ? callControl : allocationControl)((directory.path() / "control").string(),
                                                                     injection, isListing)),
          road(optionsFor(programs, tls, isListing), nowhere) {
        // The receiver's child process inherits it; the peers have no hooks to read it.
        setenv(kControlVariable, control->path().c_str(), 1);
    }

    RoadOutcome take(simulator::TlsSource tls) {
        takeStages(tls);
        if (!end) {
            bringMemoryBack();
            walkAgain(tls);
            endByCommand();
        }
        judge();
        return outcome;
    }

    std::vector<Site> sites() const { return control->sites(); }

private:
    simulator::RoadOptions optionsFor(const RoadPrograms& programs, simulator::TlsSource tls,
                                      bool isListing) const {
        simulator::RoadOptions options;
        options.receiver = programs.receiver;
        options.simulator = programs.simulator;
        options.keepLog = (directory.path() / "log").string();
        options.scenario.tls = tls;
        options.scenario.limit = isListing ? kListingLimit : kStageLimit;
        return options;
    }

    void takeStages(simulator::TlsSource tls) {
        for (const std::string& name : simulator::wholeRoad(tls)) {
            if (name == "terminate") {
                return;
            }
            try {
                takeStage(name);
            } catch (const std::exception& failure) {
                outcome.stage = name + ": " + failure.what();
                end = awaitEnd(Milliseconds(0));
                return;
            }
        }
    }

    /// An empty heap is taken back once it has had its effect; one that comes only with the end stays.
    void bringMemoryBack() {
        if (control->failures() != 0) {
            control->disarm();
        }
    }

    void takeStage(const std::string& name) {
        simulator::findRoadStage(name)->take(road);
        road.takeProof();
    }

    /// With memory back, and the protocol begun anew, a fresh phone comes all the way. Not after a failure that cost
    /// a link or a reply, or that a peer noticed ahead of its order, since the peers do not get over that.
    void walkAgain(simulator::TlsSource tls) {
        if (control->failures() == 0 || outcome.stage.empty() || outcome.stage.rfind("process up", 0) == 0 ||
            outcome.stage.find("\"reply\"") != std::string::npos ||
            outcome.stage.find("refused an order") != std::string::npos || lacksReply()) {
            return;
        }
        try {
            awaitRetries();
            const std::string phone = road.phones().front().name;
            road.order("road", {{"order", "kill"}, {"peer", phone}});
            road.command({{"message", kStopProtocol}});
            forgetFirstWalk();
            road.launch(phone);
            for (const std::string& name : simulator::wholeRoad(tls)) {
                if (name != "process up" && name != "terminate") {
                    takeStage(name);
                }
            }
            outcome.walkedAgain = true;
        } catch (const std::exception& failure) {
            second = failure.what();
        }
    }

    /// Whether a command of the controller went without its reply, so that the replies behind it pass for the wrong
    /// commands.
    bool lacksReply() const {
        int lacking = 0;
        for (const std::string& line : linesOf("controller.jsonl")) {
            const Json event = Json::parse(line, nullptr, false);
            if (event.is_discarded() || event.value("message", kNeverAnswered) == kNeverAnswered) {
                continue;
            }
            lacking += event["event"] == "sent" ? 1 : event["event"] == "reply" ? -1 : 0;
        }
        return lacking != 0;
    }

    /// A server's thread whose calls fail looks again every 100 ms. What the first phone has sent by then must not pass
    /// for the next one's, which comes under the same id.
    static void awaitRetries() {
        constexpr Milliseconds kThreePeriods{300};
        std::this_thread::sleep_for(kThreePeriods);
    }

    /// Another peer's event may be read after the reply that it came before: a poll looks at one pipe after the other.
    void forgetFirstWalk() {
        road.idle(kLook);
        for (const char* const event : {"notification", "key-answered", "sent"}) {
            road.forget({Road::kController, event, Json::object(), Json::object(), {}});
        }
        for (const char* const event : {"disconnect-spp", "phone-linked", "phone-gone"}) {
            road.forget({Road::kBluetooth, event, Json::object(), Json::object(), {}});
        }
    }

    /// Memory comes back in any case once the command had its chance without. What an empty heap took of the
    /// command is sent again, and a controller that lost count of its replies gives way to a fresh one.
    void endByCommand() {
        for (int attempt = 1; attempt <= kEndAttempts && !end; ++attempt) {
            if (attempt == kFreshControllerAttempt) {
                road.launch(Road::kController);
            }
            orderEnd();
            end = awaitEnd(kEndLimit);
            control->disarm();
        }
    }

    void orderEnd() { road.order(Road::kController, {{"order", "send"}, {"message", 1}}); }

    /// A road that a peer has abandoned waits for nothing any more, but its loop still takes steps.
    std::optional<PeerEvent> awaitEnd(Milliseconds limit) {
        const simulator::Deadline deadline(limit);
        do {
            try {
                road.refuse({Road::kReceiver, "no such event", Json::object(), Json::object(), {}}, {});
                return road.await(
                    {Road::kReceiver, "exit", Json::object(), Json::object(), Milliseconds(kLook)});
            } catch (const StageFailure&) {
                std::this_thread::sleep_for(Milliseconds(1));  // an abandoned road returns at once
            }
        } while (!deadline.passed());
        return std::nullopt;
    }

    void judge() {
        outcome.everyStage = outcome.stage.empty();
        outcome.failures = control->failures();
        outcome.counted = control->counted();
        outcome.beforeMain = control->beforeMain();
        outcome.where = control->firstFailure();
        outcome.tlsLost = !torturesCalls && isOpenSsl() &&
                          (second.find("tls-done") != std::string::npos ||
                           second.find("\"link\":\"tcp\"") != std::string::npos);
        const std::vector<std::string> lines = linesOf("receiver.log");
        for (const std::string& line : lines) {
            outcome.logged = outcome.logged || isNewsOfFailure(line);
        }
        outcome.openSslLost = isLossOfOpenSsl(lines);
        outcome.finding = findingOf();
        acceptWhatIsDescribed();
        if (!outcome.finding.empty()) {
            showLast(lines);
            for (const char* const peer : {"phone-1.jsonl", "bluetooth.jsonl", "controller.jsonl"}) {
                showLast(linesOf(peer));
            }
        }
    }

    /// An outcome that the described behaviour of a call's failure has is no finding.
    void acceptWhatIsDescribed() {
        const bool isDeaf = outcome.finding == kDoesNotEnd;
        const bool isLost = outcome.finding.rfind(kNotUsable, 0) == 0;
        const bool isSilent = outcome.finding == kSilent;
        const char* const described = isDeaf     ? kDeafToController
                                      : isLost   ? kLinkStaysLost
                                      : isSilent ? kSilentRetry
                                                 : "";
        if (torturesCalls && isAccepted(described, injected.site.call, injected.effect)) {
            outcome.accepted = described;
            outcome.finding.clear();
        }
    }

    std::string findingOf() const {
        if (outcome.failures == 0 && !outcome.everyStage) {
            return {};  // a machine too busy to get that far
        }
        if (!end) {
            return kDoesNotEnd;
        }
        if (end->details.contains("signal")) {
            return "ended by signal " + end->details["signal"].dump();
        }
        const int status = end->details["status"].get<int>();
        if (status != 0 && !outcome.openSslLost && (status != kCannotStart || !outcome.logged)) {
            return "ended with status " + std::to_string(status);
        }
        if (!second.empty() && !outcome.tlsLost) {
            return kNotUsable + second;
        }
        if (!outcome.everyStage && !outcome.logged && isOurs()) {
            return kSilent;
        }
        return {};
    }

    /// Whether the receiver's code asked for the memory, itself or through a library of others. What fails inside the
    /// receiver library is reported to its logging callback, which drops the lines by design.
    bool isOurs() const {
        for (std::size_t i = 0; i < outcome.where.size(); ++i) {
            if (isIn("libreceiver-lib", i)) {
                return false;
            }
            if (isIn("receiver+", i) && !isSanitizers(i)) {
                return true;
            }
        }
        return false;
    }

    bool isIn(const char* module, std::size_t frame) const {
        return frame < outcome.where.size() && outcome.where[frame].rfind(module, 0) == 0;
    }

    /// The address sanitizer stands between others' libraries and the system's, and that part of it lies in the
    /// program. There is more of us above it, unlike above what a thread begins with.
    bool isSanitizers(std::size_t frame) const {
        if (isOfUs(frame + 1)) {
            return false;
        }
        bool isOneOfUsAbove = false;
        for (std::size_t caller = frame + 2; caller < outcome.where.size(); ++caller) {
            isOneOfUsAbove = isOneOfUsAbove || isOfUs(caller);
        }
        return isOneOfUsAbove;
    }

    bool isOfUs(std::size_t frame) const {
        return isIn("receiver+", frame) || isIn("libreceiver-lib", frame);
    }

    /// Whether it was OpenSSL that got no memory.
    bool isOpenSsl() const {
        return std::any_of(outcome.where.begin(), outcome.where.end(), [](const std::string& frame) {
            return frame.rfind("libcrypto", 0) == 0 || frame.rfind("libssl", 0) == 0;
        });
    }

    /// Whether the leak check complains of one thing alone: OpenSSL, without memory while it makes its library context,
    /// forgets a piece of that and what hangs on it. Nothing that the receiver or the stand-in asks it for is so small.
    bool isLossOfOpenSsl(const std::vector<std::string>& lines) const {
        constexpr unsigned kLargestPiece = 80;  // bytes
        bool hasForgotten = false;
        for (const std::string& line : lines) {
            unsigned bytes = 0;
            unsigned pieces = 0;
            if (std::sscanf(line.c_str(), "Direct leak of %u byte(s) in %u", &bytes, &pieces) == 2) {
                hasForgotten = true;
                if (bytes > pieces * kLargestPiece) {
                    return false;
                }
            }
            const bool isTaker = line.find(" #3 ") != std::string::npos;  // beneath the hooks
            if (isTaker && line.find("libcrypto.so") == std::string::npos) {
                return false;
            }
        }
        return isOpenSsl() && hasForgotten;
    }

    static bool isNewsOfFailure(const std::string& line) {
        return line.find("[error]") != std::string::npos &&
               line.find("StartProjection timeout") == std::string::npos;
    }

    void showLast(const std::vector<std::string>& lines) {
        const std::size_t shown = std::min(lines.size(), kShownLines);
        outcome.lastLog.insert(outcome.lastLog.end(), lines.end() - static_cast<std::ptrdiff_t>(shown),
                               lines.end());
    }

    std::vector<std::string> linesOf(const char* name) const {
        std::ifstream file(directory.path() / "log" / name);
        std::vector<std::string> lines;
        for (std::string line; std::getline(file, line);) {
            lines.push_back(line);
        }
        return lines;
    }

    const wpp_test::TemporaryDirectory directory;
    std::ostringstream nowhere;
    const Injection injected;
    const bool torturesCalls;
    const std::unique_ptr<RoadControl> control;
    Road road;
    std::optional<PeerEvent> end;
    std::string second;  // why the road could not be walked again
    RoadOutcome outcome;
};

}  // namespace

RoadOutcome takeTorturedRoad(const RoadPrograms& programs, simulator::TlsSource tls,
                             const Injection& injection) {
    return TorturedRoad(programs, tls, injection, false).take(tls);
}

std::vector<Site> listSites(const RoadPrograms& programs, simulator::TlsSource tls, RoadOutcome& outcome) {
    TorturedRoad road(programs, tls, {}, true);
    outcome = road.take(tls);
    return road.sites();
}

}  // namespace wpp_torture
