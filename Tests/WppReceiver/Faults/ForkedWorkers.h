#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace wpp_test {

/// What processes that share a list of cases report.
struct WorkResult {
    std::size_t passed = 0;
    std::chrono::milliseconds longest{0};  ///< the longest of the times that the cases measured
    std::vector<std::string> failures;     ///< a line each, also for a process that died or hung
};

/// What a worker says of its cases.
class WorkReport {
public:
    explicit WorkReport(int pipe) : output(pipe) {}

    /// The case that comes next, so that one that kills its process has a name.
    void begin(const std::string& name) { say('>', name); }
    void pass() { say('+', ""); }
    void measured(std::chrono::milliseconds time) { say('t', std::to_string(time.count())); }
    void fail(const std::string& what) { say('!', what); }

private:
    void say(char kind, const std::string& text);

    const int output;
};

/// Forks `count` processes, which call `work` with their number, and gathers what they report. To be called
/// while this process has one thread. Each has a network of its own where that is allowed.
WorkResult runForked(std::size_t count, const std::function<void(std::size_t worker, WorkReport&)>& work);

}  // namespace wpp_test
