#include "Tests/WppReceiver/Faults/ForkedWorkers.h"

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <exception>

#include "Tests/Support/OwnNetwork.h"

namespace wpp_test {

namespace {

// A case that hangs ends its process before the test program is ended, and so is named.
constexpr unsigned kWorkerLimitSeconds = 110;

struct Worker {
    pid_t process = -1;
    int reports = -1;
};

[[noreturn]] void becomeWorker(int pipe, std::size_t number,
                               const std::function<void(std::size_t, WorkReport&)>& work) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::alarm(kWorkerLimitSeconds);
    enterOwnNetwork();
    WorkReport report(pipe);
    try {
        work(number, report);
    } catch (const std::exception& exception) {
        report.fail(exception.what());
    }
    std::fflush(stdout);
    ::_exit(0);
}

Worker startWorker(std::size_t number, const std::function<void(std::size_t, WorkReport&)>& work) {
    std::array<int, 2> pipe{};
    if (::pipe(pipe.data()) != 0) {
        return {};
    }
    const pid_t process = ::fork();
    if (process == 0) {
        ::close(pipe[0]);
        becomeWorker(pipe[1], number, work);
    }
    ::close(pipe[1]);
    return {process, pipe[0]};
}

std::string readToTheEnd(int pipe) {
    std::string text;
    std::array<char, 4096> chunk;
    for (ssize_t count = 0; (count = ::read(pipe, chunk.data(), chunk.size())) > 0;) {
        text.append(chunk.data(), static_cast<std::size_t>(count));
    }
    ::close(pipe);
    return text;
}

void addReport(WorkResult& result, const std::string& line, std::string& current) {
    const std::string text = line.substr(1);
    switch (line[0]) {
        case '>':
            current = text;
            break;
        case '+':
            ++result.passed;
            break;
        case 't':
            result.longest = std::max(result.longest, std::chrono::milliseconds(std::stol(text)));
            break;
        default:
            result.failures.push_back(current + ": " + text);
    }
}

void gather(WorkResult& result, const Worker& worker) {
    const std::string text = readToTheEnd(worker.reports);
    std::string current = "no case";
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = text.find('\n', begin);
        addReport(result, text.substr(begin, end - begin), current);
        begin = end + 1;
    }
    int status = -1;
    if (::waitpid(worker.process, &status, 0) != worker.process || status != 0) {
        result.failures.push_back(current + ": its process ended with wait status " + std::to_string(status));
    }
}

}  // namespace

void WorkReport::say(char kind, const std::string& text) {
    const std::string line = kind + text + '\n';
    if (::write(output, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
        ::_exit(1);
    }
}

WorkResult runForked(std::size_t count, const std::function<void(std::size_t, WorkReport&)>& work) {
    std::vector<Worker> workers;
    for (std::size_t number = 0; number < count; ++number) {
        workers.push_back(startWorker(number, work));
    }
    WorkResult result;
    for (const Worker& worker : workers) {
        gather(result, worker);
    }
    return result;
}

}  // namespace wpp_test
