#pragma once

namespace wpp_test {

/// The system calls of this program that can be told to fail.
enum class SystemCall { kNone, kSocket, kListen, kAccept, kEpollCreate, kEventFd, kPoll };

/// Makes one system call fail in this process for the length of a scope. One at a time.
class FailingCall {
public:
    FailingCall(SystemCall call, int error);
    ~FailingCall();
    FailingCall(const FailingCall&) = delete;
    FailingCall& operator=(const FailingCall&) = delete;
};

}  // namespace wpp_test
