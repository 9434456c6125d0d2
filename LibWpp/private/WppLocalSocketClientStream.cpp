#include "LibWpp/WppLocalSocketClientStream.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <thread>

#include "Diagnostics/QMLog.h"
#include "LibWpp/WppIPCMessageHeader.h"
#include "LibWpp/private/WppStreamLimits.h"
#include "LibWpp/private/WppStreamStart.h"
#include "Pattern/QMFunctor.h"

namespace wifi_projection_protocol {

namespace {

constexpr int kNoTimeLimit = -1;
constexpr std::chrono::milliseconds kFailedWaitPause{100};

using ConnectionFunctor =
    MemFunHandler<QMFunctor<void, Typelist<bool, NullType>>, WppLocalSocketClientStream*,
                  void (WppLocalSocketClientStream::*)(bool)>;
using DataFunctor =
    MemFunHandler<QMFunctor<void, Typelist<const void* const, Typelist<unsigned int, NullType>>>,
                  WppLocalSocketClientStream*,
                  void (WppLocalSocketClientStream::*)(const void*, unsigned int)>;

}  // namespace

WppLocalSocketClientStream::WppLocalSocketClientStream()
    : stream(std::make_unique<QMLocalSocketClientStream>()) {}

WppLocalSocketClientStream::~WppLocalSocketClientStream() {
    stream->Stop();
}

bool WppLocalSocketClientStream::open(const char* name) {
    stream->Stop();
    QMEvent::Drain(&connectedEvent);
    connectionMade = false;
    const ConnectionFunctor connection(this, &WppLocalSocketClientStream::onConnection);
    const DataFunctor data(this, &WppLocalSocketClientStream::onData);
    const bool started = startWithThread(*stream, {name, kMaxReceiveSize, &connection, &data},
                                         QMLocalSocketClientStream::kSynchronous);
    if (!started) {
        QM_LOG_ERROR("ClientSocket Open Error. name=%s\n", name == nullptr ? "(null)" : name);
        return false;
    }
    // Out of descriptors the wait fails at once; neither that nor a signal left over from an earlier
    // connection must pass for this one.
    while (!connectionMade) {
        if (QMEvent::WaitEvent(&connectedEvent, QM_WAIT_INFINITE) != QMEvent::kSignalled) {
            std::this_thread::sleep_for(kFailedWaitPause);
        }
    }
    return true;
}

void WppLocalSocketClientStream::close() {
    stream->Stop();
}

int WppLocalSocketClientStream::communicate(WppIPCMessageCore& request) {
    request.serialize();
    // The answer is one word; the rest is the room that a reply up to the receive limit needs.
    std::array<std::uint32_t, kMaxReceiveSize / sizeof(std::uint32_t)> reply;
    reply[0] = 0;
    unsigned replyLength = 0;
    const int sent = stream->communicate(request.archive.getBuffer(), request.archive.getSize(), reply.data(),
                                         &replyLength, kNoTimeLimit);
    return sent < 1 ? 0 : static_cast<int>(reply[0]);
}

bool WppLocalSocketClientStream::communicate(WppIPCMessageCore& request, WppIPCMessageCore& response) {
    request.serialize();
    void* received = nullptr;
    unsigned replyLength = 0;
    const int sent = stream->communicateWithCreateBuff(request.archive.getBuffer(), request.archive.getSize(),
                                                       &received, &replyLength, kNoTimeLimit);
    const std::unique_ptr<std::uint8_t[]> reply(static_cast<std::uint8_t*>(received));
    if (sent < 1) {
        return false;
    }
    WppIPCMessageHeader header;
    header.deserialize(reply.get(), replyLength);
    if (header.messageId != response.messageId) {
        QM_LOG_ERROR("MessageId mismatch.\n");
        return false;
    }
    return response.deserialize(reply.get(), replyLength);
}

void WppLocalSocketClientStream::onConnection(bool connected) {
    if (connected) {
        connectionMade = true;
        connectedEvent.SetEvent();
    }
}

void WppLocalSocketClientStream::onData(const void*, unsigned) {}

}  // namespace wifi_projection_protocol
