#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "Tests/Torture/AllocationControl.h"

namespace wpp_torture {

/// One run of a scenario. The scenario builds what it needs, begins, does what is tortured, ends, and then uses the
/// same objects again with memory back; it tells what came of it.
class Trial {
public:
    explicit Trial(AllocationControl& allocationControl) : control(allocationControl) {}

    /// From here to end() allocations are counted and may fail.
    void begin() { control.armed = 1; }
    void end() { control.armed = 0; }

    /// A call's status. A failing one is an answer like any other.
    void told(bool succeeded) { refusals += succeeded ? 0 : 1; }

    /// What has to be so, whatever failed.
    void require(bool holds, const char* what);

    /// What has to be so unless a status or the log said that something failed.
    void expect(bool holds, const char* what);

    bool wasRefused() const { return refusals > 0; }
    const char* broken() const { return brokenRequirement; }
    const char* missed() const { return missedExpectation; }

private:
    AllocationControl& control;
    int refusals = 0;
    const char* brokenRequirement = nullptr;  // the first of them
    const char* missedExpectation = nullptr;
};

struct Scenario {
    const char* name;
    void (*run)(Trial& trial);
    bool mayThrow = false;    ///< an operation documents std::bad_alloc
    bool logsErrors = false;  ///< also when nothing fails
};

/// The part of them that deals with sockets and files.
std::vector<Scenario> inputOutputScenarios();

/// Every scenario of the framework.
const std::vector<Scenario>& frameworkScenarios();

/// What the injections into one scenario came to.
struct Totals {
    std::uint64_t allocations = 0;  ///< of one run
    std::set<std::uint64_t> stacks;
    std::uint64_t injections = 0;  ///< runs in which an allocation failed
    std::uint64_t failures = 0;    ///< allocations that failed in them
    std::uint64_t answered = 0;    ///< of the injections, those that a status or a logged line told of
    std::vector<std::string> findings;
};

/// Fails the scenario's allocations one after the other, once and from there on. After each run nothing may have
/// escaped, leaked or been left unusable.
Totals torture(const Scenario& scenario);

}  // namespace wpp_torture
