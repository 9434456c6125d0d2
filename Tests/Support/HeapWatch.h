#pragma once

#include <cstddef>

namespace wpp_test {

/// How often the calling thread has taken memory with operator new.
std::size_t heapTakes();

/// Makes operator new fail in this process for the length of a scope, from its first call or, where some are granted,
/// from the one after these. One at a time.
class EmptyHeap {
public:
    explicit EmptyHeap(long grantedTakes = 0);
    ~EmptyHeap();
    EmptyHeap(const EmptyHeap&) = delete;
    EmptyHeap& operator=(const EmptyHeap&) = delete;
};

}  // namespace wpp_test
