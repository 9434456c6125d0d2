#include "Benchmarks/Support/HeapCount.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::uint64_t> takes{0};

}  // namespace

namespace wpp_benchmark {

std::uint64_t heapTakes() {
    return takes.load(std::memory_order_relaxed);
}

}  // namespace wpp_benchmark

// This program's own forms of the operators; they take the place of the runtime's, and the other forms call them.

void* operator new(std::size_t size) {
    takes.fetch_add(1, std::memory_order_relaxed);
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
