#include "Tests/Support/Deadline.h"

#include <algorithm>
#include <thread>

namespace wpp_test {

std::chrono::milliseconds Deadline::remaining() const {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    return std::max(left, std::chrono::milliseconds::zero());
}

std::chrono::milliseconds Stopwatch::elapsed() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - begin);
}

bool waitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds limit) {
    constexpr std::chrono::milliseconds kPollPeriod{1};
    const Deadline deadline(limit);
    while (!predicate()) {
        if (deadline.passed()) {
            return predicate();
        }
        std::this_thread::sleep_for(kPollPeriod);
    }
    return true;
}

std::chrono::milliseconds shortestOf(std::chrono::milliseconds limit,
                                     const std::function<std::chrono::milliseconds()>& measure) {
    constexpr int kAttempts = 5;
    std::chrono::milliseconds shortest = measure();
    for (int attempt = 1; attempt < kAttempts && shortest >= limit; ++attempt) {
        shortest = std::min(shortest, measure());
    }
    return shortest;
}

}  // namespace wpp_test
