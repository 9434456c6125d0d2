#pragma once

#include <sys/types.h>

#include <functional>

namespace bench {

/// The serving end, a child process. It is killed and reaped at the end, and dies with its parent.
///
/// To be made before the parent has any second thread: the child is a plain fork.
class ServerProcess {
public:
    /// `serve` runs in the child, which ends with it; what it prints goes nowhere, except for an exception's text.
    explicit ServerProcess(const std::function<void()>& serve);
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    pid_t id() const { return child; }

private:
    pid_t child;
};

}  // namespace bench
