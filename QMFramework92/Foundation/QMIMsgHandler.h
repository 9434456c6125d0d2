#pragma once

#include <cstdint>

/// What a unit does with the messages and events that its message box hands it.
///
/// Every call comes on the thread that runs the box, one at a time, with the box's handler lock held and its
/// queue lock free: a handler may push, set events, register and remove handlers of its own box, also itself.
/// After its own removal the box does not touch it any more, not even when the call it is in returns.
/// An exception that leaves a call is logged by the box, which goes on with the next entry.
class QMIMsgHandler {
public:
    virtual ~QMIMsgHandler() = default;

    /// A message sent under the identifier that the handler is registered for. `buffer` holds `size` bytes
    /// (1 to 256) and belongs to the box, which frees it after the call; a message without a buffer brings
    /// null and 0.
    virtual void OnMessage(std::uint32_t msgId, const void* buffer, std::uint32_t size) = 0;

    /// An event whose id the handler is registered for.
    virtual void OnEvent(std::uint32_t eventId, std::uint32_t param) = 0;
};
