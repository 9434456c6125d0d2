#include "Simulator/private/Road/PeerProcess.h"

#include <sys/wait.h>

#include <algorithm>
#include <utility>

namespace simulator {

namespace {

constexpr std::size_t kLastLines = 12;
constexpr std::size_t kMostEvents = 20000;  // a process that nobody listens to costs bounded memory

Json endDetails(int waitStatus) {
    if (WIFSIGNALED(waitStatus)) {
        return {{"signal", WTERMSIG(waitStatus)}};
    }
    return {{"status", WEXITSTATUS(waitStatus)}};
}

}  // namespace

PeerProcess::PeerProcess(PollLoop& loop, std::string peerName, const Program& program,
                         LineHandler lineHandler)
    : processName(std::move(peerName)),
      onLine(std::move(lineHandler)),
      child(program.path, program.arguments, program.directory),
      input(
          loop, child.takeInput(), [](std::string_view) {}, [] {}),
      output(
          loop, child.takeOutput(), [this](std::string_view bytes) { onBytes(bytes); },
          [this] { onOutputEnd(); }) {
    input.stopReading();
    if (!program.logFile.empty()) {
        log.open(program.logFile);
    }
}

void PeerProcess::order(const Json& order) {
    input.send(order.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n");
}

std::optional<PeerEvent> PeerProcess::take(const Expectation& expectation) {
    const auto found = std::find_if(events.begin(), events.end(), [&expectation](const PeerEvent& event) {
        return expectation.matches(event);
    });
    if (found == events.end()) {
        return std::nullopt;
    }
    PeerEvent event = std::move(*found);
    events.erase(found);
    return event;
}

void PeerProcess::forgetAll() {
    if (!endReported) {
        events.clear();
    }
}

void PeerProcess::checkEnd() {
    waitStatus = child.poll();
    reportEnd();
}

void PeerProcess::onBytes(std::string_view bytes) {
    for (const std::string& line : lines.feed(bytes)) {
        addLine(line);
    }
}

void PeerProcess::onOutputEnd() {
    const std::string rest = lines.takeRest();
    if (!rest.empty()) {
        addLine(rest);
    }
    outputEnded = true;
    reportEnd();
}

void PeerProcess::addLine(const std::string& line) {
    recent.push_back(line);
    if (recent.size() > kLastLines) {
        recent.pop_front();
    }
    if (log.is_open()) {
        log << line << std::endl;
    }
    addEvent(readEvent(line));
    onLine(line);
}

void PeerProcess::addEvent(PeerEvent event) {
    events.push_back(std::move(event));
    if (events.size() > kMostEvents) {
        events.pop_front();
    }
}

void PeerProcess::reportEnd() {
    if (waitStatus && outputEnded && !endReported) {
        endReported = true;
        addEvent({"exit", monotonicSeconds(), endDetails(*waitStatus)});
    }
}

}  // namespace simulator
