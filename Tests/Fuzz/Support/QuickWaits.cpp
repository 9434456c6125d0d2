// This program's own forms of the calls in which a stream's thread lets time pass. A pause passes at once and no wait
// is longer than a millisecond, so that a target spends its time on frames; waits that end because something is
// there are as they were.

#include "Tests/Fuzz/Support/QuickWaits.h"

#include <poll.h>
#include <sys/epoll.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <ctime>

#include "Tests/Fuzz/Support/SpoiltCalls.h"

namespace {

constexpr int kLongestWaitMs = 5;
std::atomic<std::size_t> pauseCount{0};
std::atomic<int> spoiltEpollWaits{0};
std::atomic<bool> pollIsSpoilt{false};

/// A wait without a limit keeps none.
int shortened(int timeoutMs) {
    return std::min(timeoutMs, kLongestWaitMs);
}

}  // namespace

std::size_t wpp_test::pauses() {
    return pauseCount;
}

void wpp_test::spoilNextEpollWait(int count) {
    spoiltEpollWaits = count;
}

void wpp_test::spoilNextPoll() {
    pollIsSpoilt = true;
}

extern "C" int poll(pollfd* descriptors, nfds_t count, int timeoutMs) {
    pauseCount += count == 0 ? 1 : 0;
    if (count > 0 && pollIsSpoilt.exchange(false)) {
        return 0;
    }
    const int fate = count > 0 ? wpp_test::nextFate(wpp_test::SpoiltCall::kPoll) : wpp_test::kAsEver;
    if (fate > 0) {
        errno = fate;
        return -1;
    }
    timespec limit{};
    limit.tv_nsec = count == 0 ? 0 : std::max(shortened(timeoutMs), 0) * 1000000L;
    return ppoll(descriptors, count, timeoutMs < 0 ? nullptr : &limit, nullptr);
}

extern "C" int epoll_wait(int descriptor, epoll_event* events, int room, int timeoutMs) {
    if (spoiltEpollWaits > 0) {
        --spoiltEpollWaits;
        errno = EINTR;
        return -1;
    }
    return epoll_pwait(descriptor, events, room, shortened(timeoutMs), nullptr);
}
