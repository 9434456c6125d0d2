// What a notification costs with the number of observers.

#include "Pattern/QMSubject.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <deque>
#include <string>

namespace {

constexpr unsigned kEventId = 1;

class Counter {
public:
    unsigned onEvent(unsigned, const void* data, int) {
        benchmark::DoNotOptimize(data);
        return static_cast<unsigned>(++calls & 1U);
    }

    std::uint64_t calls = 0;
};

void notify(benchmark::State& state, std::int64_t count) {
    Counter counter;
    QMSubject subject;
    std::deque<QMObserver<Counter>> observers;
    for (std::int64_t i = 0; i < count; ++i) {
        observers.emplace_back(&counter, &Counter::onEvent);
        subject.AddObserver(&observers.back(), &kEventId, 1);
    }
    const int data = 0;
    for ([[maybe_unused]] const auto unused : state) {
        benchmark::DoNotOptimize(
            subject.NotifyObservers(kEventId, &data, sizeof(data), QMSubject::kNotifyRegisteredOnly));
    }
    for (auto& observer : observers) {
        subject.RemoveObserver(&observer);
    }
}

// Each number of observers has a name of its own: metric/parameter/contender.
const bool registered = [] {
    for (const std::int64_t observers : {1, 10, 100, 1000}) {
        const std::string name = "notify-observers/" + std::to_string(observers) + " observers/ours";
        benchmark::RegisterBenchmark(name.c_str(), notify, observers);
    }
    return true;
}();

}  // namespace
