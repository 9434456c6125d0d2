#include "Simulator/private/Io/ByteStream.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

namespace simulator {

namespace {

constexpr std::size_t kReceiveChunk = 65536;

/// A peer that has gone is learned from the failing write, not from a signal that ends the program.
void ignoreSigPipe() {
    static const auto former = std::signal(SIGPIPE, SIG_IGN);
    static_cast<void>(former);
}

bool wouldBlock(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

ByteStream::ByteStream(PollLoop& pollLoop, UniqueFd descriptor, BytesHandler bytesHandler,
                       ClosedHandler closedHandler)
    : loop(pollLoop),
      fd(std::move(descriptor)),
      onBytes(std::move(bytesHandler)),
      onClosed(std::move(closedHandler)) {
    ignoreSigPipe();
    loop.watch(fd.get(), POLLIN, [this](short events) { onReady(events); });
}

ByteStream::~ByteStream() {
    close();
}

void ByteStream::send(std::string_view bytes) {
    if (!isOpen() || broken) {
        return;
    }
    outgoing.append(bytes);
    flush();
    updateWatch();
}

void ByteStream::stopReading() {
    reading = false;
    updateWatch();
}

void ByteStream::close() {
    if (isOpen()) {
        loop.forget(fd.get());
        fd.reset();
    }
}

void ByteStream::onReady(short events) {
    if ((events & POLLOUT) != 0) {
        flush();
        updateWatch();
    }
    if (broken || (!reading && (events & (POLLHUP | POLLERR)) != 0)) {
        end();
    } else if (reading && (events & (POLLIN | POLLHUP | POLLERR)) != 0) {
        receive();
    }
}

// Writes as to a file, so that pipes serve as well as sockets.
void ByteStream::flush() {
    while (!outgoing.empty()) {
        const ssize_t count = ::write(fd.get(), outgoing.data(), outgoing.size());
        if (count < 0) {
            if (!wouldBlock(errno)) {
                broken = true;
                outgoing.clear();
            }
            return;
        }
        outgoing.erase(0, static_cast<std::size_t>(count));
    }
}

// Reads once for each readiness and touches no member after a handler has run: the handler may destroy the
// stream.
void ByteStream::receive() {
    std::array<char, kReceiveChunk> chunk;
    const ssize_t count = ::read(fd.get(), chunk.data(), chunk.size());
    if (count < 0 && wouldBlock(errno)) {
        return;
    }
    if (count <= 0) {
        end();
        return;
    }
    const BytesHandler handler = onBytes;
    handler(std::string_view(chunk.data(), static_cast<std::size_t>(count)));
}

void ByteStream::end() {
    close();
    const ClosedHandler handler = onClosed;
    handler();
}

void ByteStream::updateWatch() {
    short events = 0;
    if (reading) {
        events = POLLIN;
    }
    if (!outgoing.empty() || broken) {
        events = static_cast<short>(events | POLLOUT);
    }
    loop.change(fd.get(), events);
}

}  // namespace simulator
