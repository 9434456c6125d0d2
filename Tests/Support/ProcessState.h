#pragma once

#include <cstddef>
#include <set>

namespace wpp_test {

/// The descriptors that this process has open now.
std::set<int> openDescriptors();

/// The number of threads that this process has now.
std::size_t threadCount();

}  // namespace wpp_test
