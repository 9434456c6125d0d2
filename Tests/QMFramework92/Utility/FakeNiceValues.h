#pragma once

#include <sys/types.h>

namespace wpp_test {

/// Stands between this program and the scheduler for the length of a scope: threads have the nice values that
/// were set here, 0 at first, whatever the process may really do. One at a time.
class FakeNiceValues {
public:
    FakeNiceValues();
    ~FakeNiceValues();
    FakeNiceValues(const FakeNiceValues&) = delete;
    FakeNiceValues& operator=(const FakeNiceValues&) = delete;

    /// From here on every attempt to get a nice value below 0 fails, as without the right to raise priorities.
    static void refuseRaises();

    /// Gives the calling thread a nice value, refused or not.
    static void setOwn(int nice);

    static int niceOf(pid_t tid);
};

}  // namespace wpp_test
