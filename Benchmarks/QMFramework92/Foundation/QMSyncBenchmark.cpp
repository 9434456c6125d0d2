// Taking and giving back a lock that nobody contends for, free or already held by the caller.

#include "Foundation/QMSync.h"

#include <benchmark/benchmark.h>
#include <pthread.h>

#include <cstdint>
#include <mutex>

#include "Benchmarks/Support/BareLock.h"

namespace {

void ours(benchmark::State& state, bool held) {
    QMSync lock;
    if (held) {
        lock.Lock(QM_WAIT_INFINITE);
    }
    for ([[maybe_unused]] const auto unused : state) {
        benchmark::DoNotOptimize(lock.Lock(QM_WAIT_INFINITE));
        lock.Unlock();
    }
    if (held) {
        lock.Unlock();
    }
}
BENCHMARK_CAPTURE(ours, free, false)->Name("lock-unlock/free/ours");
BENCHMARK_CAPTURE(ours, held, true)->Name("lock-unlock/held/ours");

/// The calls of a recursive lock on a semaphore: who am I, wait and post. The compiler must not take the first, whose
/// result never changes, for one call.
void prescribed(benchmark::State& state, bool held) {
    wpp_benchmark::BareLock lock;
    auto* const volatile callingThread = &pthread_self;
    pthread_t owner = held ? pthread_self() : pthread_t{};
    std::uint32_t count = 0;
    benchmark::DoNotOptimize(&owner);
    benchmark::DoNotOptimize(&count);
    for ([[maybe_unused]] const auto unused : state) {
        if (pthread_equal(owner, callingThread()) != 0) {
            ++count;
            benchmark::ClobberMemory();
            --count;
        } else {
            lock.lock();
            benchmark::ClobberMemory();
            lock.unlock();
        }
        benchmark::ClobberMemory();
    }
}
BENCHMARK_CAPTURE(prescribed, free, false)->Name("lock-unlock/free/prescribed");
BENCHMARK_CAPTURE(prescribed, held, true)->Name("lock-unlock/held/prescribed");

void recursiveMutex(benchmark::State& state, bool held) {
    std::recursive_mutex lock;
    if (held) {
        lock.lock();
    }
    for ([[maybe_unused]] const auto unused : state) {
        lock.lock();
        benchmark::ClobberMemory();
        lock.unlock();
    }
    if (held) {
        lock.unlock();
    }
}
BENCHMARK_CAPTURE(recursiveMutex, free, false)->Name("lock-unlock/free/recursive-mutex");
BENCHMARK_CAPTURE(recursiveMutex, held, true)->Name("lock-unlock/held/recursive-mutex");

}  // namespace
