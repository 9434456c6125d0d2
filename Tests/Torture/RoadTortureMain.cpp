// Takes the receiver along the road again and again, each time with another allocation or system call failing.

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
#include <sstream>

#include <CLI/CLI.hpp>

#include "Tests/Support/OwnNetwork.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/Torture/CallTally.h"
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
    std::string tally;    // file for the calls' tally; empty: it is printed
    bool everyAllocation = false;
};

struct Plan {
    std::uint64_t counted = 0;
    std::uint64_t beforeMain = 0;
    std::size_t stacks = 0;
    CallTally tally;
    std::vector<Injection> injections;
};

Failing failingOf(const std::string& word) {
    return word == "once" ? Failing::kOnce : Failing::kFromThereOn;
}

std::string wordOf(Failing failing) {
    return failing == Failing::kOnce ? "once" : "onward";
}

/// Threads take turns differently each time, so that one road does not show every stack.
std::map<std::uint64_t, Call> findSites(const Options& options, Plan& plan) {
    std::map<std::uint64_t, Call> sites;
    for (int i = 0; i < options.listings; ++i) {
        RoadOutcome outcome;
        const std::vector<Site> found =
            listSites(options.programs, simulator::tlsSourceOf(options.tls), outcome);
        if (!outcome.everyStage || !outcome.finding.empty()) {
            throw std::runtime_error("the road fails without any injection: " + outcome.stage +
                                     outcome.finding);
        }
        for (const Site& site : found) {
            sites.emplace(site.stack, site.call);
        }
        plan.counted = std::max<std::uint64_t>(plan.counted, outcome.counted);
        plan.beforeMain = outcome.beforeMain;
    }
    return sites;
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

void planCalls(const std::map<std::uint64_t, Call>& sites, Failing failing, Plan& plan) {
    for (const auto& [stack, call] : sites) {
        plan.tally.addSite(call, stack);
        for (const Effect effect : errorsOf(call).effects) {
            plan.injections.push_back({failing, 0, {call, stack}, effect});
        }
    }
}

Plan makePlan(const Options& options) {
    Plan plan;
    const std::map<std::uint64_t, Call> sites = findSites(options, plan);
    plan.stacks = sites.size();
    for (const Failing failing : {Failing::kOnce, Failing::kFromThereOn}) {
        if (options.programs.calls) {
            planCalls(sites, failing, plan);
        } else if (options.everyAllocation) {
            for (std::uint64_t index = 1; index <= plan.counted; ++index) {
                plan.injections.push_back({failing, index, {}, kShort});
            }
        } else {
            for (const auto& site : sites) {
                plan.injections.push_back({failing, 0, {Call::kCount, site.first}, kShort});
            }
        }
    }
    thinOut(plan.injections, options.most);
    return plan;
}

/// The name is "STACK:WAY", for a call "STACK:WAY:CALL:ERRNO".
Plan planOfOne(const std::string& name) {
    std::vector<std::string> parts;
    std::istringstream text(name);
    for (std::string part; std::getline(text, part, ':');) {
        parts.push_back(part);
    }
    Plan plan;
    plan.stacks = 1;
    Injection injection{
        failingOf(parts.at(1)), 0, {Call::kCount, std::stoull(parts.at(0), nullptr, 16)}, kShort};
    if (parts.size() == 4) {
        injection.site.call = callOf(parts[2]);
        injection.effect = effectOf(parts[3]);
    }
    plan.injections.push_back(injection);
    return plan;
}

std::string injectionName(const Injection& injection) {
    std::ostringstream name;
    if (injection.index == 0) {
        name << std::hex << injection.site.stack;
    } else {
        name << injection.index;
    }
    name << ":" << wordOf(injection.failing);
    if (injection.site.call != Call::kCount) {
        name << ":" << errorsOf(injection.site.call).name << ":" << nameOf(injection.effect);
    }
    return name.str();
}

Json reportOf(const Injection& injection, const RoadOutcome& outcome) {
    return {{"name", injectionName(injection)},
            {"call", static_cast<std::uint32_t>(injection.site.call)},
            {"effect", injection.effect},
            {"accepted", outcome.accepted},
            {"failures", outcome.failures},
            {"everyStage", outcome.everyStage},
            {"walkedAgain", outcome.walkedAgain},
            {"tlsLost", outcome.tlsLost},
            {"openSslLost", outcome.openSslLost},
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

/// Hands the calls' injections over to the table that they share with others.
bool writeTally(const Options& options, const Plan& plan, const std::vector<Json>& reports) {
    CallTally tally = plan.tally;
    for (const Json& report : reports) {
        const bool isFinding = !report["finding"].get<std::string>().empty();
        if (report["failures"].get<std::uint64_t>() > 0) {
            tally.addInjection(static_cast<Call>(report["call"].get<std::uint32_t>()),
                               report["effect"].get<Effect>(), report["accepted"].get<std::string>(),
                               isFinding);
        }
        if (isFinding) {
            printFinding(report);
        }
    }
    if (options.tally.empty()) {
        tally.print();
    } else {
        std::ofstream(options.tally) << tally.toJson();
    }
    return tally.findings() == 0 && tally.injections() > 0;
}

int printTotals(const Options& options, const Plan& plan, const std::vector<Json>& reports) {
    std::uint64_t fired = 0;
    std::uint64_t failures = 0;
    std::uint64_t whole = 0;
    std::uint64_t again = 0;
    std::uint64_t tlsLost = 0;
    std::uint64_t openSslLost = 0;
    std::uint64_t logged = 0;
    std::uint64_t findings = 0;
    for (const Json& report : reports) {
        const bool hit = report["failures"].get<std::uint64_t>() > 0;
        fired += hit ? 1 : 0;
        failures += report["failures"].get<std::uint64_t>();
        whole += hit && report["everyStage"].get<bool>() ? 1 : 0;
        again += hit && report["walkedAgain"].get<bool>() ? 1 : 0;
        tlsLost += report["tlsLost"].get<bool>() ? 1 : 0;
        openSslLost += report["openSslLost"].get<bool>() ? 1 : 0;
        logged += hit && report["logged"].get<bool>() ? 1 : 0;
        if (!report["finding"].get<std::string>().empty()) {
            ++findings;
            printFinding(report);
        }
    }
    std::printf("%-32s %12llu %9zu %11llu %9llu %9llu\n", ("road-" + options.tls).c_str(),
                static_cast<unsigned long long>(plan.counted), plan.stacks,
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
    note("roads on which OpenSSL lost memory of its own", openSslLost);
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
    app.add_flag("--calls", options.programs.calls, "The receiver brings the hooks of the system calls");
    app.add_option("--tally", options.tally, "Write the tally of the calls to this file, for torture-calls");
    app.add_flag("--all", options.everyAllocation, "Every allocation, not only one for each stack");
    CLI11_PARSE(app, argumentCount, arguments);
    if (!wpp_test::enterOwnNetwork()) {
        options.jobs = 1;
    }
    const Plan plan = options.only.empty() ? makePlan(options) : planOfOne(options.only);
    const std::vector<Json> reports = runPlan(options, plan);
    if (options.programs.calls) {
        return writeTally(options, plan, reports) ? 0 : 1;
    }
    return printTotals(options, plan, reports);
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
