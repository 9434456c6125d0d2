#include "Core/WifiSocketPolling.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "Diagnostics/QMLog.h"

namespace {

constexpr int kMaxEvents = 2;  // the watched socket and the wake-up

void closeIfOpen(int& fd) {
    if (fd >= 0) {
        close(fd);
        fd = -1;
    }
}

}  // namespace

WifiSocketPolling::WifiSocketPolling() {
    init();
}

WifiSocketPolling::~WifiSocketPolling() {
    closeBoth();
}

void WifiSocketPolling::init() {
    closeBoth();
    int wakeUpFd = eventfd(0, EFD_CLOEXEC);
    if (wakeUpFd < 0) {
        QM_LOG_STD_ERROR(", eventfd()\n");
        return;
    }
    epollFd = epoll_create1(EPOLL_CLOEXEC);
    if (epollFd < 0) {
        QM_LOG_STD_ERROR(", epoll_create1()\n");
    } else if (add(wakeUpFd, EPOLLIN)) {
        eventFd = wakeUpFd;
        return;
    }
    closeIfOpen(wakeUpFd);
    closeIfOpen(epollFd);
}

bool WifiSocketPolling::add(int fd, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    epoll_ctl(epollFd, EPOLL_CTL_DEL, fd, &event);
    if (epoll_ctl(epollFd, EPOLL_CTL_ADD, fd, &event) != 0) {
        QM_LOG_STD_ERROR(", epoll_ctl()\n");
        return false;
    }
    return true;
}

int WifiSocketPolling::wait(int timeoutMs) {
    if (eventFd < 0) {
        return kFailed;  // nothing could end this wait
    }
    std::array<epoll_event, kMaxEvents> events{};
    int count;
    do {
        count = epoll_wait(epollFd, events.data(), kMaxEvents, timeoutMs);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
        return kFailed;
    }
    for (int i = 0; i < count; ++i) {
        if (events[static_cast<std::size_t>(i)].data.fd == eventFd) {
            return kWokenUp;
        }
    }
    return count == 0 ? kTimedOut : kReady;
}

void WifiSocketPolling::wakeUp() {
    const int fd = eventFd;
    if (fd >= 0) {
        eventfd_write(fd, 1);
    }
}

void WifiSocketPolling::closeBoth() {
    int wakeUpFd = eventFd.exchange(-1);
    closeIfOpen(wakeUpFd);
    closeIfOpen(epollFd);
}
