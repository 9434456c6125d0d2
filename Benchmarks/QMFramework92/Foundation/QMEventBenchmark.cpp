// Setting an event and waiting for it: on one thread, where the wait finds the signal, and between two threads, where
// each waits for the other's.

#include "Foundation/QMEvent.h"

#include <benchmark/benchmark.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

#include "Benchmarks/Support/BareEvent.h"
#include "Benchmarks/Support/OneCpu.h"

namespace {

constexpr int kNoLimit = -1;

class OurEvent {
public:
    void set() { event.SetEvent(); }
    void wait() { QMEvent::WaitEvent(&event, QM_WAIT_INFINITE); }

private:
    QMEvent event;
};

class PrescribedEvent {
public:
    void set() { event.set(); }
    void wait() { event.wait(kNoLimit); }

private:
    wpp_benchmark::BareEvent event;
};

class EventDescriptor {
public:
    EventDescriptor() : descriptor(eventfd(0, EFD_CLOEXEC | EFD_SEMAPHORE)) {}
    ~EventDescriptor() { close(descriptor); }
    EventDescriptor(const EventDescriptor&) = delete;
    EventDescriptor& operator=(const EventDescriptor&) = delete;

    void set() {
        const std::uint64_t one = 1;
        static_cast<void>(!write(descriptor, &one, sizeof(one)));
    }
    /// A wait that could have a time limit.
    void wait() {
        pollfd watched{descriptor, POLLIN, 0};
        poll(&watched, 1, kNoLimit);
        std::uint64_t count = 0;
        static_cast<void>(!read(descriptor, &count, sizeof(count)));
    }

private:
    const int descriptor;
};

class ConditionVariable {
public:
    void set() {
        {
            const std::lock_guard<std::mutex> guard(lock);
            ++signals;
        }
        condition.notify_one();
    }
    void wait() {
        std::unique_lock<std::mutex> guard(lock);
        condition.wait(guard, [this] { return signals > 0; });
        --signals;
    }

private:
    std::mutex lock;
    std::condition_variable condition;
    std::uint64_t signals = 0;
};

template <class Event>
void setAndWait(benchmark::State& state) {
    Event event;
    for ([[maybe_unused]] const auto unused : state) {
        event.set();
        event.wait();
    }
}
BENCHMARK(setAndWait<OurEvent>)->Name("event-set-wait/one thread/ours");
BENCHMARK(setAndWait<PrescribedEvent>)->Name("event-set-wait/one thread/prescribed");
BENCHMARK(setAndWait<EventDescriptor>)->Name("event-set-wait/one thread/eventfd");
BENCHMARK(setAndWait<ConditionVariable>)->Name("event-set-wait/one thread/condition-variable");

template <class Event>
void thereAndBack(benchmark::State& state) {
    const wpp_benchmark::OneCpu oneCpu;
    Event there;
    Event back;
    std::atomic<bool> ended{false};
    std::thread other([&] {
        there.wait();
        while (!ended) {
            back.set();
            there.wait();
        }
    });
    for ([[maybe_unused]] const auto unused : state) {
        there.set();
        back.wait();
    }
    ended = true;
    there.set();
    other.join();
}
BENCHMARK(thereAndBack<OurEvent>)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("event-set-wait/two threads/ours");
BENCHMARK(thereAndBack<PrescribedEvent>)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("event-set-wait/two threads/prescribed");
BENCHMARK(thereAndBack<EventDescriptor>)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("event-set-wait/two threads/eventfd");
BENCHMARK(thereAndBack<ConditionVariable>)
    ->MeasureProcessCPUTime()
    ->UseRealTime()
    ->Name("event-set-wait/two threads/condition-variable");

}  // namespace
