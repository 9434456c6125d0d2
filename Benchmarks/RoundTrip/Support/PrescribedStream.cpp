#include "Benchmarks/RoundTrip/Support/PrescribedStream.h"

#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <thread>

#include "Benchmarks/RoundTrip/Support/Sockets.h"

namespace bench {

namespace {

constexpr int kPollPeriodMs = 100;
constexpr int kWithoutLimit = -1;
constexpr std::size_t kLargestMessage = 2U << 20;

int pollReadable(int descriptor, int limitMs) {
    pollfd watched{descriptor, POLLIN, 0};
    return poll(&watched, 1, limitMs);
}

/// @return the number that is ready, of the listening socket and the peers.
int waitReadable(const std::vector<int>& descriptors, epoll_event* ready) {
    const int set = epoll_create1(EPOLL_CLOEXEC);
    for (const int descriptor : descriptors) {
        epoll_event event{};
        event.events = EPOLLIN;
        event.data.fd = descriptor;
        epoll_ctl(set, EPOLL_CTL_ADD, descriptor, &event);
    }
    const int count = epoll_wait(set, ready, static_cast<int>(descriptors.size()), kPollPeriodMs);
    close(set);
    return count;
}

/// An exception of the thread ends the process, which the asking end notices.
void serve(const char* name, const std::function<void(int peer, const std::uint8_t*, std::uint32_t)>& handle,
           PayloadBuffer kind) {
    std::vector<std::uint8_t> payload(kLargestMessage);
    std::vector<int> descriptors{listenLocal(name)};
    std::vector<epoll_event> ready;
    for (;;) {
        ready.resize(descriptors.size());
        ready.resize(static_cast<std::size_t>(std::max(0, waitReadable(descriptors, ready.data()))));
        for (const epoll_event& event : ready) {
            const int descriptor = event.data.fd;
            pollReadable(descriptor, kPollPeriodMs);
            if (descriptor == descriptors.front()) {
                descriptors.push_back(acceptOne(descriptor));
                continue;
            }
            std::uint32_t length = 0;
            receiveAll(descriptor, &length, sizeof(length));
            const std::unique_ptr<std::uint8_t[]> fresh(
                kind == PayloadBuffer::kFresh ? new std::uint8_t[length] : nullptr);
            std::uint8_t* const bytes = fresh != nullptr ? fresh.get() : payload.data();
            receiveAll(descriptor, bytes, length);
            handle(descriptor, bytes, length);
        }
    }
}

}  // namespace

void servePrescribed(const char* name,
                     const std::function<void(int peer, const std::uint8_t*, std::uint32_t)>& handle,
                     PayloadBuffer kind) {
    std::thread([&] { serve(name, handle, kind); }).join();
}

void exchangePrescribed(int socket, const void* frame, std::size_t length) {
    std::uint32_t answerLength = 0;
    std::uint8_t answer = 0;
    sendAll(socket, frame, length);
    pollReadable(socket, kWithoutLimit);
    receiveAll(socket, &answerLength, sizeof(answerLength));
    receiveAll(socket, &answer, sizeof(answer));
}

}  // namespace bench
