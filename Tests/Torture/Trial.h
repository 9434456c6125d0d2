#pragma once

#include <atomic>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Tests/Torture/AllocationControl.h"

namespace wpp_torture {

/// One run of a scenario. The scenario builds what it needs, begins, does what is tortured, ends, and then uses the
/// same objects again with memory back; it tells what came of it.
class Trial {
public:
    explicit Trial(std::atomic<std::uint32_t>& armedFlag) : armed(armedFlag) {}

    /// From here to end() allocations or system calls are counted and may fail.
    void begin() { armed = 1; }
    void end() { armed = 0; }

    /// A call's status. A failing one is an answer like any other.
    void told(bool succeeded) { refusals += succeeded ? 0 : 1; }

    /// What has to be so, whatever failed.
    void require(bool holds, const char* what);

    /// What has to be so unless a status or the log said that something failed.
    void expect(bool holds, const char* what);

    /// What may be so after certain failures only, as the torturer knows.
    void endsWith(const char* what) { outcome = what; }

    bool wasRefused() const { return refusals > 0; }
    const char* broken() const { return brokenRequirement; }
    const char* missed() const { return missedExpectation; }
    const char* specialOutcome() const { return outcome; }

private:
    std::atomic<std::uint32_t>& armed;
    int refusals = 0;
    const char* brokenRequirement = nullptr;  // the first of them
    const char* missedExpectation = nullptr;
    const char* outcome = nullptr;
};

struct Scenario {
    const char* name;
    void (*run)(Trial& trial);
    bool mayThrow = false;    ///< an operation documents std::bad_alloc
    bool logsErrors = false;  ///< also when nothing fails
};

/// What came of one run of a scenario.
struct RunOutcome {
    bool answered = false;  ///< a status or a logged line told of a failure
    std::int64_t leaked = 0;
    std::string special;  ///< what endsWith() said; empty for nothing
    std::string finding;  ///< what must never be; empty for nothing
};

/// Runs the scenario once, with its log captured and a limit on its time. `live` counts the blocks of memory in use.
RunOutcome runScenario(const Scenario& scenario, std::atomic<std::uint32_t>& armed,
                       const std::atomic<std::int64_t>& live);

}  // namespace wpp_torture
