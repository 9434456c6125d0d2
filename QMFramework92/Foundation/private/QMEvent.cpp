#include "Foundation/QMEvent.h"

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <csignal>
#include <mutex>
#include <new>
#include <vector>

#include "Diagnostics/QMLog.h"
#include "Foundation/QMDescriptor.h"

namespace {

constexpr int kNoDescriptor = -1;
constexpr int kBadArgument = -1;
constexpr int kSignalWritten = 1;
constexpr int kSignalNotWritten = 0;
constexpr int kDrained = 1;
constexpr unsigned char kSignalByte = 1;

using Clock = std::chrono::steady_clock;

/// The time limit of one wait, which goes on when another waiter took the signal.
class WaitLimit {
public:
    explicit WaitLimit(int timeoutMs) : limitMs(timeoutMs) { restart(); }

    void restart() {
        if (isFinite()) {
            begin = Clock::now();
        }
    }

    bool isOver() const { return remainingMs() == 0; }

    /// What is left, rounded up so that a wait never ends early; the full limit when it is negative (none) or 0.
    int remainingMs() const {
        if (!isFinite()) {
            return limitMs;
        }
        const auto left = std::chrono::milliseconds(limitMs) - (Clock::now() - begin);
        const auto leftMs = std::chrono::ceil<std::chrono::milliseconds>(left).count();
        return static_cast<int>(std::clamp<decltype(leftMs)>(leftMs, 0, INT_MAX));
    }

private:
    /// Whether there is a time to measure at all.
    bool isFinite() const { return limitMs > 0; }

    const int limitMs;
    Clock::time_point begin;
};

/// A number of values that is known when it is made. Few, as nearly all waits have, need no memory of their own.
template <class T>
class Values {
public:
    explicit Values(std::size_t count) : first(few), size(count) {
        if (count > kFew) {
            many.resize(count);
            first = many.data();
        }
    }
    Values(const Values&) = delete;
    Values& operator=(const Values&) = delete;

    T* begin() { return first; }
    T* end() { return first + size; }
    const T* begin() const { return first; }
    const T* end() const { return first + size; }
    T& operator[](std::size_t index) { return first[index]; }
    const T& operator[](std::size_t index) const { return first[index]; }
    /// How many of those that it was made for are in use.
    void setCount(std::size_t count) { size = count; }
    std::size_t count() const { return size; }

private:
    static constexpr std::size_t kFew = 8;

    T few[kFew];
    std::vector<T> many;
    T* first;
    std::size_t size;
};

enum class Taken { kSignal, kByAnotherWaiter, kFailed };

Taken takeSignal(int descriptor) {
    unsigned char signal = 0;
    ssize_t count = 0;
    do {
        count = read(descriptor, &signal, sizeof(signal));
    } while (count < 0 && errno == EINTR);
    if (count == sizeof(signal)) {
        return Taken::kSignal;
    }
    return count < 0 && errno == EAGAIN ? Taken::kByAnotherWaiter : Taken::kFailed;
}

/// An interrupted write has written nothing; were it left at that, whoever waits without limit would wait for ever.
bool writeSignal(int descriptor) {
    ssize_t count = 0;
    do {
        count = write(descriptor, &kSignalByte, sizeof(kSignalByte));
    } while (count < 0 && errno == EINTR);
    return count == sizeof(kSignalByte);
}

/// One wait on a set of read descriptors. It lives for one call and owns the epoll instance.
class MultiWaiter {
public:
    // All the memory is taken here: a signal that has been taken must not get lost for want of it.
    explicit MultiWaiter(const Values<int>& readDescriptors)
        : descriptors(readDescriptors), awaited(readDescriptors.count()), ready(awaited), taken(awaited) {}

    /// Failures are reported here. @return whether the descriptors are registered.
    bool prepare() {
        epoll.reset(epoll_create1(EPOLL_CLOEXEC));
        if (!epoll.isValid()) {
            reportFailure();
            return false;
        }
        for (const int descriptor : descriptors) {
            epoll_event registration{};
            registration.events = EPOLLIN;
            registration.data.fd = descriptor;
            if (epoll_ctl(epoll.get(), EPOLL_CTL_ADD, descriptor, &registration) != 0) {
                reportFailure();
                return false;
            }
        }
        return true;
    }

    int waitForOne(int timeoutMs) {
        const int result = waitForSignals(timeoutMs);
        return result < 0 ? result : indexOfFirstTaken();
    }

    int waitForAll(int timeoutMs) {
        for (;;) {
            const int result = waitForSignals(timeoutMs);
            if (result < 0) {
                return result;
            }
            awaited -= taken.count();
            if (awaited == 0) {
                return QMEvent::kSignalled;
            }
            for (const int descriptor : taken) {
                if (epoll_ctl(epoll.get(), EPOLL_CTL_DEL, descriptor, nullptr) != 0) {
                    return QMEvent::kTimedOut;
                }
            }
        }
    }

private:
    static void reportFailure() { qm_LogStdErrorShort(QM_SOURCE_PATH, "timedMultiWait", __LINE__); }

