#include "Tests/WppReceiver/Process/ReceiverProcess.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
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

[[noreturn]] void becomeReceiver(const char* runner, const char* program, const char* directory,
                                 const char* outputFile, ReceiverProcess::Standard standard) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const bool isReady =
        standard == ReceiverProcess::Standard::kClosed ? closeStandardDescriptors() : printInto(outputFile);
    if (isReady && chdir(directory) == 0) {
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

ReceiverProcess::ReceiverProcess(std::filesystem::path workingDirectory, Standard standard)
    : directory(std::move(workingDirectory)), outputFile(directory / "receiver.log") {
    const char* program = std::getenv("WPP_RECEIVER");
    const std::string runner = runWith();
    process = fork();
    if (process == 0) {
        becomeReceiver(runner.c_str(), program, directory.c_str(), outputFile.c_str(), standard);
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
