#pragma once

#include <cstddef>

namespace wpp_test {

/// Makes array allocations of one size fail in this process for the length of a scope. One at a time.
class FailingAllocation {
public:
    enum Kind { kBadAlloc, kOtherException };

    explicit FailingAllocation(std::size_t size, Kind kind = kBadAlloc);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation&) = delete;
    FailingAllocation& operator=(const FailingAllocation&) = delete;
};

/// Makes array allocations of more than `largest` bytes fail in this process from now on.
void limitArrayAllocations(std::size_t largest);

}  // namespace wpp_test
