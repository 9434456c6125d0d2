#include "Tests/WppReceiver/Process/ReceiverProcess.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>
#include <utility>

#include "Tests/Support/RunWith.h"

namespace wpp_test {

namespace {

constexpr int kExecFailed = 127;
constexpr int kSignalBase = 128;

bool printInto(const char* outputFile) {
    const int output = open(outputFile, O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (output < 0) {
        return false;
    }
    dup2(output, STDOUT_FILENO);
    dup2(output, STDERR_FILENO);
    close(output);
    return true;
}

bool closeStandardDescriptors() {
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        close(descriptor);
    }
    return true;
}

/// Refuses every change of the limit of descriptors to this process and to what it becomes. A hard limit would do that too, but then
/// nobody but the system's administrator could take it back.
void keepLimits() {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, __NR_prlimit64, 0, 5),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, args[1])),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, RLIMIT_NOFILE, 0, 3),
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS,
                 offsetof(seccomp_data, args[2])),  // the new limit, null for a question
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 1, 0),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog filter{static_cast<unsigned short>(std::size(program)), program};
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
        prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
        _exit(kExecFailed);
    }
}

void limitDescriptors(std::size_t most) {
    rlimit limit{};
    if (most > 0 && getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = most;
        setrlimit(RLIMIT_NOFILE, &limit);
        // What the test has open must not take its place.
        close_range(STDERR_FILENO + 1, ~0U, CLOSE_RANGE_CLOEXEC);
        keepLimits();
    }
}

[[noreturn]] void becomeReceiver(const char* runner, const char* program, const char* directory,
                                 const char* outputFile, ReceiverProcess::Standard standard,
                                 std::size_t mostDescriptors) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const bool isReady =
        standard == ReceiverProcess::Standard::kClosed ? closeStandardDescriptors() : printInto(outputFile);
    if (isReady && chdir(directory) == 0) {
        limitDescriptors(mostDescriptors);
        if (*runner == '\0') {
            execl(program, program, static_cast<char*>(nullptr));
        }
        execl(runner, runner, program, static_cast<char*>(nullptr));
    }
    _exit(kExecFailed);
}

int statusOf(int waitStatus) {
    return WIFSIGNALED(waitStatus) ? kSignalBase + WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

}  // namespace

ReceiverProcess::ReceiverProcess(std::filesystem::path workingDirectory, Standard standard,
                                 std::size_t mostDescriptors)
    : directory(std::move(workingDirectory)), outputFile(directory / "receiver.log") {
    const char* program = std::getenv("WPP_RECEIVER");
    const std::string runner = runWith();
    process = fork();
    if (process == 0) {
        becomeReceiver(runner.c_str(), program, directory.c_str(), outputFile.c_str(), standard,
                       mostDescriptors);
    }
}

ReceiverProcess::~ReceiverProcess() {
    if (isAlive()) {
        kill(process, SIGKILL);
        waitForExit();
    }
}

bool ReceiverProcess::isAlive() {
    if (!exitStatus) {
        int status = 0;
        if (waitpid(process, &status, WNOHANG) == process) {
            exitStatus = statusOf(status);
        }
    }
    return !exitStatus;
}

std::optional<int> ReceiverProcess::waitForExit(std::chrono::milliseconds limit) {
    waitUntil([this] { return !isAlive(); }, limit);
    return exitStatus;
}

std::string ReceiverProcess::output() const {
    std::ifstream in(outputFile, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::size_t ReceiverProcess::countOutput(const std::string& part) const {
    const std::string text = output();
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

bool ReceiverProcess::waitForOutput(const std::string& part) const {
    return waitUntil([&] { return countOutput(part) > 0; });
}

std::size_t ReceiverProcess::descriptors() const {
    return countEntries("fd");
}

std::size_t ReceiverProcess::threads() const {
    return countEntries("task");
}

std::size_t ReceiverProcess::threadsNamed(const std::string& namePart) const {
    std::size_t count = 0;
    std::error_code ended;  // a thread may end while its name is read
    for (const auto& task :
         std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task", ended)) {
        std::string name;
        std::ifstream(task.path() / "comm") >> name;
        if (name.compare(0, namePart.size(), namePart) == 0) {
            ++count;
        }
    }
    return count;
}

std::size_t ReceiverProcess::settledDescriptors() const {
    constexpr std::chrono::milliseconds kSeveralPasses{500};
    std::size_t settled = descriptors();
    while (waitUntil([&] { return descriptors() != settled; }, kSeveralPasses)) {
        settled = descriptors();
    }
    return settled;
}

std::string ReceiverProcess::mappedLibrary(const std::string& name) const {
    std::ifstream maps("/proc/" + std::to_string(process) + "/maps");
    for (std::string line; std::getline(maps, line);) {
        const std::size_t path = line.find('/');
        if (path != std::string::npos && line.find(name, path) != std::string::npos) {
            return line.substr(path);
        }
    }
    return "";
}

std::size_t ReceiverProcess::countEntries(const std::string& procDirectory) const {
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(process) + "/" +
                                                      procDirectory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

}  // namespace wpp_test
