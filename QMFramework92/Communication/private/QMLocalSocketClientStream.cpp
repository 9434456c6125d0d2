#include "Communication/QMLocalSocketClientStream.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <limits>
#include <new>
#include <utility>

#include "Communication/private/QMLocalSocket.h"
#include "Communication/private/QMLocalSocketStreamLog.h"
#include "Foundation/QMDescriptor.h"

namespace {

using namespace std::chrono_literals;

constexpr const char* kThreadName = "ClientStream_s92";
constexpr const char* kMainProc = "MainProc";
constexpr auto kPollPeriod = 100ms;   // the longest that a Stop stays unseen
constexpr auto kRetryPeriod = 100ms;  // between two attempts to connect

constexpr int kNoSocket = -1;

}  // namespace

QMLocalSocketClientStream::QMLocalSocketClientStream() : thread(this) {}

QMLocalSocketClientStream::~QMLocalSocketClientStream() {
    Stop();
}

bool QMLocalSocketClientStream::Start(const Config& newConfig, unsigned newMode) {
    QMSyncGuard guard(stateLock);
    if (!qm_IsSocketName(newConfig.name)) {
        return false;
    }
    stopThread();
    {
        QMSyncGuard configGuard(configLock);
        config = {qm_CopySocketName(newConfig.name), newConfig.maxRecvSize, 0,
                  Settings::cloneOf(newConfig.connectionHandler), Settings::cloneOf(newConfig.dataHandler)};
    }
    mode = newMode;
    prepareStart();
    threadBegun = thread.Start(kThreadName);
    if (!threadBegun) {
        markEnded();
    }
    return true;
}

void QMLocalSocketClientStream::Stop() {
    QMSyncGuard guard(stateLock);
    stopThread();
}

void QMLocalSocketClientStream::stopThread() {
    if (state == kStopped) {
        return;
    }
    const auto endOfGrace = std::chrono::steady_clock::now() + kStopGrace;
    requestStop();
    thread.WaitExit(QM_WAIT_INFINITE);
    // An exchange without a time limit may hold the send lock for ever; cutting its connection ends it.
    const auto left = std::max(
        0ms, std::chrono::ceil<std::chrono::milliseconds>(endOfGrace - std::chrono::steady_clock::now()));
    const bool locked = sendLock.Lock(static_cast<std::uint32_t>(left.count())) == QMSync::kLocked;
    if (!locked) {
        sockets.shutdownAll();
    }
    disconnect();
    if (locked) {
        sendLock.Unlock();
    }
}

void QMLocalSocketClientStream::disconnect() {
    QMSyncGuard guard(sendLock);
    sockets.closeAll();
    connected = false;
    socketFd = kNoSocket;
}

QMLocalSocketName QMLocalSocketClientStream::socketName() {
    QMSyncGuard guard(configLock);
    return config.name;
}

int QMLocalSocketClientStream::send(const void* data, unsigned length) {
    QMSyncGuard guard(sendLock);
    if (!connected) {
        return 0;
    }
    const int sent = sendStreamData(data, static_cast<int>(length));
    if (sent < 0) {
        QM_STREAM_STD_ERROR_SHORT();
        return 0;
    }
    return sent;
}

int QMLocalSocketClientStream::communicate(const void* sendBuf, unsigned sendLen, void* recvBuf,
                                           unsigned* recvLen, int timeoutMs) {
    QMSyncGuard guard(sendLock);
    if (!mayCommunicate(__func__)) {
        return 0;
    }
    if (recvBuf == nullptr || sendBuf == nullptr) {
        QM_STREAM_ERROR("send or recv buff is null.\n");
        return 0;
    }
    const Exchange exchange = requestReply(__func__, sendBuf, sendLen, timeoutMs);
    if (exchange.sent == 0) {
        return 0;
    }
    if (exchange.replyLength > receiveLimit) {
        discardRecvData(recvBuf, exchange.replyLength);
        QM_STREAM_ERROR("recv: large data\n");
        return 0;
    }
    const int received = recvStreamData(recvBuf, exchange.replyLength);
    storeLength(recvLen, received);
    if (received == 0) {
        QM_STREAM_ERROR("recv: error\n");
        return 0;
    }
    return exchange.sent;
}

int QMLocalSocketClientStream::communicateWithCreateBuff(const void* sendBuf, unsigned sendLen,
                                                         void** recvBuf, unsigned* recvLen, int timeoutMs) {
    QMSyncGuard guard(sendLock);
    if (!mayCommunicate(__func__)) {
        return 0;
    }
    if (recvBuf == nullptr || sendBuf == nullptr) {
        QM_STREAM_ERROR("send or recv buff is null\n");
        return 0;
    }
    const Exchange exchange = requestReply(__func__, sendBuf, sendLen, timeoutMs);
    if (exchange.sent == 0) {
        return 0;
    }
    auto buffer = createBuffer(exchange.replyLength, socketName());
    if (buffer == nullptr) {
        QM_STREAM_ERROR("recv buffer : NULL\n");
        unreadLength = exchange.replyLength;
        return 0;
    }
    const int received = recvStreamData(buffer.get(), exchange.replyLength);
    storeLength(recvLen, received);
    if (received == 0) {
        QM_STREAM_ERROR("recv: error\n");
        return 0;
    }
    *recvBuf = buffer.release();
    return exchange.sent;
}

