#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace wpp_test {

/// Collects what the process sends to the system log. One at a time.
///
/// A test program that uses it has syslog, openlog and closelog of its own, so that nothing reaches the real
/// system log, also while no capture is there.
class SyslogCapture {
public:
    struct Record {
        int priority;
        std::string text;
    };
    struct Opening {
        std::string identity;
        const char* identityPointer;  ///< what the system log would go on reading while it is open
        int options;
        int facility;
    };

    SyslogCapture();
    ~SyslogCapture();
    SyslogCapture(const SyslogCapture&) = delete;
    SyslogCapture& operator=(const SyslogCapture&) = delete;

    std::vector<Record> records() const;
    std::vector<Opening> openings() const;
    std::size_t closings() const;

    /// Whether a record of this priority contains `part`.
    bool contains(int priority, const std::string& part) const;
};

}  // namespace wpp_test
