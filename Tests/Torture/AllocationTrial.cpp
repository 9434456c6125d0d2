#include "Tests/Torture/AllocationTrial.h"

#include <algorithm>

#include "Tests/Torture/AllocationControl.h"
#include "Tests/Torture/AllocationHooks.h"

namespace wpp_torture {

namespace {

constexpr int kWarmUps = 3;
constexpr int kListings = 3;
constexpr int kSparesBehindTheLast = 3;  // threads make the number of allocations vary
constexpr int kLeaksInARow = 4;

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

RunOutcome runOnce(const Scenario& scenario, AllocationControl& control) {
    return runScenario(scenario, control.armed, control.live);
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
    if (control.failures == 0) {
        return false;
    }
    const std::uint64_t failures = control.failures;
    ++totals.injections;
    totals.failures += failures;
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
