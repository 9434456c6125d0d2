#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "Communication/QMLocalSocketStream.h"
#include "Foundation/QMSync.h"
#include "Foundation/QMThread.h"
#include "Pattern/QMFunctor.h"
#include "inc/QMThreadSafety.h"

/// Connects to a local socket on its own thread, sends frames and waits for replies, or receives frames.
///
/// A frame is a 32-bit length in host byte order and that many payload bytes.
///
/// Life: stopped -> (Start) starting -> the thread has its socket -> running, trying to connect every 100 ms
/// -> connected -> (the peer closes) not connected -> (Stop) stopped, and so on. In mode 0 the thread
/// "ClientStream_s92" ends once connected, and callers exchange data with send and communicate. In mode 1 it
/// goes on and passes each frame to the data handler. When the peer has closed, it opens a fresh socket and
/// connects again.
///
/// Any thread may call send, communicate and communicateWithCreateBuff; the send lock lets them take turns,
/// so a reply is read by the thread that asked. One that the peer causes by accepting finds the connection
/// made. The reply to an exchange that failed once its request was out is taken out of the way by the next one; a
/// request that went out in part ends the connection. The connection handler runs with the send lock held, the data
/// handler without a lock. Start and Stop
/// may come from any thread but the stream's own. An exchange that is under way when Stop comes has 300 ms to
/// end; then a peer that stalls or owes a reply is cut off, and the exchange fails. So no peer keeps Stop for
/// 500 ms.
///
/// Locks, outer first: state lock (Start, Stop), send lock, configuration lock. Nothing here raises SIGPIPE.
class QMLocalSocketClientStream : private QMLocalSocketStream {
public:
    using ConnectionHandler = FunctorImpl<void, Typelist<bool, NullType>>;
    using DataHandler = FunctorImpl<void, Typelist<const void* const, Typelist<unsigned int, NullType>>>;

    enum Mode : unsigned {
        kSynchronous = 0,  ///< the thread only connects
        kAsynchronous = 1  ///< the thread receives; communicate refuses
    };

    struct Config {
        const char* name;  ///< path of the peer's socket file, at most 107 characters
        int maxRecvSize;   ///< largest reply that communicate takes, and the room its reply buffer must have
        const ConnectionHandler* connectionHandler;  ///< borrowed for the call, cloned: (connected)
        const DataHandler* dataHandler;              ///< borrowed for the call, cloned: (payload, length)
    };

    using QMLocalSocketStream::hasBegun;
    using QMLocalSocketStream::hasThread;
    using QMLocalSocketStream::lacksSocket;

    QMLocalSocketClientStream();
    /// Stops the stream.
    ~QMLocalSocketClientStream();

    /// Stops the stream if it runs, then starts it; the connection is made later, on the thread.
    /// @return false for a null or too long name, else true.
    bool Start(const Config& config, unsigned newMode);

    /// Ends the thread and closes the connection. Does nothing when stopped.
    void Stop();

    /// Sends one frame. @return the bytes sent; 0 silently when not connected, 0 and a log line on failure.
    int send(const void* data, unsigned length);

    /// Sends one frame and reads one reply frame into `recvBuf`, which has room for at least maxRecvSize
    /// bytes. A longer reply is read and dropped. A negative timeout waits without limit for the reply.
    /// @return the bytes sent, with the reply's length in `recvLen`; 0 on failure (logged).
    int communicate(const void* sendBuf, unsigned sendLen, void* recvBuf, unsigned* recvLen, int timeoutMs);

    /// As communicate, but the reply, of any length, comes in a buffer of its own, which the caller deletes
    /// with delete[] (as std::uint8_t). `recvBuf` is written on success only.
    int communicateWithCreateBuff(const void* sendBuf, unsigned sendLen, void** recvBuf, unsigned* recvLen,
                                  int timeoutMs);

private:
    friend struct QMThreadTraits<QMLocalSocketClientStream>;
    using Settings = QMLocalSocketSettings<ConnectionHandler, DataHandler>;

    /// A request that went out and the length of the reply that waits behind it.
    struct Exchange {
        int sent = 0;  ///< 0: it failed
        std::uint32_t replyLength = 0;
    };

    void stopThread() QM_REQUIRES(stateLock);
    void disconnect();
    QMLocalSocketName socketName();

    bool mayCommunicate(const char* function);
    static void storeLength(unsigned* destination, int length);
    Exchange requestReply(const char* function, const void* data, unsigned length, int timeoutMs);
    int sendStreamData(const void* data, int length);
    std::uint32_t recvStreamLength();
    int recvStreamData(void* buffer, std::uint32_t length);
    void discardRecvData(void* buffer, std::uint32_t length) QM_REQUIRES(sendLock);
    bool discardUnread();
    bool discardOwed(const char* function, int timeoutMs);
    void giveUpConnection();

    // Steps of the thread.
    void MainProc();
    bool makeReady();
    void takeSettings();
    bool openSocket();
    bool connectOnce();
    bool connectSocket();
    void receiveFrame();
    void setConnected(bool isConnected);

    QMSync sendLock;
    Settings config QM_GUARDED_BY(configLock);
    std::uint32_t receiveLimit QM_GUARDED_BY(sendLock) = 0;
    std::unique_ptr<ConnectionHandler> connectionHandler QM_GUARDED_BY(sendLock);

    std::atomic<bool> connected{false};  // written with the send lock held
    std::atomic<int> socketFd{-1};       // the number of the one socket in `sockets`
    // Bytes of a payload that still wait in the socket; of the thread in mode 1, of the exchanges in mode 0.
    std::uint32_t unreadLength = 0;
    bool replyOwed = false;  // the peer has a whole request whose reply nobody has taken; of the exchanges

    // The thread's own.
    QMLocalSocketName workingName;
    std::unique_ptr<DataHandler> dataHandler;
    bool socketUsed = false;  // the socket was connected before and cannot connect again

    QMThread<QMLocalSocketClientStream> thread;
};
