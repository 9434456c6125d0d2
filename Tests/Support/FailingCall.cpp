#include "Tests/Support/FailingCall.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <ctime>

namespace {

using wpp_test::SystemCall;

std::atomic<SystemCall> failingCall{SystemCall::kNone};
std::atomic<int> failingError{0};

/// Whether this call is to fail; errno is then set.
bool fails(SystemCall call) {
    if (failingCall != call) {
        return false;
    }
    errno = failingError;
    return true;
}

}  // namespace

namespace wpp_test {

FailingCall::FailingCall(SystemCall call, int error) {
    failingError = error;
    failingCall = call;
}

FailingCall::~FailingCall() {
    failingCall = SystemCall::kNone;
}

}  // namespace wpp_test

// This program's own forms of the calls; they take the place of the C library's.

extern "C" int socket(int domain, int type, int protocol) noexcept {
    return fails(SystemCall::kSocket) ? -1 : static_cast<int>(syscall(SYS_socket, domain, type, protocol));
}

extern "C" int listen(int descriptor, int backlog) noexcept {
    return fails(SystemCall::kListen) ? -1 : static_cast<int>(syscall(SYS_listen, descriptor, backlog));
}

extern "C" int accept4(int descriptor, sockaddr* address, socklen_t* length, int flags) {
    return fails(SystemCall::kAccept)
               ? -1
               : static_cast<int>(syscall(SYS_accept4, descriptor, address, length, flags));
}

extern "C" int epoll_create1(int flags) noexcept {
    return fails(SystemCall::kEpollCreate) ? -1 : static_cast<int>(syscall(SYS_epoll_create1, flags));
}

extern "C" int eventfd(unsigned int value, int flags) noexcept {
    return fails(SystemCall::kEventFd) ? -1 : static_cast<int>(syscall(SYS_eventfd2, value, flags));
}

extern "C" int poll(pollfd* descriptors, nfds_t count, int timeoutMs) {
    if (fails(SystemCall::kPoll)) {
        return -1;
    }
    timespec limit{};
    limit.tv_sec = timeoutMs / 1000;
    limit.tv_nsec = (timeoutMs % 1000) * 1000000L;
    return ppoll(descriptors, count, timeoutMs < 0 ? nullptr : &limit, nullptr);
}
