#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Communication/QMLocalSocketStream.h"
#include "Foundation/QMSync.h"
#include "Foundation/QMThread.h"
#include "Pattern/QMFunctor.h"
#include "inc/QMThreadSafety.h"

/// Listens on a local socket, receives frames from every peer on its own thread and hands each to a handler.
///
/// A frame is a 32-bit length in host byte order and that many payload bytes.
///
/// Life: stopped -> (Start) starting -> the thread has its socket -> running -> (Stop) stopped, and so on.
/// The thread "ServerStream_s92" accepts, reads and calls both handlers: the connection handler with the
/// client lock held, the data handler with no lock held, so a data handler may send. A name that cannot be
/// bound leaves a running thread that accepts nothing. More peers than `maxClients` are served all the same.
///
/// Any thread may call send and broadcast; Start and Stop may come from any thread but the stream's own.
/// A peer whose frame cannot be read to its end is dropped, since nothing behind it could be understood; waits that fail
/// are logged and take 100 ms.
///
/// Stop waits for a running handler, whose sends still go out. A frame that is under way has 300 ms to arrive;
/// then a peer that stalls in the middle of one, or does not read what it is sent, is cut off. So no peer
/// keeps Stop for 500 ms.
///
/// Locks, outer first: state lock (Start, Stop), client lock (sending and the bookkeeping of connections),
/// configuration lock. Peers may vanish at any time; nothing here raises SIGPIPE.
class QMLocalSocketServerStream : private QMLocalSocketStream {
public:
    using ConnectionHandler = FunctorImpl<void, Typelist<const int, Typelist<bool, NullType>>>;
    using DataHandler =
        FunctorImpl<void, Typelist<const int, Typelist<const void* const, Typelist<unsigned int, NullType>>>>;

    enum Mode : unsigned {
        kReceive = 0,    ///< read frames and call the data handler
        kAcceptOnly = 1  ///< accept connections, never read
    };

    struct Config {
        const char* name;  ///< path of the socket file, at most 107 characters; a file in its place is kept
        int maxRecvSize;   ///< stored; frames of any length are received
        int maxClients;    ///< stored; the number of peers is not limited
        /// Borrowed for the call, cloned: (descriptor, connected).
        const ConnectionHandler* connectionHandler;
        /// Borrowed for the call, cloned: (descriptor, payload, length).
        const DataHandler* dataHandler;
    };

    using QMLocalSocketStream::hasBegun;
    using QMLocalSocketStream::hasThread;
    using QMLocalSocketStream::lacksSocket;

    QMLocalSocketServerStream();
    /// Stops the stream.
    ~QMLocalSocketServerStream();

    /// Stops the stream if it runs, then starts it.
    /// @return false for a null or too long name; true otherwise, also when the thread cannot be started or
    ///         the socket cannot be bound (both logged).
    bool Start(const Config& config, unsigned newMode);

    /// Ends the thread, which closes every socket. The socket file stays. Does nothing when stopped.
    void Stop();

    /// Sends one frame. @return the bytes sent (length + 4 when whole); 0 on failure, logged except for a
    ///         descriptor that is not connected.
    int send(int clientFd, const void* data, unsigned length);

    /// Sends one frame to every connected peer, in ascending order of descriptors.
    void broadcast(const void* data, unsigned length);

private:
    friend struct QMThreadTraits<QMLocalSocketServerStream>;
    using Settings = QMLocalSocketSettings<ConnectionHandler, DataHandler>;

    /// What one pass of the thread waits for, and what became ready; kept from pass to pass, so that a pass takes
    /// memory only when there are more peers than ever before.
    struct Pass {
        std::vector<int> watched;
        std::vector<int> ready;
    };

    void stopThread() QM_REQUIRES(stateLock);
    QMLocalSocketName socketName();

    // Steps of the thread.
    void MainProc();
    bool takeSettings();
    int prepareSocket(const char* name);
    void waitForPeers(int listenFd, Pass& pass);
    void servePass(int listenFd, Pass& pass);
    void acceptSocket(int listenFd);
    int readSocket(int fd);
    void noteWait(bool succeeded);
    bool isReadable(int descriptor);
    void recoverFrom(int fd, bool isTorn);
    void dropClient(int fd);

    QMSync clientLock;
    Settings config QM_GUARDED_BY(configLock);
    Settings working;        // the thread's own copy
    bool waitsFail = false;  // the thread's own: its last wait failed
    QMThread<QMLocalSocketServerStream> thread;
};
