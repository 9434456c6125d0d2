#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Simulator/private/Io/PollLoop.h"
#include "Simulator/private/Io/UniqueFd.h"

namespace simulator {

/// A connected stream socket (or pipe) in a poll loop: bytes that arrive go to a handler, bytes to send wait
/// in a buffer until the peer takes them.
///
/// Open until the peer or close() ends it; the closed handler runs once, and not after close(). Both handlers
/// run from within the loop and may destroy the stream. The loop has to outlive it. The first stream ignores
/// SIGPIPE for the whole process.
class ByteStream {
public:
    using BytesHandler = std::function<void(std::string_view bytes)>;
    using ClosedHandler = std::function<void()>;

    /// Takes over `descriptor`; one that is sent to has to be non-blocking, one that is only read need not
    /// be.
    ByteStream(PollLoop& pollLoop, UniqueFd descriptor, BytesHandler bytesHandler,
               ClosedHandler closedHandler);
    ~ByteStream();

    ByteStream(const ByteStream&) = delete;
    ByteStream& operator=(const ByteStream&) = delete;

    /// Sends now what fits and the rest as the peer takes it. A closed stream drops the bytes.
    void send(std::string_view bytes);

    /// Leaves what arrives unread from now on, as a peer that has stopped does.
    void stopReading();

    /// Sends what the socket takes at once and ends the stream without calling the closed handler.
    void close();

    bool isOpen() const { return static_cast<bool>(fd); }

private:
    void onReady(short events);
    void flush();
    void receive();
    void end();
    void updateWatch();

    PollLoop& loop;
    UniqueFd fd;
    BytesHandler onBytes;
    ClosedHandler onClosed;
    std::string outgoing;
    bool reading = true;
    bool broken = false;  // a send has failed; the end is reported from the loop
};

}  // namespace simulator
