#include "LibWpp/WppLocalSocketServerStream.h"

#include <utility>

#include "Diagnostics/QMLog.h"
#include "LibWpp/private/WppStreamLimits.h"
#include "LibWpp/private/WppStreamStart.h"
#include "Pattern/QMFunctor.h"

namespace wifi_projection_protocol {

namespace {

constexpr int kMaxClients = 1;

using ConnectionFunctor =
    MemFunHandler<QMFunctor<void, Typelist<const int, Typelist<bool, NullType>>>, WppLocalSocketServerStream*,
                  void (WppLocalSocketServerStream::*)(int, bool)>;
using DataFunctor = MemFunHandler<
    QMFunctor<void, Typelist<const int, Typelist<const void* const, Typelist<unsigned int, NullType>>>>,
    WppLocalSocketServerStream*, void (WppLocalSocketServerStream::*)(int, const void*, unsigned int)>;

}  // namespace

WppLocalSocketServerStream::WppLocalSocketServerStream()
    : stream(std::make_unique<QMLocalSocketServerStream>()) {}

WppLocalSocketServerStream::~WppLocalSocketServerStream() {
    // A running handler may still send, so the stream stays in its place until its thread has ended.
    stream->Stop();
}

bool WppLocalSocketServerStream::open(const char* name, Handler messageHandler) {
    stream->Stop();
    handler = std::move(messageHandler);
    const ConnectionFunctor connection(this, &WppLocalSocketServerStream::onConnection);
    const DataFunctor data(this, &WppLocalSocketServerStream::onData);
    const bool started = startWithThread(*stream, {name, kMaxReceiveSize, kMaxClients, &connection, &data},
                                         QMLocalSocketServerStream::kReceive);
    if (!started) {
        QM_LOG_ERROR("ServerSocket Open Error. name=%s\n", name == nullptr ? "(null)" : name);
    }
    return started;
}

void WppLocalSocketServerStream::close() {
    stream->Stop();
}

int WppLocalSocketServerStream::send(const void* data, unsigned length) {
    return stream->send(clientFd, data, length);
}

void WppLocalSocketServerStream::onConnection(int, bool) {}

void WppLocalSocketServerStream::onData(int fd, const void* data, unsigned length) {
    clientFd = fd;
    if (handler) {
        handler(data, length);
    }
}

}  // namespace wifi_projection_protocol
