#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Tests/Torture/Failing.h"
#include "Tests/Torture/StackTrace.h"

namespace wpp_torture {

/// What a tortured process shares with whoever tortures it; both map the same file. All zero to begin with.
///
/// The torturer fills in what shall fail before the process starts (or, in one process, before it arms), and may
/// disarm at any time; the rest is the process's to write.
struct AllocationControl {
    std::atomic<std::uint32_t> armed;    ///< allocations are counted and fail only while this is 1
    std::atomic<std::uint32_t> failing;  ///< a Failing
    std::atomic<std::uint64_t> index;    ///< the chosen allocation by its number, from 1 on; 0: by its stack
    std::atomic<std::uint64_t> stack;    ///< the chosen allocation: the first one with this call stack
    std::atomic<std::uint32_t> listing;  ///< 1: record the stack of each allocation

    std::atomic<std::uint64_t> allocations;  ///< counted so far
    std::atomic<std::uint64_t> failures;     ///< how many of them failed
    std::atomic<std::uint64_t> beforeMain;   ///< allocations before main, which never fail
    std::atomic<std::int64_t> live;          ///< blocks taken and not given back since arming

    std::atomic<std::uint32_t> frameCount;  ///< of the first failure
    Frame frames[kMostFrames];

    std::atomic<std::uint64_t> stacks[kMostRecords];  ///< by number - 1, while listing
};

}  // namespace wpp_torture
