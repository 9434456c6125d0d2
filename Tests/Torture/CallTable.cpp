#include "Tests/Torture/CallTable.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace wpp_torture {

// EBADF, EFAULT, EINVAL, ENOTSOCK, EOPNOTSUPP and their like tell a program that it has named the wrong thing; where
// nothing else is left, EBADF stands for them.
const std::vector<CallErrors>& callTable() {
    static const std::vector<CallErrors> table{
        {Call::kSocketLocal,
         "socket-local",
         {EACCES, EAFNOSUPPORT, EMFILE, ENFILE, ENOBUFS, ENOMEM},
         "EPROTONOSUPPORT: the type is fixed"},
        {Call::kSocketTcp,
         "socket-tcp",
         {EACCES, EAFNOSUPPORT, EMFILE, ENFILE, ENOBUFS, ENOMEM},
         "EPROTONOSUPPORT: the type is fixed"},
        {Call::kBindLocal,
         "bind-local",
         {EACCES, EADDRINUSE, ENOENT, ENOMEM, EROFS},
         "ENAMETOOLONG, ELOOP, ENOTDIR: the names are short and have no directory; EADDRNOTAVAIL: not of "
         "files"},
        {Call::kBindTcp, "bind-tcp", {EACCES, EADDRINUSE}, "EADDRNOTAVAIL: every address has the port"},
        {Call::kListenLocal, "listen-local", {EADDRINUSE}, ""},
        {Call::kListenTcp, "listen-tcp", {EADDRINUSE}, ""},
        {Call::kAcceptLocal,
         "accept-local",
         {EAGAIN, ECONNABORTED, EINTR, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPERM, EPROTO},
         ""},
        {Call::kAcceptTcp,
         "accept-tcp",
         {EAGAIN, ECONNABORTED, EINTR, EMFILE, ENFILE, ENOBUFS, ENOMEM, EPERM, EPROTO, ENETDOWN, ENOPROTOOPT,
          EHOSTDOWN, ENONET, EHOSTUNREACH, EOPNOTSUPP, ENETUNREACH},
         ""},
        {Call::kConnectLocal,
         "connect-local",
         {EACCES, EPERM, EAGAIN, ECONNREFUSED, EINTR, ENOENT, EPROTOTYPE},
         "EADDRINUSE, EADDRNOTAVAIL, ENETUNREACH, ETIMEDOUT: of networks; EALREADY, EINPROGRESS: it blocks; "
         "EISCONN: never twice"},
        {Call::kPoll, "poll", {EINTR, ENOMEM}, "EINVAL: one descriptor is within every limit"},
        {Call::kPause, "pause", {EINTR}, "ENOMEM: nothing to keep"},
        {Call::kEpollCreate, "epoll-create", {EMFILE, ENFILE, ENOMEM}, ""},
        {Call::kEpollAdd,
         "epoll-add",
         {ENOMEM, ENOSPC},
         "EEXIST, ELOOP, EPERM: fresh sets of sockets and pipes"},
        {Call::kEpollDelete, "epoll-delete", {ENOENT, ENOMEM}, ""},
        {Call::kEpollWait, "epoll-wait", {EINTR}, ""},
        {Call::kEventFd, "eventfd", {EMFILE, ENFILE, ENODEV, ENOMEM}, ""},
        {Call::kPipe, "pipe", {EMFILE, ENFILE}, "ENOPKG: no notification pipe"},
        {Call::kReadPipe, "read-pipe", {EAGAIN, EINTR}, "EIO, EISDIR: of files; one byte cannot come short"},
        {Call::kWritePipe,
         "write-pipe",
         {EAGAIN, EINTR},
         "EPIPE: the reading end is the event's own; EDQUOT, EFBIG, EIO, ENOSPC, EPERM: of files"},
        {Call::kSendLocal,
         "send-local",
         {ECONNRESET, EINTR, ENOBUFS, ENOMEM, EPIPE, kShort},
         "EAGAIN: it blocks; EACCES, EDESTADDRREQ, EISCONN, EMSGSIZE, ENOTCONN: connected streams"},
        {Call::kSendTcp,
         "send-tcp",
         {EAGAIN, ECONNRESET, EINTR, ENOBUFS, ENOMEM, EPIPE, ETIMEDOUT, EHOSTUNREACH, kShort},
         "as of send-local"},
        {Call::kRecvLocal,
         "recv-local",
         {ECONNRESET, EINTR, ENOMEM, kShort},
         "EAGAIN: it blocks; ECONNREFUSED, ENOTCONN: connected streams"},
        {Call::kRecvTcp,
         "recv-tcp",
         {EAGAIN, ECONNRESET, EINTR, ENOMEM, ETIMEDOUT, EHOSTUNREACH, kShort},
         "ECONNREFUSED, ENOTCONN: accepted streams"},
        {Call::kFcntl, "fcntl", {EBADF, EPERM}, "EACCES, EAGAIN, EDEADLK, EINTR, ENOLCK: of locks"},
        {Call::kThread, "pthread-create", {EAGAIN}, "EINVAL, EPERM: default attributes"},
        {Call::kSemOpen,
         "sem-open",
         {EACCES, EMFILE, ENAMETOOLONG, ENFILE, ENOENT, ENOMEM},
         "EEXIST: not exclusive; EINVAL: the count is 1"},
        {Call::kSemWait, "sem-wait", {EINTR}, "EINVAL: never without a handle; EAGAIN: of sem_trywait"},
        {Call::kSemTimedWait, "sem-timedwait", {EINTR, ETIMEDOUT}, "EINVAL: as of sem-wait"},
    };
    return table;
}

const CallErrors& errorsOf(Call call) {
    return callTable()[static_cast<std::size_t>(call)];
}

std::string nameOf(Effect effect) {
    return effect == kShort ? "short" : strerrorname_np(effect);
}

Effect effectOf(const std::string& name) {
    for (const CallErrors& entry : callTable()) {
        for (const Effect effect : entry.effects) {
            if (nameOf(effect) == name) {
                return effect;
            }
        }
    }
    throw std::invalid_argument("no such errno: " + name);
}

Call callOf(const std::string& name) {
    for (const CallErrors& entry : callTable()) {
        if (name == entry.name) {
            return entry.call;
        }
    }
    throw std::invalid_argument("no such call: " + name);
}

bool isTransient(Effect effect) {
    return effect == EINTR || effect == EAGAIN;
}

}  // namespace wpp_torture
