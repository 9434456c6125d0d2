#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <set>

namespace wpp_test {

/// The descriptors that this process has open now.
std::set<int> openDescriptors();

/// The number of threads that this process has now.
std::size_t threadCount();

/// Keeps the process from opening any further descriptor until its end.
class NoMoreDescriptors {
public:
    NoMoreDescriptors();
    ~NoMoreDescriptors();
    NoMoreDescriptors(const NoMoreDescriptors&) = delete;
    NoMoreDescriptors& operator=(const NoMoreDescriptors&) = delete;

private:
    rlimit former{};
};

/// Makes every start of a thread with default attributes fail until its end.
class NoMoreThreads {
public:
    NoMoreThreads();
    ~NoMoreThreads();
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;

private:
    std::size_t formerStackSize = 0;
};

}  // namespace wpp_test
