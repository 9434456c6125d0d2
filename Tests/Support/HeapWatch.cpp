#include "Tests/Support/HeapWatch.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> heapIsShort{false};
std::atomic<long> takesLeft{0};  // while it is short
thread_local std::size_t takesOfThisThread = 0;

void countTake() {
    ++takesOfThisThread;
    if (heapIsShort && takesLeft.fetch_sub(1) <= 0) {
        throw std::bad_alloc();
    }
}

}  // namespace

namespace wpp_test {

std::size_t heapTakes() {
    return takesOfThisThread;
}

EmptyHeap::EmptyHeap(long grantedTakes) {
    takesLeft = grantedTakes;
    heapIsShort = true;
}

EmptyHeap::~EmptyHeap() {
    heapIsShort = false;
}

}  // namespace wpp_test

#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define WPP_OPERATORS_ARE_THE_SANITIZERS
#endif
#endif

#if defined(WPP_OPERATORS_ARE_THE_SANITIZERS)

// The thread sanitizer's operators cannot be replaced. The linker directs the program's own calls here (--wrap),
// though not those of the C++ library.
extern "C" void* __real__Znwm(std::size_t size);
extern "C" void* __wrap__Znwm(std::size_t size) {
    countTake();
    return __real__Znwm(size);
}

#else

// This program's own forms of the operators; they take the place of the runtime's.

void* operator new(std::size_t size) {
    countTake();
    void* const memory = std::malloc(size == 0 ? 1 : size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

#endif
