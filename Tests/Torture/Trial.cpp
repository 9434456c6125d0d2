#include "Tests/Torture/Trial.h"

#include <unistd.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <new>

#include "Tests/Support/LogCapture.h"
#include "Tests/Torture/AllocationHooks.h"

namespace wpp_torture {

namespace {

constexpr int kWarmUps = 3;
constexpr int kListings = 3;
constexpr int kSparesBehindTheLast = 3;  // threads make the number of allocations vary
constexpr int kLeaksInARow = 4;
constexpr unsigned kHangSeconds = 60;

/// One for the process, so that no run pays for its pages.
AllocationControl& processControl() {
    static AllocationControl control;
    return control;
}

void reset(AllocationControl& control, Failing failing, std::uint64_t index) {
    control.armed = 0;
    control.failing = static_cast<std::uint32_t>(failing);
    control.index = index;
    control.listing = failing == Failing::kNone ? 1 : 0;
    control.allocations = 0;
    control.failures = 0;
}

struct RunOutcome {
    std::uint64_t failures = 0;
    bool answered = false;
    std::int64_t leaked = 0;
    std::string finding;
};

/// Runs the scenario and takes in what escapes it.
void runGuarded(const Scenario& scenario, Trial& trial, RunOutcome& outcome) {
    try {
        scenario.run(trial);
    } catch (const std::bad_alloc&) {
        trial.end();
        outcome.answered = true;
        if (!scenario.mayThrow) {
            outcome.finding = "std::bad_alloc escaped";
        }
    } catch (const std::exception& error) {
        trial.end();
        outcome.finding = std::string("escaped: ") + error.what();
    }
}

RunOutcome runOnce(const Scenario& scenario, AllocationControl& control) {
    RunOutcome outcome;
    const wpp_test::LogCapture log;
    const std::int64_t before = control.live;
    {
        Trial trial(control);
        alarm(kHangSeconds);
        runGuarded(scenario, trial, outcome);
        alarm(0);
        outcome.answered = outcome.answered || trial.wasRefused() || log.contains("[error]");
        if (trial.broken() != nullptr) {
            outcome.finding = trial.broken();
        } else if (trial.missed() != nullptr && !outcome.answered) {
            outcome.finding = std::string("silent: ") + trial.missed();
        }
    }
    if (!outcome.finding.empty() && !log.lines().empty()) {
        outcome.finding += "; last logged: " + log.lines().back();
    }
    outcome.failures = control.failures;
    outcome.leaked = outcome.finding.empty() ? control.live - before : 0;
    return outcome;
}

/// Blocks that stay behind may be a cache that grew; those that stay behind every time are a leak.
std::string findLeak(const Scenario& scenario, AllocationControl& control, Failing failing,
                     std::uint64_t index) {
    std::int64_t leaked = 0;
    for (int i = 0; i < kLeaksInARow; ++i) {
        reset(control, failing, index);
        leaked = runOnce(scenario, control).leaked;
        if (leaked <= 0) {
            return {};
        }
    }
    return std::to_string(leaked) + " blocks leaked";
}

std::string describe(Failing failing, std::uint64_t index, const std::string& finding) {
    return (failing == Failing::kOnce ? "once " : "from ") + std::to_string(index) + ": " + finding;
}

/// @return whether an allocation failed.
bool inject(const Scenario& scenario, AllocationControl& control, Failing failing, std::uint64_t index,
            Totals& totals) {
    reset(control, failing, index);
    RunOutcome outcome = runOnce(scenario, control);
    if (outcome.failures == 0) {
        return false;
    }
    ++totals.injections;
    totals.failures += outcome.failures;
    totals.answered += outcome.answered ? 1 : 0;
    if (outcome.finding.empty() && outcome.leaked > 0) {
        outcome.finding = findLeak(scenario, control, failing, index);
    }
    if (!outcome.finding.empty()) {
        totals.findings.push_back(describe(failing, index, outcome.finding));
    }
    return true;
}

void list(const Scenario& scenario, AllocationControl& control, Totals& totals) {
    for (int i = 0; i < kWarmUps + kListings; ++i) {
        reset(control, Failing::kNone, 0);
        const RunOutcome outcome = runOnce(scenario, control);
        if (!outcome.finding.empty() || (outcome.answered && !scenario.logsErrors)) {
            totals.findings.push_back("fails without any injection: " + outcome.finding);
            return;
        }
        const std::uint64_t count = std::min<std::uint64_t>(control.allocations, kMostRecords);
        if (i >= kWarmUps) {
            totals.allocations = std::max(totals.allocations, count);
            totals.stacks.insert(control.stacks, control.stacks + count);
        }
    }
}

}  // namespace

void Trial::require(bool holds, const char* what) {
    if (!holds && brokenRequirement == nullptr) {
        brokenRequirement = what;
    }
}

void Trial::expect(bool holds, const char* what) {
    if (!holds && missedExpectation == nullptr) {
        missedExpectation = what;
    }
}

Totals torture(const Scenario& scenario) {
    AllocationControl& control = processControl();
    useControl(&control);
    Totals totals;
    list(scenario, control, totals);
    for (const Failing failing : {Failing::kOnce, Failing::kFromThereOn}) {
        int dry = 0;
        for (std::uint64_t index = 1; totals.findings.size() < kMostFrames && dry < kSparesBehindTheLast;
             ++index) {
            dry = inject(scenario, control, failing, index, totals) ? 0 : dry + 1;
        }
    }
    reset(control, Failing::kNone, 0);
    const RunOutcome after = runOnce(scenario, control);
    if (!after.finding.empty() || (after.answered && !scenario.logsErrors)) {
        totals.findings.push_back("fails after all injections: " + after.finding);
    }
    useControl(nullptr);
    return totals;
}

}  // namespace wpp_torture
