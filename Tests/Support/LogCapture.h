#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

#include "Tests/Support/Deadline.h"

namespace wpp_test {

/// Collects what the process writes to standard output, from every thread and from child processes, from its
/// making to its end. One at a time.
///
/// When the test has failed, what was collected is passed on to the real standard output at the end, so that
/// the messages of failed expectations are seen.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    /// Everything so far, byte for byte.
    std::string text() const;

    /// The lines so far without colours, padding in front and newline; empty lines are left out.
    std::vector<std::string> lines() const;

    /// Whether some line contains `part`.
    bool contains(const std::string& part) const;

    /// The number of lines that contain `part`.
    std::size_t count(const std::string& part) const;

    /// Waits until a line contains `part`. @return whether one does.
    bool waitFor(const std::string& part, std::chrono::milliseconds limit = kGenerousLimit) const;

    /// Forgets what was collected so far.
    void clear();

private:
    int realOutput;
    int collected;
};

}  // namespace wpp_test
