#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>

#include "Communication/QMOpenSockets.h"
#include "Foundation/QMEvent.h"
#include "Foundation/QMSync.h"
#include "Pattern/QMUncopyable.h"
#include "inc/QMThreadSafety.h"

/// The name of a socket as a stream keeps it, at most 107 characters and a terminator. A copy allocates
/// nothing, so that a frame does not pay for the name that its failure would show.
struct QMLocalSocketName {
    char text[108] = {};
};

/// A stream's configuration as it keeps it: the name copied, the handlers cloned.
template <class ConnectionHandler, class DataHandler>
struct QMLocalSocketSettings {
    QMLocalSocketName name;
    int maxRecvSize = 0;
    int maxClients = 0;
    std::unique_ptr<ConnectionHandler> connectionHandler;
    std::unique_ptr<DataHandler> dataHandler;

    /// A copy with handler clones of its own.
    QMLocalSocketSettings clone() const {
        return {name, maxRecvSize, maxClients, cloneOf(connectionHandler.get()), cloneOf(dataHandler.get())};
    }

    /// Handlers may be left out; a null stays null.
    template <class Handler>
    static std::unique_ptr<Handler> cloneOf(const Handler* handler) {
        return std::unique_ptr<Handler>(handler == nullptr ? nullptr : handler->Clone());
    }
};

/// What the server and the client stream share: the life of the stream's thread and its buffers.
///
/// Start and Stop run under the state lock, Stop for as long as the thread needs to end. The thread never
/// takes that lock: it reads `state` as an atomic, and its copy of the configuration is made under the
/// configuration lock. So Stop can always wait for it.
class QMLocalSocketStream : private QMUncopyable {
public:
    /// @return whether the last Start got its thread, be it running or ended. To be asked by who started it.
    bool hasThread() const { return threadBegun; }

    /// @return whether the thread of the last Start has got over its beginning: it runs, or has ended.
    bool hasBegun() const { return state != kStarting || hasEnded; }

    /// @return whether it has ended for want of a socket. To be asked once it has begun.
    bool lacksSocket() const { return noSocket; }

protected:
    enum State : int { kStopped = 0, kStarting = 1, kRunning = 2 };

    /// How long a Stop lets a frame or an exchange that is under way come to its end before it cuts off the
    /// peer. Well above the 100 ms after which an idle thread sees the Stop, and well below the 500 ms within
    /// which Stop returns whatever a peer does.
    static constexpr std::chrono::milliseconds kStopGrace{300};

    QMLocalSocketStream() = default;
    ~QMLocalSocketStream() = default;

    /// Marks the end of the stream's thread, however it leaves its procedure.
    class EndOfThread : private QMUncopyable {
    public:
        explicit EndOfThread(QMLocalSocketStream& endingStream) : stream(endingStream) {}
        ~EndOfThread() { stream.markEnded(); }

    private:
        QMLocalSocketStream& stream;
    };

    void prepareStart();
    /// From starting to running; not when a Stop came first.
    void enterRunning();
    /// The thread has ended, or was never begun.
    void markEnded();
    /// Orders the thread to end, frees it from a peer that keeps it blocked, and returns when it has ended. A
    /// handler that runs is waited for, and what it sends still goes out. The caller joins the thread.
    void requestStop();

    /// @return null, logged with an assertion report, when the bytes are not to be had; frames longer than a
    ///         32-bit number can say count as that. The bytes are not initialised.
    std::unique_ptr<std::uint8_t[]> createBuffer(std::uint64_t size, const QMLocalSocketName& name);

    /// 0 stopped, 1 starting, 2 running. Start and Stop set it under the state lock; the thread does not take
    /// that lock.
    std::atomic<int> state{kStopped};
    std::atomic<unsigned> mode{0};
    std::atomic<bool> threadBegun{false};  // set by Start, under the state lock
    std::atomic<bool> noSocket{false};     // set by the thread

    QMSync stateLock;
    QMSync configLock;  // a leaf: guards the configuration between Start and the thread
    QMOpenSockets sockets;

private:
    bool hasEndedWithin(std::chrono::milliseconds limit);

    QMEvent ended;
    // Out of descriptors the event cannot be emptied, so a signal of an earlier thread may be left in it; this
    // tells which thread has ended.
    std::atomic<bool> hasEnded{true};
};
