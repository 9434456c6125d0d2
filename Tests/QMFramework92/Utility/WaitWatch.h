#pragma once

#include <string>
#include <vector>

namespace wpp_test {

/// Sees what this program's threads do around their waits on events, for the length of a scope. One at a time.
class WaitWatch {
public:
    WaitWatch();
    ~WaitWatch();
    WaitWatch(const WaitWatch&) = delete;
    WaitWatch& operator=(const WaitWatch&) = delete;

    /// Only the steps of the thread with this name are seen.
    void follow(const std::string& threadName);

    /// The limits of the waits that have begun, in milliseconds, negative for none.
    static std::vector<int> limits();

    /// The steps so far: "enter" and "leave" of the watchdog's hooks, "wait" in between.
    static std::vector<std::string> steps();

    /// Makes the next `count` waits of the followed thread fail.
    static void failNext(int count);

    /// How many of these failures are still to come.
    static int failuresLeft();
};

}  // namespace wpp_test
