// Takes the receiver along the road again and again, each time with another allocation failing.

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

#include <CLI/CLI.hpp>

#include "Tests/Support/OwnNetwork.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Torture/RoadTorture.h"

namespace wpp_torture {
namespace {

using Json = nlohmann::json;

struct Options {
    RoadPrograms programs;
    std::string tls = "configured";
    std::string only;      // "stack:once" of a finding to repeat
    std::size_t most = 0;  // injections at most; 0 for no limit
    int jobs = 1;
    int listings = 3;
    std::string reports;  // directory that keeps a line for each injection; empty for none
    bool everyAllocation = false;
};

struct Plan {
    std::uint64_t allocations = 0;
    std::uint64_t beforeMain = 0;
    std::size_t stacks = 0;
    std::vector<Injection> injections;
};

Failing failingOf(const std::string& word) {
    return word == "once" ? Failing::kOnce : Failing::kFromThereOn;
}

std::string wordOf(Failing failing) {
    return failing == Failing::kOnce ? "once" : "onward";
}

/// Threads take turns differently each time, so that one road does not show every stack.
std::set<std::uint64_t> findStacks(const Options& options, Plan& plan) {
    std::set<std::uint64_t> stacks;
    for (int i = 0; i < options.listings; ++i) {
        RoadOutcome outcome;
        const std::vector<std::uint64_t> found =
            listStacks(options.programs, simulator::tlsSourceOf(options.tls), outcome);
        if (!outcome.everyStage || !outcome.finding.empty()) {
            throw std::runtime_error("the road fails without any injection: " + outcome.stage +
                                     outcome.finding);
        }
        stacks.insert(found.begin(), found.end());
        plan.allocations = std::max<std::uint64_t>(plan.allocations, outcome.allocations);
        plan.beforeMain = outcome.beforeMain;
    }
    return stacks;
}

/// Every k-th of them, so that at most `most` stay.
void thinOut(std::vector<Injection>& injections, std::size_t most) {
    if (most == 0 || injections.size() <= most) {
        return;
    }
    std::vector<Injection> kept;
    for (std::size_t i = 0; i < most; ++i) {
        kept.push_back(injections[i * injections.size() / most]);
    }
    injections = std::move(kept);
}

Plan makePlan(const Options& options) {
    Plan plan;
    const std::set<std::uint64_t> stacks = findStacks(options, plan);
    plan.stacks = stacks.size();
    for (const Failing failing : {Failing::kOnce, Failing::kFromThereOn}) {
        if (options.everyAllocation) {
            for (std::uint64_t index = 1; index <= plan.allocations; ++index) {
                plan.injections.push_back({failing, index, 0});
            }
        } else {
            for (const std::uint64_t stack : stacks) {
                plan.injections.push_back({failing, 0, stack});
            }
        }
    }
    thinOut(plan.injections, options.most);
    return plan;
}

Plan planOfOne(const std::string& name) {
    const std::size_t colon = name.find(':');
    Plan plan;
    plan.stacks = 1;
    plan.injections.push_back(
        {failingOf(name.substr(colon + 1)), 0, std::stoull(name.substr(0, colon), nullptr, 16)});
    return plan;
}

Json reportOf(const Injection& injection, const RoadOutcome& outcome) {
    std::ostringstream name;
    name << std::hex << injection.stack << ":" << wordOf(injection.failing);
    return {
        {"name", injection.index == 0 ? name.str()
                                      : std::to_string(injection.index) + ":" + wordOf(injection.failing)},
        {"failures", outcome.failures},
        {"everyStage", outcome.everyStage},
        {"walkedAgain", outcome.walkedAgain},
        {"tlsLost", outcome.tlsLost},
        {"logged", outcome.logged},
        {"stage", outcome.stage},
        {"finding", outcome.finding},
        {"where", outcome.where},
        {"log", outcome.lastLog}};
}

/// One worker's share, in a network of its own because the receiver's port is fixed.
void work(const Options& options, const Plan& plan, std::size_t first, std::size_t step,
          const std::string& file) {
    std::ofstream reports(file);
    for (std::size_t i = first; i < plan.injections.size(); i += step) {
        const RoadOutcome outcome =
            takeTorturedRoad(options.programs, simulator::tlsSourceOf(options.tls), plan.injections[i]);
        if (outcome.stage.find("interrupted by signal") != std::string::npos) {
            throw std::runtime_error("interrupted");
        }
        reports << reportOf(plan.injections[i], outcome).dump(-1, ' ', true, Json::error_handler_t::replace)
                << std::endl;
    }
}

pid_t startWorker(const Options& options, const Plan& plan, std::size_t number, const std::string& file) {
    const pid_t pid = fork();
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        try {
            wpp_test::enterOwnNetwork();
            work(options, plan, number, static_cast<std::size_t>(options.jobs), file);
            _exit(0);
        } catch (const std::exception& error) {
            std::cerr << "torture-road: " << error.what() << std::endl;
            _exit(1);
        }
    }
    return pid;
}

std::vector<Json> runPlan(const Options& options, const Plan& plan) {
    const wpp_test::TemporaryDirectory temporary;
    const std::filesystem::path directory =
        options.reports.empty() ? temporary.path() : std::filesystem::path(options.reports);
    std::filesystem::create_directories(directory);
    std::map<pid_t, std::string> workers;
    for (int i = 0; i < options.jobs; ++i) {
        const std::string file = (directory / (options.tls + "-" + std::to_string(i))).string();
        workers[startWorker(options, plan, static_cast<std::size_t>(i), file)] = file;
    }
    std::vector<Json> reports;
    for (const auto& [pid, file] : workers) {
        int status = 0;
        if (waitpid(pid, &status, 0) != pid || status != 0) {
            throw std::runtime_error("a worker failed");
        }
        std::ifstream lines(file);
        for (std::string line; std::getline(lines, line);) {
            reports.push_back(Json::parse(line));
        }
    }
    return reports;
}

void printFinding(const Json& report) {
    std::cout << "finding " << report["name"].get<std::string>() << ": "
              << report["finding"].get<std::string>() << "; stage " << report["stage"].get<std::string>()
              << "\n";
    for (const char* const list : {"where", "log"}) {
        for (const Json& line : report[list]) {
            std::cout << "    " << (list[0] == 'w' ? "at " : "") << line.get<std::string>() << "\n";
        }
    }
}

int printTotals(const Options& options, const Plan& plan, const std::vector<Json>& reports) {
    std::uint64_t fired = 0;
    std::uint64_t failures = 0;
    std::uint64_t whole = 0;
    std::uint64_t again = 0;
    std::uint64_t tlsLost = 0;
    std::uint64_t logged = 0;
    std::uint64_t findings = 0;
    for (const Json& report : reports) {
        const bool hit = report["failures"].get<std::uint64_t>() > 0;
        fired += hit ? 1 : 0;
        failures += report["failures"].get<std::uint64_t>();
        whole += hit && report["everyStage"].get<bool>() ? 1 : 0;
        again += hit && report["walkedAgain"].get<bool>() ? 1 : 0;
        tlsLost += report["tlsLost"].get<bool>() ? 1 : 0;
        logged += hit && report["logged"].get<bool>() ? 1 : 0;
        if (!report["finding"].get<std::string>().empty()) {
            ++findings;
            printFinding(report);
        }
    }
    std::printf("%-32s %12llu %9zu %11llu %9llu %9llu\n", ("road-" + options.tls).c_str(),
                static_cast<unsigned long long>(plan.allocations), plan.stacks,
                static_cast<unsigned long long>(fired), static_cast<unsigned long long>(fired - findings),
                static_cast<unsigned long long>(findings));
    const auto note = [&options](const char* what, std::uint64_t count) {
        std::printf("# road-%s: %s: %llu\n", options.tls.c_str(), what,
                    static_cast<unsigned long long>(count));
    };
    note("failed allocations", failures);
    note("roads walked to their end", whole);
    note("roads walked again once memory was back", again);
    note("roads on which OpenSSL kept a failed initialisation", tlsLost);
    note("roads with a logged line", logged);
    note("allocations before main, which never fail", plan.beforeMain);
    return findings == 0 && fired > 0 ? 0 : 1;
}

int run(int argumentCount, char** arguments) {
    Options options;
    CLI::App app("Fails the receiver's allocations on the road of one phone, one after the other");
    app.add_option("--receiver", options.programs.receiver, "The receiver with the hooks")->required();
    app.add_option("--simulator", options.programs.simulator, "The program that plays the peers")->required();
    app.add_option("--tls", options.tls, "configured or requested");
    app.add_option("--most", options.most, "At most this many injections, evenly chosen");
    app.add_option("--jobs", options.jobs, "Roads at once");
    app.add_option("--reports", options.reports, "Keep a line for each injection in this directory");
    app.add_option("--listings", options.listings, "Roads walked to find the stacks");
    app.add_option("--only", options.only, "One injection, by the name that a finding shows");
    app.add_flag("--all", options.everyAllocation, "Every allocation, not only one for each stack");
    CLI11_PARSE(app, argumentCount, arguments);
    if (!wpp_test::enterOwnNetwork()) {
        options.jobs = 1;
    }
    const Plan plan = options.only.empty() ? makePlan(options) : planOfOne(options.only);
    return printTotals(options, plan, runPlan(options, plan));
}

}  // namespace
}  // namespace wpp_torture

int main(int argumentCount, char** arguments) {
    try {
        return wpp_torture::run(argumentCount, arguments);
    } catch (const std::exception& error) {
        std::cerr << "torture-road: " << error.what() << std::endl;
        return 2;
    }
}
