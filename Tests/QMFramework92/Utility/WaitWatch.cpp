#include "Tests/QMFramework92/Utility/WaitWatch.h"

#include <pthread.h>
#include <sys/epoll.h>

#include <array>
#include <cerrno>
#include <mutex>

#include "Foundation/QMWatchDog.h"

namespace {

struct Watch {
    std::mutex lock;
    std::string threadName;  // empty while nobody watches
    std::vector<int> limits;
    std::vector<std::string> steps;
    int failures = 0;
};

Watch& watch() {
    static Watch* const only = new Watch;
    return *only;
}

bool isFollowed(const Watch& watched) {
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    return !watched.threadName.empty() && watched.threadName == name.data();
}

void note(const char* step) {
    Watch& watched = watch();
    const std::lock_guard<std::mutex> guard(watched.lock);
    if (isFollowed(watched)) {
        watched.steps.emplace_back(step);
    }
}

/// @return whether the wait is to fail.
bool noteWait(int limitMs) {
    Watch& watched = watch();
    const std::lock_guard<std::mutex> guard(watched.lock);
    if (!isFollowed(watched)) {
        return false;
    }
    watched.steps.emplace_back("wait");
    watched.limits.push_back(limitMs);
    return watched.failures > 0 && watched.failures-- > 0;
}

}  // namespace

// The linker directs this program's calls here (--wrap).
extern "C" {
int __real_epoll_wait(int epoll, epoll_event* events, int count, int limitMs);
int __wrap_epoll_wait(int epoll, epoll_event* events, int count, int limitMs) {
    if (noteWait(limitMs)) {
        errno = EBADF;
        return -1;
    }
    return __real_epoll_wait(epoll, events, count, limitMs);
}

void __real__ZN10QMWatchDog9EnterWaitEv(QMWatchDog* self);
void __wrap__ZN10QMWatchDog9EnterWaitEv(QMWatchDog* self) {
    note("enter");
    __real__ZN10QMWatchDog9EnterWaitEv(self);
}

void __real__ZN10QMWatchDog9LeaveWaitEv(QMWatchDog* self);
void __wrap__ZN10QMWatchDog9LeaveWaitEv(QMWatchDog* self) {
    note("leave");
    __real__ZN10QMWatchDog9LeaveWaitEv(self);
}
}

namespace wpp_test {

WaitWatch::WaitWatch() {
    follow("");
}

WaitWatch::~WaitWatch() {
    follow("");
}

void WaitWatch::follow(const std::string& threadName) {
    Watch& watched = watch();
    const std::lock_guard<std::mutex> guard(watched.lock);
    watched.threadName = threadName;
    watched.limits.clear();
    watched.steps.clear();
    watched.failures = 0;
}

std::vector<int> WaitWatch::limits() {
    const std::lock_guard<std::mutex> guard(watch().lock);
    return watch().limits;
}

std::vector<std::string> WaitWatch::steps() {
    const std::lock_guard<std::mutex> guard(watch().lock);
    return watch().steps;
}

void WaitWatch::failNext(int count) {
    const std::lock_guard<std::mutex> guard(watch().lock);
    watch().failures = count;
}

int WaitWatch::failuresLeft() {
    const std::lock_guard<std::mutex> guard(watch().lock);
    return watch().failures;
}

}  // namespace wpp_test