bool QMLocalSocketClientStream::mayCommunicate(const char* function) {
    if (!connected) {
        QM_STREAM_ERROR_OF(function, "Not connected\n");
        return false;
    }
    if (mode == kAsynchronous) {
        QM_STREAM_ERROR_OF(function, "communicate method : ASYNC\n");
        return false;
    }
    return true;
}

void QMLocalSocketClientStream::storeLength(unsigned* destination, int length) {
    if (destination != nullptr) {
        *destination = static_cast<unsigned>(length);
    }
}

/// Sends the request and waits for the length of the reply; `function` is the exchange that the log names.
QMLocalSocketClientStream::Exchange QMLocalSocketClientStream::requestReply(const char* function,
                                                                            const void* data, unsigned length,
                                                                            int timeoutMs) {
    if (!discardUnread() || !discardOwed(function, timeoutMs)) {
        return {};
    }
    const int sent = sendStreamData(data, static_cast<int>(length));
    if (sent < 0) {
        QM_STREAM_ERROR_OF(function, "send: error\n");
        return {};
    }
    if (static_cast<std::uint64_t>(sent) != qm_FrameSize(length)) {
        // The peer waits for the rest, and would take the next request for it.
        QM_STREAM_ERROR_OF(function, "send: error\n");
        giveUpConnection();
        return {};
    }
    const int ready = qm_PollReadable(socketFd, timeoutMs);
    if (ready <= 0) {
        replyOwed = ready < 0;
        QM_STREAM_ERROR_OF(function, ready < 0 ? "poll: error\n" : "poll: timeout\n");
        return {};
    }
    const std::uint32_t replyLength = recvStreamLength();
    if (replyLength == 0) {
        QM_STREAM_ERROR_OF(function, "recv: no data\n");
        return {};
    }
    return {sent, replyLength};
}

/// @return the result of the one send; -1 with errno also when no frame can be made.
int QMLocalSocketClientStream::sendStreamData(const void* data, int length) {
    const auto size = static_cast<std::uint32_t>(length);
    if (data == nullptr && size > 0) {
        errno = EFAULT;
        return -1;
    }
    std::unique_ptr<std::uint8_t[]> frame;
    if (qm_FrameSize(size) <= std::numeric_limits<std::uint32_t>::max()) {
        frame.reset(new (std::nothrow) std::uint8_t[static_cast<std::size_t>(qm_FrameSize(size))]);
    }
    if (frame == nullptr) {
        errno = ENOMEM;
        return -1;
    }
    qm_WriteFrame(frame.get(), data, size);
    const ssize_t sent = ::send(socketFd, frame.get(), static_cast<std::size_t>(qm_FrameSize(size)), 0);
    const int sendError = errno;
    frame.reset();
    if (size > kQMLargeSendSize) {
        QM_STREAM_SYS("Socket send data length::%lu / Socket name::%s\n", static_cast<unsigned long>(size),
                      socketName().text);
    }
    errno = sendError;
    return static_cast<int>(sent);
}

std::uint32_t QMLocalSocketClientStream::recvStreamLength() {
    std::uint32_t length = 0;
    const QMReceived prefix = qm_Receive(socketFd, &length, sizeof(length));
    if (prefix.isClosed && prefix.count == 0) {
        setConnected(false);
        return 0;
    }
    if (prefix.count != sizeof(length)) {
        QM_STREAM_ERROR("recv: error\n");
        replyOwed = prefix.count == 0;
        return 0;
    }
    return length;
}

int QMLocalSocketClientStream::recvStreamData(void* buffer, std::uint32_t length) {
    const QMReceived payload = qm_Receive(socketFd, buffer, length);
    if (payload.count != length) {
        QM_STREAM_ERROR("recv: error\n");
        unreadLength = length - static_cast<std::uint32_t>(payload.count);
        return 0;
    }
    return static_cast<int>(length);
}

void QMLocalSocketClientStream::discardRecvData(void* buffer, std::uint32_t length) {
    while (length > 0) {
        const std::uint32_t chunk = std::min(length, receiveLimit);
        const std::size_t count = qm_Receive(socketFd, buffer, chunk).count;
        length -= static_cast<std::uint32_t>(count);
        if (chunk == 0 || count != chunk) {
            QM_STREAM_ERROR("recv: error\n");
            unreadLength = length;
            return;
        }
    }
}

/// Takes a payload for which there was no memory out of the socket, where it would pass for the next frame.
bool QMLocalSocketClientStream::discardUnread() {
    const QMReceived discarded = qm_Discard(socketFd, unreadLength);
    // Behind the end of what the peer says there is no next frame.
    unreadLength = discarded.isClosed ? 0 : unreadLength - static_cast<std::uint32_t>(discarded.count);
    if (unreadLength == 0) {
        return true;
    }
    QM_STREAM_ERROR_OF("discardRecvData", "recv: error\n");
    return false;
}

