#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "Tests/Torture/Trial.h"

namespace wpp_torture {

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
