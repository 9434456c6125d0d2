#pragma once

#include <atomic>
#include <cstdint>

#include "Pattern/QMUncopyable.h"

/// Waits for one socket and can be woken for shutdown at once.
///
/// One thread adds and waits; any thread may call wakeUp. A wake-up lasts: it is meant for a server that is
/// being stopped, and every later wait returns -1 at once.
class WifiSocketPolling : private QMUncopyable {
public:
    enum WaitResult : int { kReady = 1, kTimedOut = 0, kWokenUp = -1, kFailed = -2 };

    WifiSocketPolling();
    virtual ~WifiSocketPolling();

    /// Makes both descriptors anew, closing those that are open. Where one is not to be had, which is logged, there
    /// is neither, and init may be called again.
    void init();

    /// @return whether there are descriptors to wait on.
    bool isUsable() const { return eventFd >= 0; }

    /// Watches `fd` for the given epoll events; adding it twice is harmless. The caller keeps `fd`.
    /// @return false, logged, when it cannot be watched.
    bool add(int fd, std::uint32_t events);

    /// @param timeoutMs negative waits without limit; an interrupted wait starts again.
    /// @return 1 the socket is ready, 0 timed out, -1 woken up, -2 the wait failed or could not be woken.
    int wait(int timeoutMs);

    void wakeUp();

private:
    void closeBoth();

    std::atomic<int> eventFd{
        -1};  // read by whoever wakes up; valid only when the waiting thread can be woken
    int epollFd = -1;
};
