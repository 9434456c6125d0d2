#include "Simulator/private/Road/ChildProcess.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace simulator {

namespace {

constexpr int kCannotStart = 127;

struct Pipe {
    UniqueFd readEnd;
    UniqueFd writeEnd;
};

Pipe makePipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        throw std::system_error(errno, std::generic_category(), "pipe");
    }
    return {UniqueFd(ends[0]), UniqueFd(ends[1])};
}

/// What the child needs between fork and exec; made before, because only plain system calls may run there.
struct Launch {
    std::vector<char*> arguments;
    const char* program;
    const char* directory;
    pid_t parent;
    int input;
    int output;
    int failure;
};

void resetSignals() {
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    ::signal(SIGPIPE, SIG_DFL);
}

[[noreturn]] void becomeProgram(const Launch& launch) {
    ::setpgid(0, 0);
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != launch.parent) {
        ::_exit(kCannotStart);  // the parent went before the death signal was set
    }
    resetSignals();
    ::dup2(launch.input, STDIN_FILENO);
    ::dup2(launch.output, STDOUT_FILENO);
    ::dup2(launch.output, STDERR_FILENO);
    ::close_range(STDERR_FILENO + 1, ~0u, CLOSE_RANGE_CLOEXEC);  // also what this program was started with
    if (::chdir(launch.directory) == 0) {
        ::execv(launch.program, launch.arguments.data());
    }
    const int error = errno;
    if (::write(launch.failure, &error, sizeof(error)) < 0) {
        ::_exit(kCannotStart);
    }
    ::_exit(kCannotStart);
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

}  // namespace

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const std::string& directory) {
    Pipe in = makePipe();
    Pipe out = makePipe();
    Pipe failure = makePipe();
    std::vector<std::string> texts{program};
    texts.insert(texts.end(), arguments.begin(), arguments.end());
    const Launch launch{pointersTo(texts), program.c_str(),    directory.c_str(),     ::getpid(),
                        in.readEnd.get(),  out.writeEnd.get(), failure.writeEnd.get()};
    pid = ::fork();
    if (pid == 0) {
        becomeProgram(launch);
    }
    failure.writeEnd.reset();
    int error = pid < 0 ? errno : 0;
    if (pid > 0 && ::read(failure.readEnd.get(), &error, sizeof(error)) > 0) {
        ::waitpid(pid, nullptr, 0);
        pid = -1;
    }
    if (pid < 0) {
        throw std::system_error(error, std::generic_category(), "start " + program);
    }
    ::fcntl(in.writeEnd.get(), F_SETFL, O_NONBLOCK);
    input = std::move(in.writeEnd);
    output = std::move(out.readEnd);
}

ChildProcess::~ChildProcess() {
    if (!poll()) {
        ::kill(pid, SIGKILL);
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
}

std::optional<int> ChildProcess::poll() {
    int waitStatus = 0;
    if (!status && ::waitpid(pid, &waitStatus, WNOHANG) == pid) {
        status = waitStatus;
    }
    return status;
}

std::string describeStatus(int waitStatus) {
    if (WIFSIGNALED(waitStatus)) {
        return "signal " + std::to_string(WTERMSIG(waitStatus));
    }
    return "status " + std::to_string(WEXITSTATUS(waitStatus));
}

}  // namespace simulator
