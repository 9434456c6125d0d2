#include "Communication/QMLocalSocketServerStream.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <new>
#include <utility>
#include <vector>

#include "Communication/private/QMLocalSocket.h"
#include "Communication/private/QMLocalSocketStreamLog.h"
#include "Foundation/QMDescriptor.h"

namespace {

using namespace std::chrono_literals;

constexpr const char* kThreadName = "ServerStream_s92";
constexpr const char* kMainProc = "MainProc";
constexpr auto kPollPeriod = 100ms;  // the longest that a Stop stays unseen

constexpr int kNoSocket = -1;
constexpr int kNotBound = -3;
constexpr int kBacklog = 1;
constexpr int kBindErrorNumber = 1;  // what the log shows in place of errno

/// Closes a stream's sockets when its thread ends, also by an exception of a handler, but not while somebody
/// sends to one of them.
class ClosingAtEnd : private QMUncopyable {
public:
    ClosingAtEnd(QMOpenSockets& socketsToClose, QMSync& senders)
        : sockets(socketsToClose), clientLock(senders) {}
    ~ClosingAtEnd() {
        QMSyncGuard guard(clientLock);
        sockets.closeAll();
    }

private:
    QMOpenSockets& sockets;
    QMSync& clientLock;
};

}  // namespace

QMLocalSocketServerStream::QMLocalSocketServerStream() : thread(this) {}

QMLocalSocketServerStream::~QMLocalSocketServerStream() {
    Stop();
}

