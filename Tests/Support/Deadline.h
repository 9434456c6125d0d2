#pragma once

#include <chrono>
#include <functional>

namespace wpp_test {

/// Generous limit for anything that a test expects to happen.
constexpr std::chrono::milliseconds kGenerousLimit{10000};

/// A point in time after which waiting is pointless.
class Deadline {
public:
    explicit Deadline(std::chrono::milliseconds limit = kGenerousLimit)
        : end(std::chrono::steady_clock::now() + limit) {}

    bool passed() const { return std::chrono::steady_clock::now() >= end; }

    /// What is left, 0 when it has passed.
    std::chrono::milliseconds remaining() const;

private:
    std::chrono::steady_clock::time_point end;
};

/// Time since its making.
class Stopwatch {
public:
    std::chrono::milliseconds elapsed() const;

private:
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
};

/// Evaluates `predicate` again and again until it is true or the limit has passed.
/// @return the predicate's last value.
bool waitUntil(const std::function<bool()>& predicate, std::chrono::milliseconds limit = kGenerousLimit);

/// Measures a time that has to lie below `limit`: again, up to five times, while it does not, because on a loaded
/// machine any thread may be late.
/// @return the shortest.
std::chrono::milliseconds shortestOf(std::chrono::milliseconds limit,
                                     const std::function<std::chrono::milliseconds()>& measure);

}  // namespace wpp_test
