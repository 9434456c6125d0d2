#pragma once

#include <atomic>
#include <cstdint>

#include "Tests/Torture/CallTable.h"
#include "Tests/Torture/Failing.h"
#include "Tests/Torture/StackTrace.h"

namespace wpp_torture {

/// One call of a listing.
struct CallRecord {
    std::atomic<std::uint32_t> call;   ///< a Call
    std::atomic<std::uint32_t> ready;  ///< written after the rest
    std::atomic<std::uint64_t> stack;
};

/// What a tortured process shares with whoever tortures it; both map the same file. All zero to begin with.
///
/// The torturer fills in what shall fail before the process starts (or, in one process, before it arms), and may
/// disarm at any time; the rest is the process's to write.
struct CallControl {
    std::atomic<std::uint32_t> armed;    ///< calls are counted and fail only while this is 1
    std::atomic<std::uint32_t> failing;  ///< a Failing
    std::atomic<std::uint32_t> call;     ///< the chosen Call
    std::atomic<std::int32_t> effect;    ///< what it does
    std::atomic<std::uint64_t>
        index;  ///< the chosen one by its number among its like, from 1 on; 0: by its stack
    std::atomic<std::uint64_t> stack;    ///< the chosen one: the first with this call stack
    std::atomic<std::uint32_t> listing;  ///< 1: record the stack of each call

    std::atomic<std::uint64_t> calls;               ///< counted so far
    std::atomic<std::uint64_t> counts[kCallCount];  ///< of them, by their Call
    std::atomic<std::uint64_t> injections;          ///< how many of them did what was injected

    std::atomic<std::uint32_t> frameCount;  ///< of the first injection
    Frame frames[kMostFrames];

    CallRecord records[kMostRecords];  ///< by number - 1, while listing
};

}  // namespace wpp_torture