/// The reply to an exchange that failed once its request was out comes all the same; it must not pass for the next one.
bool QMLocalSocketClientStream::discardOwed(const char* function, int timeoutMs) {
    if (!replyOwed) {
        return true;
    }
    const int ready = qm_PollReadable(socketFd, timeoutMs);
    if (ready <= 0) {
        QM_STREAM_ERROR_OF(function, ready < 0 ? "poll: error\n" : "poll: timeout\n");
        return false;
    }
    replyOwed = false;
    unreadLength = recvStreamLength();
    if (unreadLength == 0) {
        QM_STREAM_ERROR_OF(function, "recv: no data\n");
        return false;
    }
    return discardUnread();
}

/// To the peer this is the end; whoever opened the stream may open it again.
void QMLocalSocketClientStream::giveUpConnection() {
    sockets.shutdownAll();
    setConnected(false);
}

void QMLocalSocketClientStream::MainProc() {
    const EndOfThread end(*this);
    qm_IgnoreSigPipe();
    while (state == kStarting && !makeReady()) {
        qm_Pause(kRetryPeriod);
    }
    if (state != kStarting || !openSocket()) {
        return;
    }
    enterRunning();
    while (state != kStopped) {
        if (connected) {
            receiveFrame();
        } else if (connectOnce() && mode != kAsynchronous) {
            return;
        }
    }
}

/// Without memory it is worth another try: whoever opened the stream waits for it to connect.
bool QMLocalSocketClientStream::makeReady() {
    try {
        takeSettings();
        if (sockets.reserve()) {
            return true;
        }
    } catch (const std::bad_alloc&) {
        // Reported below.
    }
    QM_STREAM_NO_MEMORY_OF(kMainProc);
    return false;
}

void QMLocalSocketClientStream::takeSettings() {
    Settings working;
    {
        QMSyncGuard guard(configLock);
        working = config.clone();
    }
    workingName = working.name;
    dataHandler = std::move(working.dataHandler);
    QMSyncGuard guard(sendLock);
    receiveLimit = static_cast<std::uint32_t>(working.maxRecvSize);
    connectionHandler = std::move(working.connectionHandler);
}

/// Replaces the stream's socket by a fresh one.
bool QMLocalSocketClientStream::openSocket() {
    if (!sockets.reserve()) {
        QM_STREAM_NO_MEMORY_OF(kMainProc);
        return false;
    }
    QMDescriptor socket = qm_OpenLocalSocket();
    if (!socket.isValid()) {
        QM_STREAM_ERROR_OF(kMainProc, "create socket : fail in socket\n");
        noSocket = true;
        return false;
    }
    QMSyncGuard guard(sendLock);
    sockets.closeAll();
    socketFd = sockets.adopt(std::move(socket));
    socketUsed = false;
    unreadLength = 0;
    replyOwed = false;
    return true;
}

/// One attempt to connect. It takes the retry period when it fails, and also when it is the first one after
/// the loss of a connection.
bool QMLocalSocketClientStream::connectOnce() {
    if (socketUsed) {
        qm_Pause(kRetryPeriod);
        if (!openSocket()) {
            return false;
        }
    }
    if (!connectSocket()) {
        qm_Pause(kRetryPeriod);
        return false;
    }
    return true;
}

/// The send lock spans both steps: the peer may cause an exchange as soon as the system has connected it, and
/// that exchange has to find the stream connected.
bool QMLocalSocketClientStream::connectSocket() {
    QMSyncGuard guard(sendLock);
    if (!qm_ConnectLocalSocket(socketFd, workingName.text, kRetryPeriod)) {
        return false;
    }
    socketUsed = true;
    setConnected(true);
    return true;
}

/// Receives one frame in mode 1, if there is one within the poll period.
void QMLocalSocketClientStream::receiveFrame() {
    const int readable = qm_PollReadable(socketFd, kPollPeriod.count());
    if (readable < 0) {
        qm_Pause(kPollPeriod);
    }
    if (readable <= 0) {
        return;
    }
    const std::uint32_t length = recvStreamLength();
    if (length == 0) {
        QM_STREAM_ERROR_OF(kMainProc, "recv: no data\n");
        return;
    }
    const auto buffer = createBuffer(length, workingName);
    if (buffer == nullptr) {
        QM_STREAM_ERROR_OF(kMainProc, "recv: buffer is NULL\n");
        unreadLength = length;
        discardUnread();
        return;
    }
    const int received = recvStreamData(buffer.get(), length);
    if (received == 0) {
        QM_STREAM_ERROR_OF(kMainProc, "recv: error\n");
    } else if (dataHandler != nullptr) {
        (*dataHandler)(buffer.get(), length);
    }
}

void QMLocalSocketClientStream::setConnected(bool isConnected) {
    QMSyncGuard guard(sendLock);
    connected = isConnected;
    if (connectionHandler != nullptr) {
        (*connectionHandler)(isConnected);
    }
}
