#include "Tests/QMFramework92/Communication/FailingAllocation.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::size_t> failingSize{0};
std::atomic<wpp_test::FailingAllocation::Kind> failingKind{wpp_test::FailingAllocation::kBadAlloc};

struct NotAStandardException {};

}  // namespace

namespace wpp_test {

FailingAllocation::FailingAllocation(std::size_t size, Kind kind) {
    failingKind = kind;
    failingSize = size;
}

FailingAllocation::~FailingAllocation() {
    failingSize = 0;
}

}  // namespace wpp_test

// The array forms of this program, all on malloc, so that each can be told to fail.

void* operator new[](std::size_t size) {
    if (size != 0 && size == failingSize) {
        if (failingKind == wpp_test::FailingAllocation::kOtherException) {
            throw NotAStandardException();
        }
        throw std::bad_alloc();
    }
    void* memory = std::malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return size != 0 && size == failingSize ? nullptr : std::malloc(size);
}

void operator delete[](void* memory) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    std::free(memory);
}

void operator delete[](void* memory, const std::nothrow_t&) noexcept {
    std::free(memory);
}
