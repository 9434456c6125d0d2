#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>

#include "private/Supervisor.h"

namespace wifi_projection_protocol {

/// A step of a conversation that has a time limit.
enum class Step : std::size_t { kHello, kMessage, kStartResult };
constexpr std::size_t kStepCount = 3;

/// The deadlines of one conversation's steps. Any thread.
class StepClock {
public:
    using Clock = Supervised::Clock;

    StepClock() {
        for (auto& deadline : deadlines) {
            deadline = kNone;
        }
    }

    void begin(Step step, std::chrono::milliseconds limit) {
        at(step) = (Clock::now() + limit).time_since_epoch().count();
    }
    void end(Step step) { at(step) = kNone; }
    bool isRunning(Step step) const { return deadlines[static_cast<std::size_t>(step)] != kNone; }

    /// The first of the deadlines; Supervised::kNoDeadline when no step is under way.
    Clock::time_point next() const {
        Clock::rep first = kNone;
        for (const auto& deadline : deadlines) {
            first = std::min<Clock::rep>(first, deadline);
        }
        return Clock::time_point(Clock::duration(first));
    }

private:
    static constexpr Clock::rep kNone = Supervised::kNoDeadline.time_since_epoch().count();

    std::atomic<Clock::rep>& at(Step step) { return deadlines[static_cast<std::size_t>(step)]; }

    std::array<std::atomic<Clock::rep>, kStepCount> deadlines;
};

}  // namespace wifi_projection_protocol
