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

/// Makes array allocations of more than `largest` bytes fail in this process for the length of a scope. One at a
/// time.
class ArrayLimit {
public:
    explicit ArrayLimit(std::size_t largest);
    ~ArrayLimit();
    ArrayLimit(const ArrayLimit&) = delete;
    ArrayLimit& operator=(const ArrayLimit&) = delete;
};

}  // namespace wpp_test
