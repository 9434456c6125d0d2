// Makes the system calls of the framework's and the receiver's scenarios fail one after the other.

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <map>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "Tests/Support/OwnNetwork.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Torture/CallTrial.h"
#include "Tests/Torture/Scenarios.h"

namespace wpp_torture {
namespace {

using Json = nlohmann::json;

struct Options {
    CallTrialPlan plan;
    std::vector<std::string> names;
    std::vector<std::string> sums;  // tallies of earlier runs to be added
    std::string tally;              // file for this run's tally; empty: it is printed
    std::size_t jobs = 1;
    bool onlySum = false;
};

const char* runningScenario = "";

/// A scenario that hangs holds a lock or waits for what never comes.
void reportHang(int) {
    for (const char* const text :
         {"torture-calls: hangs: ", runningScenario, " --only ", runningInjection(), "\n"}) {
        static_cast<void>(!write(STDERR_FILENO, text, std::strlen(text)));
    }
    _exit(3);
}

std::vector<Scenario> callScenarios() {
    // Of the framework's, those that make calls at all; its streams have scenarios of their own here.
    const std::vector<std::string> framework{
        "log-lines",     "message-box-queues",     "worker", "thread", "thread-that-throws",
        "events",        "event-keeps-its-signal", "syncs",  "timers", "timer-manager",
        "framework-life"};
    std::vector<Scenario> all;
    for (const Scenario& scenario : frameworkScenarios()) {
        if (std::find(framework.begin(), framework.end(), scenario.name) != framework.end()) {
            all.push_back(scenario);
        }
    }
    for (const auto& more : {streamCallScenarios(), receiverCallScenarios(), libraryCallScenarios()}) {
        all.insert(all.end(), more.begin(), more.end());
    }
    return all;
}

/// In a process of its own, so that scenarios run at once and one that hangs or dies leaves the others alone.
pid_t startScenario(const Scenario& scenario, const CallTrialPlan& plan, const std::string& file) {
    std::fflush(stdout);
    const pid_t pid = fork();
    if (pid != 0) {
        return pid;
    }
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    runningScenario = scenario.name;
    std::signal(SIGALRM, reportHang);
    wpp_test::enterOwnNetwork();
    const CallTotals totals = tortureCalls(scenario, plan);
    for (const std::string& finding : totals.findings) {
        std::printf("finding %s %s\n", scenario.name, finding.c_str());
    }
    std::printf("# %-30s %8llu injections, %llu findings\n", scenario.name,
                static_cast<unsigned long long>(totals.tally.injections()),
                static_cast<unsigned long long>(totals.findings.size()));
    std::fflush(stdout);
    std::ofstream(file) << totals.tally.toJson();
    _exit(totals.findings.empty() ? 0 : 1);
}

/// The processes of the scenarios, at most `jobs` at once.
class Runs {
public:
    explicit Runs(std::size_t atOnce) : jobs(std::max<std::size_t>(1, atOnce)) {}

    void start(const Scenario& scenario, const CallTrialPlan& plan) {
        while (running.size() >= jobs) {
            awaitOne();
        }
        const std::string file = (directory.path() / scenario.name).string();
        running[startScenario(scenario, plan, file)] = file;
    }

    void awaitAll() {
        while (!running.empty()) {
            awaitOne();
        }
    }

    CallTally tally;
    bool clean = true;

private:
    void awaitOne() {
        int status = 0;
        const pid_t pid = wait(&status);
        const std::string file = running[pid];
        running.erase(pid);
        clean = clean && status == 0;
        std::ifstream report(file);
        if (WIFEXITED(status) && report) {
            tally += CallTally::fromJson(Json::parse(report));
        } else {
            std::printf("finding %s: the process ended with status %#x\n", file.c_str(),
                        static_cast<unsigned>(status));
        }
    }

    const std::size_t jobs;
    const wpp_test::TemporaryDirectory directory;
    std::map<pid_t, std::string> running;
};

bool isWanted(const Options& options, const char* name) {
    return !options.onlySum && (options.names.empty() || std::find(options.names.begin(), options.names.end(),
                                                                   name) != options.names.end());
}

int run(int argumentCount, char** arguments) {
    Options options;
    CLI::App app("Makes the system calls of scenarios fail, one after the other");
    app.add_option("scenarios", options.names, "Names of scenarios; none means all of them");
    app.add_option("--most", options.plan.mostPlaces,
                   "At most this many places for each call, errno and way to fail");
    app.add_option("--share", options.plan.share, "One in so many injections")->check(CLI::PositiveNumber);
    app.add_option("--only", options.plan.only, "One injection, by the name that a finding shows");
    app.add_option("--jobs", options.jobs, "Scenarios at once");
    app.add_option("--tally", options.tally, "Write the tally to this file instead of printing the table");
    app.add_option("--add", options.sums, "Add the tally in this file");
    app.add_flag("--only-add", options.onlySum, "Run nothing, print the sum of what is added");
    CLI11_PARSE(app, argumentCount, arguments);
    Runs runs(options.jobs);
    for (const Scenario& scenario : callScenarios()) {
        if (isWanted(options, scenario.name)) {
            runs.start(scenario, options.plan);
        }
    }
    runs.awaitAll();
    for (const std::string& file : options.sums) {
        std::ifstream report(file);
        runs.tally += CallTally::fromJson(Json::parse(report));
    }
    if (options.tally.empty()) {
        runs.tally.print();
    } else {
        std::ofstream(options.tally) << runs.tally.toJson();
    }
    return runs.clean && runs.tally.findings() == 0 && runs.tally.injections() > 0 ? 0 : 1;
}

}  // namespace
}  // namespace wpp_torture

int main(int argumentCount, char** arguments) {
    try {
        return wpp_torture::run(argumentCount, arguments);
    } catch (const std::exception& error) {
        std::cerr << "torture-calls: " << error.what() << std::endl;
        return 2;
    }
}
