#pragma once

#include <cstddef>

namespace wpp_test {

/// How often this program has let time pass without waiting for anything.
std::size_t pauses();

}  // namespace wpp_test
