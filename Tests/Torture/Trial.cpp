#include "Tests/Torture/Trial.h"

#include <unistd.h>

#include <exception>
#include <new>

#include "Tests/Support/LogCapture.h"

namespace wpp_torture {

namespace {

constexpr unsigned kHangSeconds = 30;

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

}  // namespace

RunOutcome runScenario(const Scenario& scenario, std::atomic<std::uint32_t>& armed,
                       const std::atomic<std::int64_t>& live) {
    RunOutcome outcome;
    const wpp_test::LogCapture log;
    const char* special = nullptr;
    const std::int64_t before = live;
    {
        Trial trial(armed);
        alarm(kHangSeconds);
        runGuarded(scenario, trial, outcome);
        alarm(0);
        outcome.answered = outcome.answered || trial.wasRefused() || log.contains("[error]");
        special = trial.specialOutcome();
        if (trial.broken() != nullptr) {
            outcome.finding = trial.broken();
        } else if (trial.missed() != nullptr && !outcome.answered) {
            outcome.finding = std::string("silent: ") + trial.missed();
        }
    }
    if (!outcome.finding.empty() && !log.lines().empty()) {
        outcome.finding += "; last logged: " + log.lines().back();
    }
    outcome.leaked = outcome.finding.empty() ? live - before : 0;
    outcome.special = special == nullptr ? "" : special;
    return outcome;
}

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

}  // namespace wpp_torture