bool QMLocalSocketServerStream::Start(const Config& newConfig, unsigned newMode) {
    QMSyncGuard guard(stateLock);
    if (!qm_IsSocketName(newConfig.name)) {
        return false;
    }
    stopThread();
    {
        QMSyncGuard configGuard(configLock);
        config = {qm_CopySocketName(newConfig.name), newConfig.maxRecvSize, newConfig.maxClients,
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

void QMLocalSocketServerStream::Stop() {
    QMSyncGuard guard(stateLock);
    stopThread();
}

void QMLocalSocketServerStream::stopThread() {
    if (state == kStopped) {
        return;
    }
    requestStop();
    thread.WaitExit(QM_WAIT_INFINITE);
}

QMLocalSocketName QMLocalSocketServerStream::socketName() {
    QMSyncGuard guard(configLock);
    return config.name;
}

int QMLocalSocketServerStream::send(int clientFd, const void* data, unsigned length) {
    QMSyncGuard guard(clientLock);
    if (data == nullptr) {
        QM_STREAM_ERROR("send data is null\n");
        return 0;
    }
    if (!sockets.contains(clientFd)) {
        return 0;
    }
    const auto frame = createBuffer(qm_FrameSize(length), socketName());
    if (frame == nullptr) {
        return 0;
    }
    qm_WriteFrame(frame.get(), data, length);
    const ssize_t sent = ::send(clientFd, frame.get(), static_cast<std::size_t>(qm_FrameSize(length)), 0);
    const int sendError = errno;
    if (length > kQMLargeSendSize) {
        QM_STREAM_SYS("Socket send data length::%lu / Socket name::%s\n", static_cast<unsigned long>(length),
                      socketName().text);
    }
    if (sent < 0) {
        errno = sendError;
        QM_STREAM_STD_ERROR_SHORT();
        return 0;
    }
    if (static_cast<std::uint64_t>(sent) != qm_FrameSize(length)) {
        QM_STREAM_ERROR("send: error\n");
    }
    return static_cast<int>(sent);
}

void QMLocalSocketServerStream::broadcast(const void* data, unsigned length) {
    QMSyncGuard guard(clientLock);
    if (data == nullptr) {
        QM_STREAM_ERROR("send data is null\n");
        return;
    }
    const auto frame = createBuffer(qm_FrameSize(length), socketName());
    if (frame == nullptr) {
        QM_STREAM_ERROR("send data is null\n");
        return;
    }
    qm_WriteFrame(frame.get(), data, length);
    for (const int client : sockets.list()) {
        if (::send(client, frame.get(), static_cast<std::size_t>(qm_FrameSize(length)), 0) < 0) {
            QM_STREAM_STD_ERROR_SHORT();
        }
    }
}

void QMLocalSocketServerStream::MainProc() {
    const EndOfThread end(*this);
    qm_IgnoreSigPipe();
    while (state == kStarting && !takeSettings()) {
        qm_Pause(kPollPeriod);
    }
    if (state != kStarting) {
        return;
    }
    const int listenFd = prepareSocket(working.name.text);
    if (listenFd == kNoSocket) {
        return;
    }
    const QMDescriptor listening(listenFd);
    const ClosingAtEnd clients(sockets, clientLock);
    enterRunning();
    Pass pass;
    while (state != kStopped) {
        servePass(listenFd, pass);
    }
}

/// Without memory it is worth another try: a thread that ended here would leave its peers unheard.
bool QMLocalSocketServerStream::takeSettings() {
    QMSyncGuard guard(configLock);
    try {
        working = config.clone();
        return true;
    } catch (const std::bad_alloc&) {
        QM_STREAM_NO_MEMORY_OF(kMainProc);
        return false;
    }
}

int QMLocalSocketServerStream::prepareSocket(const char* name) {
    QMDescriptor listening = qm_OpenLocalSocket();
    if (!listening.isValid()) {
        QM_STREAM_STD_ERROR(", socket()\n");
        noSocket = true;
        return kNoSocket;
    }
    const sockaddr_un address = qm_MakeSocketAddress(name);
    if (::bind(listening.get(), reinterpret_cast<const sockaddr*>(&address), kQMSocketAddressSize) != 0) {
        QM_STREAM_ERROR("bind err::%s  err_no[%d] \n", name, kBindErrorNumber);
        return kNotBound;
    }
    if (::listen(listening.get(), kBacklog) != 0) {
        QM_STREAM_ERROR("listen err::%s\n", name);
        return kNotBound;
    }
    return listening.release();
}

/// One wait for the peers, after which `pass.ready` is what became readable.
void QMLocalSocketServerStream::waitForPeers(int listenFd, Pass& pass) {
    pass.ready.clear();
    pass.watched.assign(1, listenFd);
    if (mode == kReceive) {
        sockets.appendTo(pass.watched);
    }
    pass.ready.resize(pass.watched.size());
    const int count = qm_WaitReadable(pass.watched.data(), pass.watched.size(), pass.ready.data(),
                                      pass.ready.size(), kPollPeriod);
    noteWait(count != kQMWaitFailed);
    pass.ready.resize(static_cast<std::size_t>(std::max(count, 0)));
}

/// A wait that fails takes its time all the same, and the first one in a row is logged.
void QMLocalSocketServerStream::noteWait(bool succeeded) {
    if (!succeeded) {
        if (!waitsFail) {
            QM_STREAM_STD_ERROR_SHORT_OF(kMainProc);
        }
        qm_Pause(kPollPeriod);
    }
    waitsFail = !succeeded;
}

bool QMLocalSocketServerStream::isReadable(int descriptor) {
    const int readable = qm_PollReadable(descriptor, kPollPeriod.count());
    if (readable < 0) {
        noteWait(false);
    }
    return readable > 0;
}

/// One wait and what became ready in it. A wait that fails takes its time all the same.
void QMLocalSocketServerStream::servePass(int listenFd, Pass& pass) {
    try {
        waitForPeers(listenFd, pass);
    } catch (const std::bad_alloc&) {
        QM_STREAM_NO_MEMORY_OF(kMainProc);
        pass.ready.clear();
        qm_Pause(kPollPeriod);
    }
    for (const int descriptor : pass.ready) {
        if (descriptor == listenFd) {
            acceptSocket(listenFd);
        } else {
            readSocket(descriptor);
        }
    }
}

void QMLocalSocketServerStream::acceptSocket(int listenFd) {
    if (!isReadable(listenFd)) {
        return;
    }
    sockaddr_un address{};
    socklen_t addressSize = kQMSocketAddressSize;
    QMDescriptor client;
    // A peer that could not be kept is better left in the queue.
    if (sockets.reserve()) {
        client.reset(::accept4(listenFd, reinterpret_cast<sockaddr*>(&address), &addressSize, SOCK_CLOEXEC));
    }
    if (!client.isValid()) {
        QM_STREAM_ERROR("accept err\n");
        // Out of descriptors or memory, the peer stays in the queue and would be tried without end.
        qm_Pause(kPollPeriod);
        return;
    }
    QMSyncGuard guard(clientLock);
    const int fd = sockets.adopt(std::move(client));
    if (working.connectionHandler != nullptr) {
        (*working.connectionHandler)(fd, true);
    }
}

int QMLocalSocketServerStream::readSocket(int fd) {
    if (!isReadable(fd)) {
        return 0;
    }
    std::uint32_t length = 0;
    const QMReceived prefix = qm_Receive(fd, &length, sizeof(length));
    if (prefix.isClosed && prefix.count == 0) {
        dropClient(fd);
        return 0;
    }
    if (prefix.count != sizeof(length)) {
        QM_STREAM_ERROR("recv: error for data length\n");
        if (!prefix.isClosed) {
            recoverFrom(fd, prefix.count > 0);
        }
        return 0;
    }
    if (length == 0) {
        QM_STREAM_ERROR("no data::recv size[%d]\n", 0);
        return 0;
    }
    const auto buffer = createBuffer(length, working.name);
    if (buffer == nullptr) {
        // Left in the socket, the payload would pass for the frames that follow.
        if (qm_Discard(fd, length).count != length) {
            QM_STREAM_ERROR("recv: error\n");
            dropClient(fd);
        }
        return 0;
    }
    const QMReceived payload = qm_Receive(fd, buffer.get(), length);
    if (payload.count != length) {
        QM_STREAM_ERROR("recv: error\n");
        if (!payload.isClosed) {
            const auto rest = static_cast<std::uint32_t>(length - payload.count);
            recoverFrom(fd, qm_Discard(fd, rest).count != rest);
        }
        return 0;
    }
    if (working.dataHandler != nullptr) {
        (*working.dataHandler)(fd, buffer.get(), length);
    }
    return static_cast<int>(length);
}

/// After a read that failed. A peer whose frame is torn cannot be understood any more and had better come again; the
/// others are read again, but not without end.
void QMLocalSocketServerStream::recoverFrom(int fd, bool isTorn) {
    if (isTorn) {
        dropClient(fd);
    } else {
        qm_Pause(kPollPeriod);
    }
}

void QMLocalSocketServerStream::dropClient(int fd) {
    QMSyncGuard guard(clientLock);
    sockets.close(fd);
    if (working.connectionHandler != nullptr) {
        (*working.connectionHandler)(fd, false);
    }
}
