#include "Communication/private/QMLocalSocket.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace {

/// How long connect and send may block on the socket; zero lifts the limit.
void setSendTimeLimit(int socket, std::chrono::milliseconds limit) {
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit);
    timeval value{};
    value.tv_sec = static_cast<decltype(value.tv_sec)>(seconds.count());
    value.tv_usec = static_cast<decltype(value.tv_usec)>(std::chrono::microseconds(limit - seconds).count());
    ::setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &value, sizeof(value));
}

}  // namespace

bool qm_IsSocketName(const char* name) {
    return name != nullptr && ::strnlen(name, kQMMaxSocketName + 1) <= kQMMaxSocketName;
}

QMLocalSocketName qm_CopySocketName(const char* name) {
    QMLocalSocketName copy;
    std::memcpy(copy.text, name, ::strnlen(name, kQMMaxSocketName));
    return copy;
}

sockaddr_un qm_MakeSocketAddress(const char* name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, name, ::strnlen(name, kQMMaxSocketName));
    return address;
}

QMDescriptor qm_OpenLocalSocket() {
    return QMDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
}

bool qm_ConnectLocalSocket(int socket, const char* name, std::chrono::milliseconds timeLimit) {
    const sockaddr_un address = qm_MakeSocketAddress(name);
    setSendTimeLimit(socket, timeLimit);
    const int result = ::connect(socket, reinterpret_cast<const sockaddr*>(&address), kQMSocketAddressSize);
    setSendTimeLimit(socket, std::chrono::milliseconds::zero());
    return result == 0;
}

void qm_WriteFrame(std::uint8_t* frame, const void* data, std::uint32_t length) {
    std::memcpy(frame, &length, kQMFramePrefixSize);
    if (length > 0) {
        std::memcpy(frame + kQMFramePrefixSize, data, length);
    }
}

QMReceived qm_Receive(int socket, void* buffer, std::size_t length) {
    QMReceived received{0, false};
    while (received.count < length && !received.isClosed) {
        const ssize_t count = ::recv(socket, static_cast<std::uint8_t*>(buffer) + received.count,
                                     length - received.count, MSG_WAITALL);
        if (count < 0 && errno != EINTR) {
            return received;
        }
        received.isClosed = count == 0;
        received.count += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    return received;
}

bool qm_ReceiveExactly(int socket, void* buffer, std::size_t length) {
    return qm_Receive(socket, buffer, length).count == length;
}

QMReceived qm_Discard(int socket, std::uint32_t length) {
    std::array<std::uint8_t, 4096> chunk;
    QMReceived discarded{0, false};
    while (discarded.count < length) {
        const std::size_t size = std::min<std::size_t>(length - discarded.count, chunk.size());
        const QMReceived part = qm_Receive(socket, chunk.data(), size);
        discarded.count += part.count;
        if (part.count != size) {
            discarded.isClosed = part.isClosed;
            break;
        }
    }
    return discarded;
}

int qm_WaitReadable(const int* descriptors, std::size_t count, int* ready, std::size_t readyCount,
                    std::chrono::milliseconds timeout) {
    if (descriptors == nullptr || ready == nullptr) {
        return kQMWaitInvalid;
    }
    const QMDescriptor epoll(::epoll_create1(EPOLL_CLOEXEC));
    if (!epoll.isValid()) {
        return kQMWaitFailed;
    }
    for (std::size_t i = 0; i < count; ++i) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = descriptors[i];
        if (::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, descriptors[i], &event) != 0 && errno != EBADF) {
            return kQMWaitFailed;
        }
    }
    // The receiver's streams have one peer each; memory is taken only for more than a few.
    std::array<epoll_event, 8> few;
    std::vector<epoll_event> many(readyCount > few.size() ? readyCount : 0);
    epoll_event* const events = many.empty() ? few.data() : many.data();
    const int reported =
        ::epoll_wait(epoll.get(), events, static_cast<int>(readyCount), static_cast<int>(timeout.count()));
    if (reported <= 0) {
        return reported == 0 ? kQMWaitTimedOut : kQMWaitFailed;
    }
    std::transform(events, events + reported, ready, [](const epoll_event& event) { return event.data.fd; });
    return reported;
}

int qm_PollReadable(int descriptor, int timeoutMs) {
    pollfd watched{descriptor, POLLIN, 0};
    return ::poll(&watched, 1, timeoutMs);
}

void qm_Pause(std::chrono::milliseconds duration) {
    ::poll(nullptr, 0, static_cast<int>(duration.count()));
}
