#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "Tests/Torture/CallTally.h"
#include "Tests/Torture/Trial.h"

namespace wpp_torture {

/// How thoroughly a scenario is tortured.
struct CallTrialPlan {
    std::size_t mostPlaces = 0;  ///< for each call, errno and way to fail; 0 for all of them
    std::uint64_t share = 1;     ///< one in so many injections
    std::string only;            ///< "CALL:ERRNO:WAY:INDEX" of a finding to repeat
};

struct CallTotals {
    CallTally tally;
    std::vector<std::string> findings;
};

/// The injection under way, for whoever reports that it hangs.
const char* runningInjection();

/// Makes the scenario's system calls fail one after the other, with each errno that is possible: once, from there on,
/// and every n-th. After each run nothing may have escaped, leaked or been left unusable.
CallTotals tortureCalls(const Scenario& scenario, const CallTrialPlan& plan);

}  // namespace wpp_torture