    /// Waits until at least one signal is taken; `taken` then names the descriptors in the order reported.
    int waitForSignals(int timeoutMs) {
        WaitLimit limit(timeoutMs);
        for (;;) {
            const int count =
                epoll_wait(epoll.get(), ready.begin(), static_cast<int>(awaited), limit.remainingMs());
            if (count == 0) {
                return QMEvent::kTimedOut;
            }
            if (count < 0 && errno == EINTR) {
                limit.restart();
                continue;
            }
            if (count < 0 || !takeSignals(static_cast<std::size_t>(count))) {
                reportFailure();
                return QMEvent::kError;
            }
            if (taken.count() > 0) {
                return QMEvent::kSignalled;
            }
            if (limit.isOver()) {
                return QMEvent::kTimedOut;
            }
        }
    }

    bool takeSignals(std::size_t count) {
        std::size_t signals = 0;
        for (std::size_t i = 0; i < count; ++i) {
            const int descriptor = ready[i].data.fd;
            const Taken result = takeSignal(descriptor);
            if (result == Taken::kFailed) {
                return false;
            }
            if (result == Taken::kSignal) {
                taken[signals] = descriptor;
                ++signals;
            }
        }
        taken.setCount(signals);
        return true;
    }

    int indexOfFirstTaken() const {
        const auto found =
            std::find_first_of(descriptors.begin(), descriptors.end(), taken.begin(), taken.end());
        if (found != descriptors.end()) {
            return static_cast<int>(found - descriptors.begin());
        }
        for (std::size_t i = 0; i < descriptors.count(); ++i) {
            const int received = i < taken.count() ? taken[i] : kNoDescriptor;
            qm_Log(QM_SOURCE_PATH, "timedMultiWait", __LINE__, QM_LOG_LEVEL_ERROR, "No[%d] rcv[%d] evt[%d]\n",
                   static_cast<int>(i), received, descriptors[i]);
        }
        return QMEvent::kError;
    }

    const Values<int>& descriptors;
    QMDescriptor epoll;
    std::size_t awaited;
    Values<epoll_event> ready;
    Values<int> taken;
};

}  // namespace

void qm_IgnoreSigPipe() {
    static std::once_flag ignored;
    std::call_once(ignored, [] { std::signal(SIGPIPE, SIG_IGN); });
}

QMEvent::QMEvent() {
    init();
}

QMEvent::~QMEvent() {
    closeBoth();
}

void QMEvent::closeBoth() {
    if (readDescriptor == kNoDescriptor || writeDescriptor == kNoDescriptor) {
        return;
    }
    for (int* descriptor : {&readDescriptor, &writeDescriptor}) {
        if (close(*descriptor) != 0) {
            qm_LogStdErrorShort(QM_SOURCE_PATH, "~QMEvent", __LINE__);
        }
        *descriptor = kNoDescriptor;
    }
}

void QMEvent::init() {
    closeBoth();
    int ends[2] = {kNoDescriptor, kNoDescriptor};
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
        QM_LOG_STD_ERROR_SHORT();
        return;
    }
    readDescriptor = ends[0];
    writeDescriptor = ends[1];
}

int QMEvent::SetEvent() {
    if (writeSignal(writeDescriptor)) {
        return kSignalWritten;
    }
    if (errno == EAGAIN) {
        QM_LOG_STD_ERROR_SHORT();
        Drain(this);
        // The pipe has room now; should another thread have filled it again, the event is set all the same.
        static_cast<void>(!writeSignal(writeDescriptor));
    } else if (errno == EPIPE) {
        QM_LOG_STD_ERROR_SHORT();
    }
    return kSignalNotWritten;
}

int QMEvent::WaitEvent(QMEvent* event, std::uint32_t timeoutMs) {
    return MultiWait(1, &event, timeoutMs, true);
}

int QMEvent::MultiWait(unsigned count, QMEvent** events, std::uint32_t timeoutMs, bool waitAll) {
    // Limits above INT_MAX, the infinite one among them, become negative and so wait without limit.
    const int result = timedMultiWait(count, events, waitAll, static_cast<int>(timeoutMs));
    return result == kBadArgument ? static_cast<int>(kError) : result;
}

int QMEvent::Drain(QMEvent* event) {
    while (timedMultiWait(1, &event, true, 0) >= 0) {
    }
    return kDrained;
}

int QMEvent::timedMultiWait(unsigned count, QMEvent** events, bool waitAll, int timeoutMs) {
    qm_IgnoreSigPipe();
    if (count == 0 || events == nullptr) {
        return kBadArgument;
    }
    try {
        Values<int> descriptors(count);
        for (unsigned i = 0; i < count; ++i) {
            const int descriptor = events[i] == nullptr ? kNoDescriptor : events[i]->readDescriptor;
            if (descriptor == kNoDescriptor) {
                QM_LOG_ERROR("handle error\n");
                return kError;
            }
            descriptors[i] = descriptor;
        }
        MultiWaiter waiter(descriptors);
        if (!waiter.prepare()) {
            return kError;
        }
        return waitAll ? waiter.waitForAll(timeoutMs) : waiter.waitForOne(timeoutMs);
    } catch (const std::bad_alloc&) {
        errno = ENOMEM;
        QM_LOG_STD_ERROR_SHORT();
        return kError;
    }
}
