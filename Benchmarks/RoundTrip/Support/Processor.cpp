#include "Benchmarks/RoundTrip/Support/Processor.h"

#include <sched.h>

#include <cstddef>

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

}  // namespace bench
