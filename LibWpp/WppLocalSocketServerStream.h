#pragma once

#include <atomic>
#include <functional>
#include <memory>

#include "Communication/QMLocalSocketServerStream.h"
#include "Pattern/QMUncopyable.h"

namespace wifi_projection_protocol {

/// The receiving half of a link: every message of a peer goes to one handler, which answers with send().
///
/// Closed -> (open) open -> (close) closed, and so on. The handler runs on the stream's thread, one message
/// at a time, without a lock held. open and close may come from any other thread, one at a time.
class WppLocalSocketServerStream : private QMUncopyable {
public:
    /// Gets one whole message, valid during the call.
    using Handler = std::function<void(const void* data, unsigned length)>;

    WppLocalSocketServerStream();
    /// Closes the stream.
    virtual ~WppLocalSocketServerStream();

    /// Closes the stream if it is open and listens on the socket file `name`. With an empty handler, what
    /// comes is dropped.
    /// @return false, logged as "ServerSocket Open Error. name=%s\n", for a null name or one above 107
    ///         characters; else true, also when the name cannot be bound (logged by the stream).
    bool open(const char* name, Handler messageHandler);

    void close();

    /// Sends a frame to the peer whose message was delivered last; meant for the handler.
    /// @return the bytes sent, 0 on failure or before the first message.
    int send(const void* data, unsigned length);

private:
    void onConnection(int fd, bool connected);
    void onData(int fd, const void* data, unsigned length);

    std::unique_ptr<QMLocalSocketServerStream> stream;
    Handler handler;  // written only while the stream is stopped
    std::atomic<int> clientFd{-1};
};

}  // namespace wifi_projection_protocol
