// A thread from its start to its exit, which a second thread watches over. The owner's procedure does nothing.

#include "Foundation/QMThread.h"

#include <benchmark/benchmark.h>
#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

#include <map>

#include "Benchmarks/Support/BareEvent.h"
#include "Benchmarks/Support/BareLock.h"
#include "Benchmarks/Support/OneCpu.h"

namespace {

constexpr int kExitTimeoutMs = 10000;
constexpr const char* kThreadName = "Thread";

class Owner {
public:
    void MainProc() { benchmark::DoNotOptimize(this); }
};

void ours(benchmark::State& state) {
    const wpp_benchmark::OneCpu oneCpu;
    Owner owner;
    QMThread<Owner> thread(&owner);
    for ([[maybe_unused]] const auto unused : state) {
        if (!thread.Start(kThreadName) || !thread.WaitExit(kExitTimeoutMs)) {
            state.SkipWithError("the thread did not run");
            break;
        }
    }
}
BENCHMARK(ours)->MeasureProcessCPUTime()->UseRealTime()->Name("thread-start-exit/supervised/ours");

/// The calls of a thread's life and nothing else: created and named under its lock, which it then takes itself to
/// read its id and priority and to register; joined under the eyes of a watcher.
class PrescribedThread {
public:
    void start() {
        stateLock.lock();
        pthread_create(&thread, nullptr, &PrescribedThread::run, this);
        pthread_setname_np(thread, kThreadName);
        stateLock.unlock();
    }

    void waitExit() {
        pthread_t watcher{};
        pthread_create(&watcher, nullptr, &PrescribedThread::watch, this);
        pthread_join(thread, nullptr);
        exitEvent.set();
        pthread_join(watcher, nullptr);
        registryLock.lock();
        registry.erase(thread);
        registryLock.unlock();
    }

private:
    static void* run(void* argument) {
        auto* self = static_cast<PrescribedThread*>(argument);
        self->stateLock.lock();
        const pid_t tid = gettid();
        const int priority = getpriority(PRIO_PROCESS, static_cast<id_t>(tid));
        self->registryLock.lock();
        self->registry[pthread_self()] = priority;
        self->registryLock.unlock();
        self->stateLock.unlock();
        self->owner.MainProc();
        return nullptr;
    }

    static void* watch(void* argument) {
        static_cast<PrescribedThread*>(argument)->exitEvent.wait(kExitTimeoutMs);
        return nullptr;
    }

    Owner owner;
    pthread_t thread{};
    wpp_benchmark::BareLock stateLock;
    wpp_benchmark::BareLock registryLock;
    wpp_benchmark::BareEvent exitEvent;
    std::map<pthread_t, int> registry;
};

void prescribed(benchmark::State& state) {
    const wpp_benchmark::OneCpu oneCpu;
    PrescribedThread thread;
    for ([[maybe_unused]] const auto unused : state) {
        thread.start();
        thread.waitExit();
    }
}
BENCHMARK(prescribed)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("thread-start-exit/supervised/prescribed");

/// What a thread costs without a name, a register and a watcher.
void minimal(benchmark::State& state) {
    const wpp_benchmark::OneCpu oneCpu;
    Owner owner;
    for ([[maybe_unused]] const auto unused : state) {
        pthread_t thread{};
        pthread_create(
            &thread, nullptr,
            [](void* argument) -> void* {
                static_cast<Owner*>(argument)->MainProc();
                return nullptr;
            },
            &owner);
        pthread_join(thread, nullptr);
    }
}
BENCHMARK(minimal)->MeasureProcessCPUTime()->UseRealTime()->Name("thread-start-exit/supervised/minimal");

}  // namespace
