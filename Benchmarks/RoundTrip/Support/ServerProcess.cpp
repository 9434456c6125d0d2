#include "Benchmarks/RoundTrip/Support/ServerProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>

#include "Benchmarks/RoundTrip/Support/Sockets.h"

namespace bench {

namespace {

[[noreturn]] void runChild(const std::function<void()>& serve) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = check(open("/dev/null", O_WRONLY | O_CLOEXEC), "open");
    check(dup2(nowhere, STDOUT_FILENO), "dup2");
    try {
        serve();
    } catch (const std::exception& exception) {
        std::fprintf(stderr, "server: %s\n", exception.what());
    }
    _exit(1);
}

}  // namespace

ServerProcess::ServerProcess(const std::function<void()>& serve) : child(check(fork(), "fork")) {
    if (child == 0) {
        runChild(serve);
    }
}

ServerProcess::~ServerProcess() {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
}

}  // namespace bench
