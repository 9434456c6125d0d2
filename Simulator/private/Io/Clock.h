#pragma once

#include <chrono>

namespace simulator {

/// The clock of every event and limit: CLOCK_MONOTONIC, hence comparable between the processes of one
/// machine.
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

/// Seconds of the monotonic clock, as events carry them.
inline double monotonicSeconds() {
    return std::chrono::duration<double>(Clock::now().time_since_epoch()).count();
}

/// A moment by which something has to be done.
class Deadline {
public:
    explicit Deadline(Milliseconds limit) : end(Clock::now() + limit) {}

    bool passed() const { return Clock::now() >= end; }

    /// What is left, rounded up so that a wait of this length reaches the deadline; never negative.
    Milliseconds remaining() const {
        const auto left = std::chrono::ceil<Milliseconds>(end - Clock::now());
        return left.count() > 0 ? left : Milliseconds(0);
    }

private:
    Clock::time_point end;
};

}  // namespace simulator
