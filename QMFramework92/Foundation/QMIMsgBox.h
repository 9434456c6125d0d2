#pragma once

#include <cstdint>

#include "Foundation/QMIMsgHandler.h"
#include "Pattern/QMUncopyable.h"

/// One message as it is pushed.
struct QMMsgRecord {
    std::uint32_t sid;       ///< identifier of the sending unit; it selects the handler
    std::uint32_t msgId;     ///< handed to the handler
    std::uint32_t priority;  ///< carried along; messages are delivered in the order of their arrival
    const void* buffer;      ///< `size` bytes, borrowed for the push and copied; null for none
    std::uint32_t size;      ///< 1 to 256 with a buffer, without meaning when there is none
    std::uint8_t flag;       ///< carried along, not interpreted
};

/// Two bounded queues, of messages and of events, and the loop that hands their entries to handlers.
/// QMLMsgBox says how. No operation throws.
class QMIMsgBox : private QMUncopyable {
public:
    /// What PushMsg and SetEvent return.
    enum PushResult : int {
        kQueued = 0,
        kWakeFailed = 1,    ///< queued, but the loop's wake signal was not written in the ordinary way
        kBadParameter = 2,  ///< nothing is queued
        kQueueFull = 3      ///< no room, or no memory, for another entry; nothing is queued
    };

    virtual ~QMIMsgBox() = default;

    /// The first step of the thread that is about to run the loop. @return 0 when the box can be run.
    virtual int Initialize() = 0;

    /// Orders the loop to end the next time that it finds both queues empty.
    virtual void RequestStop() = 0;

    /// Waits until a loop has begun. @return 0 when it has, non-zero on timeout or error.
    virtual int WaitReady(std::uint32_t timeoutMs) = 0;

    /// @return the handler registered for `id`, null when there is none.
    virtual QMIMsgHandler* FindHandler(std::uint32_t id) = 0;

    /// Forgets the handler registered for `id`. @return whether there was one.
    virtual bool RemoveHandler(std::uint32_t id) = 0;

    /// @return whether `id` is registered with this box.
    virtual bool IsOwnUnit(std::uint32_t id) = 0;

    /// Queues a copy of a message. @return a PushResult.
    virtual int PushMsg(const QMMsgRecord& record) = 0;

    /// Queues an event; `replace` first removes every queued event of the same id. @return a PushResult.
    virtual int SetEvent(int eventId, unsigned param, bool replace) = 0;

    /// Delivers on the calling thread until it is stopped. @return 0.
    virtual int Run(std::uint32_t ownUnitId) = 0;
};
