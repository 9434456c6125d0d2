#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {

/// A program running as a child: one pipe into its standard input, one out of its standard output and error.
///
/// Running from construction until poll() or the destructor has reaped it. It dies with its parent (parent
/// death signal), in a process group of its own, so that a terminal's interrupt reaches the parent alone; the
/// destructor kills and reaps whatever still runs. One thread at a time, the one that made it.
class ChildProcess {
public:
    /// Starts `program` in `directory`. @throws std::system_error when it cannot be started.
    ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                 const std::string& directory);
    ~ChildProcess();

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// The writing end of its standard input, non-blocking, and the reading end of its output: each can be
    /// taken once.
    UniqueFd takeInput() { return std::move(input); }
    UniqueFd takeOutput() { return std::move(output); }

    pid_t id() const { return pid; }

    /// Reaps it if it has ended. @return how it ended, as waitpid() tells it; empty while it runs.
    std::optional<int> poll();

private:
    pid_t pid = -1;
    std::optional<int> status;
    UniqueFd input;
    UniqueFd output;
};

/// "status 0" or "signal 9", of what ChildProcess::poll() tells.
std::string describeStatus(int waitStatus);

}  // namespace simulator
