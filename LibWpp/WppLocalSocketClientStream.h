#pragma once

#include <atomic>
#include <memory>

#include "Communication/QMLocalSocketClientStream.h"
#include "Foundation/QMEvent.h"
#include "LibWpp/WppIPCMessageCore.h"
#include "Pattern/QMUncopyable.h"

namespace wifi_projection_protocol {

/// The asking half of a link: sends messages and waits for the peer's answer to each.
///
/// Closed -> (open) connected -> (close) closed, and so on. Any thread may call communicate; concurrent calls
/// take turns, each for its whole exchange. Messages belong to the caller and are serialised in place.
class WppLocalSocketClientStream : private QMUncopyable {
public:
    WppLocalSocketClientStream();
    /// Closes the stream.
    virtual ~WppLocalSocketClientStream();

    /// Connects to the socket file `name` and returns once the peer has accepted, however long that takes.
    /// @return false, logged as "ClientSocket Open Error. name=%s\n", for a null name or one that has more
    ///         than 107 characters.
    bool open(const char* name);

    void close();

    /// Sends a message and waits without limit for the answer.
    /// @return the first four bytes of the answer in host order, which for a one-byte answer is that byte;
    ///         0 when the exchange failed (logged by the stream).
    int communicate(WppIPCMessageCore& request);

    /// Sends a message and waits without limit for an answer of the id that `response` has.
    /// @return true when `response` was decoded from it; false when the exchange failed (logged by the
    ///         stream) or the answer has another id, logged as "MessageId mismatch.\n".
    bool communicate(WppIPCMessageCore& request, WppIPCMessageCore& response);

private:
    void onConnection(bool connected);
    void onData(const void* data, unsigned length);

    QMEvent connectedEvent;
    std::atomic<bool> connectionMade{false};  // set before the event is
    std::unique_ptr<QMLocalSocketClientStream> stream;
};

}  // namespace wifi_projection_protocol
