#pragma once

#include <functional>
#include <string_view>

#include "Simulator/private/Io/ByteStream.h"
#include "Simulator/private/Io/Frame.h"

namespace simulator {

/// A byte stream that carries the frames of the receiver's local sockets.
///
/// Each payload goes to the frame handler, from within the loop; a frame over the limit ends the stream as
/// the peer's closing does. The frame handler must not destroy the socket; the closed handler may.
class FramedSocket {
public:
    using FrameHandler = std::function<void(std::string_view payload)>;

    FramedSocket(PollLoop& loop, UniqueFd fd, FrameHandler frameHandler,
                 ByteStream::ClosedHandler closedHandler);

    void sendFrame(std::string_view payload) { stream.send(encodeFrame(payload)); }

    /// Sends bytes that need not be a frame: for misbehaviour.
    void sendBytes(std::string_view bytes) { stream.send(bytes); }

private:
    void onBytes(std::string_view bytes);

    FrameHandler onFrame;
    ByteStream::ClosedHandler onClosed;
    FrameDecoder decoder;
    ByteStream stream;
};

}  // namespace simulator
