#pragma once

#include <deque>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Simulator/private/Io/ByteStream.h"
#include "Simulator/private/Io/LineSplitter.h"
#include "Simulator/private/Road/ChildProcess.h"
#include "Simulator/private/Road/PeerEvent.h"

namespace simulator {

/// A process of the road, the receiver or one of its peers: takes orders, and keeps what it has reported
/// until somebody takes it.
///
/// Its end is an event too ("exit", with "status" and, after a signal, "signal"), reported once all of its
/// output has been read. Runs on the loop's thread alone.
class PeerProcess {
public:
    struct Program {
        std::string path;
        std::vector<std::string> arguments;
        std::string directory;
        std::string logFile;  ///< its output is copied there; empty for nowhere
    };
    using LineHandler = std::function<void(const std::string& line)>;

    /// Starts it; `onLine` gets each line of its output. @throws std::system_error when it cannot be started.
    PeerProcess(PollLoop& loop, std::string peerName, const Program& program, LineHandler lineHandler);

    const std::string& name() const { return processName; }
    pid_t id() const { return child.id(); }

    /// Sends an order; one to a process that has ended is dropped.
    void order(const Json& order);

    /// The oldest event that matches, which is gone from here then.
    std::optional<PeerEvent> take(const Expectation& expectation);

    /// Drops what it has reported, its end left out.
    void forgetAll();

    /// Notices its end; to be called when a child has ended.
    void checkEnd();

    bool hasEnded() const { return endReported; }

    /// Its last lines, oldest first.
    const std::deque<std::string>& lastLines() const { return recent; }

private:
    void onBytes(std::string_view bytes);
    void onOutputEnd();
    void addLine(const std::string& line);
    void addEvent(PeerEvent event);
    void reportEnd();

    const std::string processName;
    const LineHandler onLine;
    std::ofstream log;
    LineSplitter lines;
    std::deque<std::string> recent;
    std::deque<PeerEvent> events;
    std::optional<int> waitStatus;
    bool outputEnded = false;
    bool endReported = false;
    ChildProcess child;
    ByteStream input;
    ByteStream output;
};

}  // namespace simulator
