// Fails the allocations of the framework's scenarios one after the other.

#include <unistd.h>
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstring>

#include "Tests/Torture/AllocationTrial.h"
#include "Tests/Torture/Scenarios.h"

namespace {

const char* runningScenario = "";

/// A scenario that hangs holds a lock or waits for what never comes.
void reportHang(int) {
    const char text[] = "torture-framework: hangs: ";
    static_cast<void>(!write(STDERR_FILENO, text, sizeof(text) - 1));
    static_cast<void>(!write(STDERR_FILENO, runningScenario, std::strlen(runningScenario)));
    _exit(3);
}

bool isWanted(const wpp_torture::Scenario& scenario, int count, char** names) {
    return count == 0 || std::any_of(names, names + count, [&scenario](const char* name) {
               return std::strcmp(name, scenario.name) == 0;
           });
}

bool tortureAndPrint(const wpp_torture::Scenario& scenario) {
    runningScenario = scenario.name;
    const wpp_torture::Totals totals = wpp_torture::torture(scenario);
    for (const std::string& finding : totals.findings) {
        std::printf("finding %s %s\n", scenario.name, finding.c_str());
    }
    const auto findings = static_cast<unsigned long long>(totals.findings.size());
    const auto injections = static_cast<unsigned long long>(totals.injections);
    std::printf("%-32s %12llu %9zu %11llu %9llu %9llu\n", scenario.name,
                static_cast<unsigned long long>(totals.allocations), totals.stacks.size(), injections,
                injections - std::min(findings, injections), findings);
    std::fflush(stdout);
    return totals.findings.empty() && (totals.injections > 0 || totals.allocations == 0);
}

}  // namespace

int main(int argumentCount, char** arguments) {
    std::signal(SIGALRM, reportHang);
    bool clean = true;
    int taken = 0;
    for (const wpp_torture::Scenario& scenario : wpp_torture::frameworkScenarios()) {
        if (isWanted(scenario, argumentCount - 1, arguments + 1)) {
            ++taken;
            clean = tortureAndPrint(scenario) && clean;
        }
    }
    if (taken == 0) {
        std::fprintf(stderr, "torture-framework: there is no such scenario\n");
        return 2;
    }
    return clean ? 0 : 1;
}
