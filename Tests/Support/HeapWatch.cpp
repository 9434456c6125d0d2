#include "Tests/Support/HeapWatch.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<bool> heapIsEmpty{false};
thread_local std::size_t takesOfThisThread = 0;

}  // namespace

namespace wpp_test {

std::size_t heapTakes() {
    return takesOfThisThread;
}

EmptyHeap::EmptyHeap() {
    heapIsEmpty = true;
}

EmptyHeap::~EmptyHeap() {
    heapIsEmpty = false;
}

}  // namespace wpp_test

// This program's own forms of the operators; they take the place of the runtime's.

void* operator new(std::size_t size) {
    ++takesOfThisThread;
    void* const memory = heapIsEmpty ? nullptr : std::malloc(size == 0 ? 1 : size);
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
