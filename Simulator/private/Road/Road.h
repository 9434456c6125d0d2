#pragma once

#include <sys/types.h>

#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "Simulator/private/Io/PollLoop.h"
#include "Simulator/private/Road/PeerProcess.h"
#include "Simulator/private/Road/PrivateDirectory.h"
#include "Simulator/private/Road/ProcessFigures.h"
#include "Simulator/private/Road/RoadPhone.h"
#include "Simulator/private/Road/Scenario.h"
#include "Simulator/private/Road/SignalWatch.h"
#include "Simulator/private/Road/StageList.h"

namespace simulator {

struct RoadOptions {
    std::string receiver;   ///< path of the receiver's program
    std::string simulator;  ///< path of this program, which is all the peers
    std::string runWith;    ///< path of a program that runs each process, an emulator, say; empty for none
    std::string keepLog;    ///< directory for a copy of every process's output; empty for none
    bool verbose = false;   ///< shows every line of every process
    Scenario scenario = Scenario::ordinary();
};

/// A stage that was not reached; what() says why.
class StageFailure : public std::runtime_error {
public:
    explicit StageFailure(const std::string& reason, std::string process = {})
        : std::runtime_error(reason), from(std::move(process)) {}

    const std::string from;  ///< the process that was waited for; empty when it was none
};

/// What the stages of a road work with: the receiver and its peers as processes in a private directory,
/// orders for them, and waits for what they report.
///
/// Every wait has a limit and ends at once when the process waited for or the receiver has ended, when a peer
/// refuses an order, and at SIGINT or SIGTERM. The destructor kills and reaps every process and removes the
/// directory. One thread; one object at a time.
class Road {
public:
    /// @throws std::exception when the directory or the TLS material cannot be made.
    Road(const RoadOptions& roadOptions, std::ostream& output);

    static constexpr const char* kReceiver = "receiver";
    static constexpr const char* kController = "controller";
    static constexpr const char* kBluetooth = "bluetooth";

    const Scenario& scenario() const { return options.scenario; }
    const std::vector<RoadPhone>& phones() const { return roadPhones; }

    /// The round under way, from 1. Beginning one drops the events left of the last one.
    int round() const { return currentRound; }
    void beginRound(int number);

    /// Starts the process of this name (the receiver, a peer or a phone), in place of one already there.
    void launch(const std::string& name);

    /// Gives an order to a peer, or to the road itself: "kill" and "restart", each with the "peer"'s name.
    void order(const std::string& to, const Json& order);

    /// Waits for an event, which is taken. @throws StageFailure
    PeerEvent await(const Expectation& expectation);

    /// Takes an event that may be there. @return empty when it is not.
    std::optional<PeerEvent> look(const Expectation& expectation);

    /// As await, and the event's time counts for the stage.
    PeerEvent prove(const Expectation& expectation);

    /// Drops the events already reported that match, so that a later wait gets a new one.
    void forget(const Expectation& expectation);

    /// Drops everything that every process has reported.
    void forgetAll();

    /// Takes an event that must not be there. @throws StageFailure when it is.
    void refuse(const Expectation& expectation, const std::string& complaint);

    /// Sends a command through the controller and proves that it is answered with 1. @throws StageFailure
    void command(const Json& fields);

    /// When the events of the stage were reported; now when none counted. The next stage begins empty.
    StageTimes takeProof();

    /// Whether SIGINT or SIGTERM has come.
    bool isInterrupted() const { return interrupted; }

    /// The directory that the processes run in, with their sockets.
    const std::string& workingDirectory() const { return directory.path(); }

    /// The process's id. @throws StageFailure when there is no process of this name.
    pid_t processId(const std::string& name) { return process(name).id(); }

    /// What the receiver costs now; all 0 when it does not run.
    ProcessFigures receiverFigures() const;

    /// What it costs once that stays as it is: what a phone leaves behind goes a moment after it.
    ProcessFigures settledFigures();

    /// Takes what the processes report, for so long.
    void idle(Milliseconds time);

    /// The last lines of the processes that tell most about a failure: the one named, and those of the head
    /// unit.
    void describeProcesses(const std::string& about, std::ostream& output) const;

private:
    PeerProcess& process(const std::string& name);
    PeerProcess::Program programOf(const std::string& name) const;
    std::vector<std::string> argumentsOf(const std::string& name) const;
    std::string logFileOf(const std::string& name) const;
    void obey(const Json& order);
    void onLine(const std::string& name, const std::string& line);
    void checkAbandoned(const Expectation& expectation, const PeerProcess& awaited);

    const RoadOptions options;
    std::ostream& out;
    std::vector<RoadPhone> roadPhones;
    PrivateDirectory directory;
    PollLoop loop;
    SignalWatch signals;
    std::vector<double> proof;
    int currentRound = 1;
    std::optional<std::string> abandoned;  // why no wait makes sense any more
    bool interrupted = false;
    std::map<std::string, std::unique_ptr<PeerProcess>> processes;
};

}  // namespace simulator
