#include "Benchmarks/RoundTrip/SppReceivers.h"

#include <fcntl.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <thread>
#include <vector>

#include "Benchmarks/RoundTrip/Support/PrescribedStream.h"
#include "Benchmarks/RoundTrip/Support/Sockets.h"
#include "Core/RfcommTransportInputOutput.h"
#include "Proxy/QmcWirelessProjectionBtProxy.h"
#include "inc/QMFramework.h"

namespace bench {

namespace {

using wifi_projection_protocol::QmcWirelessProjectionBtProxy;
using wifi_projection_protocol::RfcommTransportInputOutput;

void serveMinimal(std::atomic<std::uint64_t>& bytesRead) {
    const int peer = acceptOne(listenLocal(kSppSocketName));
    const AckFrame ack = makeAck();
    std::vector<char> payload;
    for (;;) {
        std::uint32_t length = 0;
        receiveAll(peer, &length, sizeof(length));
        payload.resize(std::max<std::size_t>(payload.size(), length));
        receiveAll(peer, payload.data(), length);
        sendAll(peer, ack.bytes, sizeof(ack.bytes));
        bytesRead += length - kSppOverhead;
    }
}

/// A pipe with one byte for each signal, each wait with a fresh wait set.
class PrescribedEvent {
public:
    PrescribedEvent() { check(pipe2(ends, O_CLOEXEC | O_NONBLOCK), "pipe2"); }

    void set() {
        const char signal = 1;
        static_cast<void>(!write(ends[1], &signal, sizeof(signal)));
    }

    void wait() {
        const int set = epoll_create1(EPOLL_CLOEXEC);
        epoll_event event{};
        event.events = EPOLLIN;
        epoll_ctl(set, EPOLL_CTL_ADD, ends[0], &event);
        epoll_wait(set, &event, 1, -1);
        char signal = 0;
        static_cast<void>(!read(ends[0], &signal, sizeof(signal)));
        close(set);
    }

private:
    int ends[2] = {-1, -1};
};

/// Of the bytes that wait for a read only their number.
class CountedBytes {
public:
    void append(const std::uint8_t*, std::size_t count) { size += count; }

    std::size_t take() {
        const std::size_t count = std::min(size, kSppReadSize);
        size -= count;
        return count;
    }

    bool isEmpty() const { return size == 0; }

private:
    std::size_t size = 0;
};

/// The bytes that wait for a read, and the reader's own buffer.
class CopiedBytes {
public:
    void append(const std::uint8_t* first, std::size_t count) {
        bytes.insert(bytes.end(), first, first + count);
    }

    std::size_t take() {
        const std::size_t count = std::min(bytes.size() - taken, kSppReadSize);
        std::copy_n(bytes.data() + taken, count, destination.data());
        taken += count;
        if (taken == bytes.size()) {
            bytes.clear();
            taken = 0;
        }
        return count;
    }

    bool isEmpty() const { return bytes.empty(); }

private:
    std::vector<std::uint8_t> bytes;
    std::size_t taken = 0;
    std::vector<std::uint8_t> destination = std::vector<std::uint8_t>(kSppReadSize);
};

/// What waits for a read, and the signal that it came. As in the product the signal is given while the lock is held.
template <class Bytes>
class PrescribedBuffer {
public:
    PrescribedBuffer() { check(sem_init(&lock, 0, 1), "sem_init"); }

    void append(const std::uint8_t* first, std::size_t count) {
        sem_wait(&lock);
        bytes.append(first, count);
        arrived.set();
        sem_post(&lock);
    }

    std::size_t read() {
        arrived.wait();
        sem_wait(&lock);
        const std::size_t count = bytes.take();
        if (!bytes.isEmpty()) {
            arrived.set();
        }
        sem_post(&lock);
        return count;
    }

private:
    sem_t lock{};
    PrescribedEvent arrived;
    Bytes bytes;
};

/// @param takeFrame appends what a frame holds to the buffer that it is given.
template <class Bytes, class TakeFrame>
void servePrescribedSpp(std::atomic<std::uint64_t>& bytesRead, PayloadBuffer kind, TakeFrame takeFrame) {
    const AckFrame ack = makeAck();
    PrescribedBuffer<Bytes> buffer;
    const std::thread reader([&] {
        for (;;) {
            bytesRead += buffer.read();
        }
    });
    servePrescribed(
        kSppSocketName,
        [&](int peer, const std::uint8_t* frame, std::uint32_t length) {
            takeFrame(buffer, frame, length);
            sendAll(peer, ack.bytes, sizeof(ack.bytes));
        },
        kind);
}

void serveCounting(std::atomic<std::uint64_t>& bytesRead) {
    servePrescribedSpp<CountedBytes>(bytesRead, PayloadBuffer::kStatic,
                                     [](auto& buffer, const std::uint8_t* frame, std::uint32_t length) {
                                         buffer.append(frame + kSppOverhead, length - kSppOverhead);
                                     });
}

void serveCopying(std::atomic<std::uint64_t>& bytesRead) {
    servePrescribedSpp<CopiedBytes>(
        bytesRead, PayloadBuffer::kFresh, [](auto& buffer, const std::uint8_t* frame, std::uint32_t length) {
            const std::vector<std::uint8_t> message(frame, frame + length);
            const std::vector<std::uint8_t> field(message.begin() + kSppOverhead, message.end());
            buffer.append(field.data(), field.size());
        });
}

void serveOurs(std::atomic<std::uint64_t>& bytesRead, unsigned phones) {
    constexpr unsigned kMostPhones = 254;
    qm_FwInitialize("WppReceiver", -1);
    std::deque<RfcommTransportInputOutput> transports;
    for (unsigned i = 0; i < phones; ++i) {
        transports.emplace_back(static_cast<int>((kSppPhone - 1 + i) % kMostPhones + 1));
    }
    QmcWirelessProjectionBtProxy::getInstance()->openServer();
    std::vector<char> bytes(kSppReadSize);
    for (;;) {
        const int count = transports.front().read(bytes.data(), kSppReadSize);
        if (count < 0) {
            return;
        }
        bytesRead += static_cast<std::uint64_t>(count);
    }
}

}  // namespace

SppReceiver minimalSppReceiver() {
    return {"minimal", serveMinimal};
}

SppReceiver prescribedSppReceiver() {
    return {"prescribed", serveCounting};
}

SppReceiver copyingSppReceiver() {
    return {"prescribed-copying", serveCopying};
}

SppReceiver ourSppReceiver(unsigned phones) {
    return {"ours", [phones](std::atomic<std::uint64_t>& bytesRead) { serveOurs(bytesRead, phones); }};
}

}  // namespace bench
