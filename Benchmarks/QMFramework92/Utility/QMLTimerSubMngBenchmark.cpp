// What one timer pass costs: it must follow the number of timers that are due, not the number of all.
//
// Each case names all timers and those due at each pass. The counters are
//   per_due  time per fired timer
//   ratio    time of the pass against that of a pass over 100 timers of which all are due, measured in turns
//            with it, so that one run tells it

#include "Utility/QMLTimerSubMng.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <string>

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int kPassesPerTurn = 100;
constexpr Seconds kRatioTime{0.1};
constexpr std::int64_t kReferenceTimers = 100;

class CountingTimer : public QMLTimer {
public:
    explicit CountingTimer(std::int64_t& counter) : fired(counter) {}
    void Fire(const QMLTimerEntry& /*entry*/) override { ++fired; }

private:
    std::int64_t& fired;
};

class SteppedTicks : public QMTickSource {
public:
    std::uint32_t GetTickCount() override { return tick; }
    std::uint32_t tick = 0;
};

/// A sub-manager without a thread whose passes lie 1 ms apart.
///
/// With some timers due at each pass, all have the same interval and are spread over it evenly, so that each is
/// due in its turn and every part of the index is touched: 10,000 timers at 100 due per pass repeat every
/// 100 ms. With none due, all have the longest interval.
class Bench {
public:
    Bench(std::int64_t timerCount, std::int64_t duePerPass) {
        for (std::int64_t i = 0; i < timerCount; ++i) {
            timers.emplace_back(fired);
        }
        const std::int64_t period = duePerPass == 0 ? 0 : timerCount / duePerPass;
        for (std::int64_t i = 0; i < timerCount; ++i) {
            if (period != 0 && i % duePerPass == 0) {
                ++ticks.tick;
            }
            // Neighbours in memory are not neighbours in time.
            const std::int64_t shuffled = (i * 7919) % timerCount;
            subMng.Add(&timers[static_cast<std::size_t>(shuffled)],
                       duePerPass == 0 ? 0xFFFFFFFF : static_cast<std::uint32_t>(period));
        }
    }

    void pass() {
        ++ticks.tick;
        benchmark::DoNotOptimize(subMng.RunTimerPass());
        ++passes;
    }

    /// What one turn of passes takes.
    Seconds timeTurn() {
        const auto begin = Clock::now();
        for (int i = 0; i < kPassesPerTurn; ++i) {
            pass();
        }
        return Clock::now() - begin;
    }

    bool firedAtEachPass(std::int64_t count) const { return fired == passes * count; }

private:
    std::int64_t fired = 0;
    std::int64_t passes = 0;
    SteppedTicks ticks;
    std::deque<CountingTimer> timers;
    QMLTimerSubMng subMng{30, 200, ticks};
};

/// How often one turn of `reference` would fit into one of `bench`, the two measured in turns.
double ratioTo(Bench& reference, Bench& bench) {
    Seconds spent{};
    Seconds referenceSpent{};
    while (spent + referenceSpent < kRatioTime) {
        spent += bench.timeTurn();
        referenceSpent += reference.timeTurn();
    }
    return spent / referenceSpent;
}

void timerPass(benchmark::State& state, std::int64_t timers, std::int64_t due) {
    Bench bench(timers, due);
    for ([[maybe_unused]] const auto unused : state) {
        bench.pass();
    }
    Bench reference(kReferenceTimers, kReferenceTimers);
    state.counters["ratio"] = ratioTo(reference, bench);
    if (due != 0) {
        state.counters["per_due"] =
            benchmark::Counter(static_cast<double>(due),
                               benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
    }
    if (!bench.firedAtEachPass(due)) {
        state.SkipWithError("the passes did not fire the timers that were due");
    }
}
BENCHMARK_CAPTURE(timerPass, few, kReferenceTimers, kReferenceTimers)->Name("timer-pass/100 due of 100/ours");
BENCHMARK_CAPTURE(timerPass, someOfMany, 10000, 100)->Name("timer-pass/100 due of 10000/ours");
// The least that 100 fired timers can cost: no other timer is there.
BENCHMARK_CAPTURE(timerPass, reference, kReferenceTimers, kReferenceTimers)
    ->Name("timer-pass/100 due of 10000/minimal");

// How the pass grows with the timers, when all of them are due and when none is.
const bool registered = [] {
    for (const std::int64_t timers : {10, 100, 1000, 10000}) {
        const std::string parameter = std::to_string(timers) + " timers/ours";
        benchmark::RegisterBenchmark(("timer-pass-all-due/" + parameter).c_str(), timerPass, timers, timers);
        benchmark::RegisterBenchmark(("timer-pass-none-due/" + parameter).c_str(), timerPass, timers, 0);
    }
    return true;
}();

}  // namespace
