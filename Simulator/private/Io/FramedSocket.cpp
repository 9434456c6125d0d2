#include "Simulator/private/Io/FramedSocket.h"

#include <utility>

namespace simulator {

FramedSocket::FramedSocket(PollLoop& loop, UniqueFd fd, FrameHandler frameHandler,
                           ByteStream::ClosedHandler closedHandler)
    : onFrame(std::move(frameHandler)),
      onClosed(std::move(closedHandler)),
      stream(
          loop, std::move(fd), [this](std::string_view bytes) { onBytes(bytes); },
          [this] {
              const ByteStream::ClosedHandler handler = onClosed;
              handler();
          }) {}

void FramedSocket::onBytes(std::string_view bytes) {
    for (const std::string& payload : decoder.feed(bytes)) {
        onFrame(payload);
    }
    if (decoder.isBroken()) {
        stream.close();
        const ByteStream::ClosedHandler handler = onClosed;
        handler();
    }
}

}  // namespace simulator
