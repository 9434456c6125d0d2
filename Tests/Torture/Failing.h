#pragma once

#include <cstddef>
#include <cstdint>

namespace wpp_torture {

/// Which of the allocations or system calls of a process fail.
enum class Failing : std::uint32_t {
    kNone = 0,         ///< none: they are only counted
    kOnce = 1,         ///< the chosen one
    kFromThereOn = 2,  ///< the chosen one and all that follow, until the control is disarmed
    kEvery = 3         ///< every n-th one; of system calls only
};

/// How many stacks a listing keeps.
constexpr std::size_t kMostRecords = 1U << 18U;

/// The environment variable with the path of the control's file to map.
constexpr const char* kControlVariable = "WPP_TORTURE_CONTROL";

}  // namespace wpp_torture
