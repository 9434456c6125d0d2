#pragma once

#include <sched.h>

namespace wpp_benchmark {

/// Keeps the calling thread, and every thread that it starts meanwhile, on one CPU for the length of a scope, so that
/// what passes from thread to thread costs the same in each run. Where that is refused, they run as they are.
class OneCpu {
public:
    OneCpu() {
        known = sched_getaffinity(0, sizeof(before), &before) == 0;
        const int cpu = sched_getcpu();
        if (known && cpu >= 0) {
            cpu_set_t one;
            CPU_ZERO(&one);
            CPU_SET(static_cast<unsigned>(cpu), &one);
            sched_setaffinity(0, sizeof(one), &one);
        }
    }
    ~OneCpu() {
        if (known) {
            sched_setaffinity(0, sizeof(before), &before);
        }
    }
    OneCpu(const OneCpu&) = delete;
    OneCpu& operator=(const OneCpu&) = delete;

private:
    cpu_set_t before{};
    bool known = false;
};

}  // namespace wpp_benchmark
