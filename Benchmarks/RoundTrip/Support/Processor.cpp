#include "Benchmarks/RoundTrip/Support/Processor.h"

#include <sched.h>

#include <cstddef>
#include <ctime>
#include <stdexcept>

namespace bench {

namespace {

cpu_set_t formerProcessors;

}  // namespace

void stayOnOneProcessor() {
    sched_getaffinity(0, sizeof(formerProcessors), &formerProcessors);
    cpu_set_t one;
    CPU_ZERO(&one);
    for (int cpu = CPU_SETSIZE - 1; cpu >= 0; --cpu) {
        if (CPU_ISSET(static_cast<std::size_t>(cpu), &formerProcessors)) {
            CPU_SET(static_cast<std::size_t>(cpu), &one);
            break;
        }
    }
    sched_setaffinity(0, sizeof(one), &one);
}

void useAllProcessors() {
    sched_setaffinity(0, sizeof(formerProcessors), &formerProcessors);
}

double processorTime(pid_t process) {
    constexpr double kNanosecondsPerSecond = 1e9;
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("a process's processor time cannot be read");
    }
    return static_cast<double>(time.tv_sec) * kNanosecondsPerSecond + static_cast<double>(time.tv_nsec);
}

}  // namespace bench
