#include "Benchmarks/RoundTrip/Support/Carrier.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <numeric>
#include <vector>

#include "Benchmarks/RoundTrip/Support/Processor.h"
#include "Benchmarks/RoundTrip/Support/ServerProcess.h"
#include "Tests/Support/OwnNetwork.h"

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

struct Size {
    const char* name;
    std::size_t bytes;
};

constexpr Size kSizes[] = {
    {"16 B", 16},      {"64 B", 64},      {"256 B", 256},      {"1 KiB", 1024},    {"4 KiB", 4096},
    {"16 KiB", 16384}, {"64 KiB", 65536}, {"256 KiB", 262144}, {"1 MiB", 1048576},
};

// The nine sizes together are given about twice the time of one round.
constexpr double kTimePerSize = 0.25;
constexpr double kNanosecondsPerSecond = 1e9;
constexpr double kWarmUp = 0.2;  // as a part of the time

/// @return how long each exchange took, in nanoseconds.
std::vector<double> timeExchanges(Asker& asker, double seconds) {
    std::vector<double> times;
    times.reserve(1U << 16);
    const auto end = Clock::now() + Seconds(seconds);
    auto before = Clock::now();
    do {
        asker.exchange();
        const auto after = Clock::now();
        times.push_back(std::chrono::duration<double, std::nano>(after - before).count());
        before = after;
    } while (before < end);
    return times;
}

double percentile(std::vector<double>& values, double part) {
    const auto index = static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + index, values.end());
    return values[static_cast<std::size_t>(index)];
}

void measureCommand(const Carrier& carrier, const Run& run) {
    // The receiver listens for phones as well; where no network of its own is to be had, that costs a log line.
    static_cast<void>(wpp_test::enterOwnNetwork());
    const ServerProcess server(carrier.serve);
    const auto asker = carrier.connect();
    asker->use(std::string(kCommandSize, 'c'));
    timeExchanges(*asker, run.seconds * kWarmUp);
    auto times = timeExchanges(*asker, run.seconds);
    printSample(run, "command-round-trip-p50", "9 B", "ns", "lower", percentile(times, 0.5));
    printSample(run, "command-round-trip-p99", "9 B", "ns", "lower", percentile(times, 0.99));
}

void measureSize(Asker& asker, pid_t server, const Size& size, const Run& run) {
    asker.use(std::string(size.bytes, 'm'));
    const double seconds = run.seconds * kTimePerSize;
    timeExchanges(asker, seconds * kWarmUp);
    const double before = processorTime(server) + processorTime(getpid());
    auto times = timeExchanges(asker, seconds);
    const double spent = processorTime(server) + processorTime(getpid()) - before;
    const double total = std::accumulate(times.begin(), times.end(), 0.0);
    const double bytes = static_cast<double>(size.bytes) * static_cast<double>(times.size());
    printSample(run, "acknowledged-throughput", size.name, "B/s", "higher",
                bytes / total * kNanosecondsPerSecond);
    printSample(run, "message-time", size.name, "ns", "lower", percentile(times, 0.5));
    printSample(run, "message-cpu", size.name, "ns", "lower", spent / static_cast<double>(times.size()));
}

void measureThroughput(const Carrier& carrier, const Run& run) {
    const ServerProcess server(carrier.serve);
    const auto asker = carrier.connect();
    for (const Size& size : kSizes) {
        measureSize(*asker, server.id(), size, run);
    }
}

}  // namespace

Case commandCase(const Carrier& carrier) {
    return {"command", carrier.name, [carrier](const Run& run) { measureCommand(carrier, run); }};
}

Case throughputCase(const Carrier& carrier) {
    return {"throughput", carrier.name, [carrier](const Run& run) { measureThroughput(carrier, run); }};
}

}  // namespace bench
