#pragma once

#include <cstdint>

namespace wpp_benchmark {

/// How often the process has taken memory with operator new so far, on all its threads.
std::uint64_t heapTakes();

}  // namespace wpp_benchmark
