#pragma once

#include <cstdint>

#include "Foundation/QMIMsgBox.h"
#include "Foundation/QMSync.h"
#include "Pattern/QMUncopyable.h"
#include "inc/QMThreadSafety.h"

/// What QMUnitFrame's sending operations return beside 0 and, for an event, the codes of the box.
enum QMUnitError : int {
    en_ERROR_NONE = 0,
    en_ERROR_NO_MSGBOX = 4,  ///< registered, but with no box
    en_ERROR_PUSH_MSG = 5,   ///< the box refused the message, or reported its wake signal
    en_ERROR_REGIST = 6      ///< not registered
};

/// A unit: what sends messages and events to itself by way of a message box, to be handled on its thread.
///
/// Not registered -> (Register) registered -> (Unregister) not registered, and so on. It is a base or a
/// member of what does the handling. The box finds the handler by the SID of a message and by the id of an
/// event; registering that handler with the box is a step of its own (QMLMsgBox::RegisterHandler), which the
/// frame does not do.
///
/// Any thread may call any operation. The unit lock is held while the box queues, before the box's own
/// locks; so after Unregister no thread is in the box by way of this unit, and the box may go.
///
///     unit.Register(&worker.GetMsgBox(), kMySid, &handler);
///     unit.SendMsgSelf(kMsgHello, 0, "hello", 5);
///     unit.SendEvtSelf(kEvtTick, 1);
class QMUnitFrame : private QMUncopyable {
public:
    /// The SID of a unit that is not registered.
    static constexpr std::int32_t kNotRegistered = -1;

    /// `ownUnitId` is shown in the log.
    explicit QMUnitFrame(std::uint32_t ownUnitId) : unitId(ownUnitId) {}

    /// Registers the unit under `newSid`. The box (null for none) and the dispatcher are borrowed until
    /// Unregister; the dispatcher, the unit's handler, is only shown in the log.
    /// @return false, with nothing changed, for a SID of -1 and for a unit that is registered.
    bool Register(QMIMsgBox* newBox, std::int32_t newSid, QMIMsgHandler* newDispatcher);

    /// Does nothing when the unit is not registered.
    void Unregister();

    /// Queues a message under the unit's SID; a buffer of 1 to 256 bytes is copied, null sends none.
    /// @return 0, en_ERROR_REGIST, en_ERROR_NO_MSGBOX or en_ERROR_PUSH_MSG.
    ///
    /// Each failure is logged between two lines of 42 "#", as "[QMUnitFrame] SendMsgSelf - " and the name of
    /// its code; a failed push with the unit id, the low 32 bits of the addresses and all arguments. The
    /// first two are followed by the assertion banner and the stack.
    int SendMsgSelf(unsigned msgId, unsigned priority, const void* buffer, unsigned size);

    /// Queues an event; events of the same id that are queued stay.
    /// @return 0, en_ERROR_REGIST, en_ERROR_NO_MSGBOX or the box's non-zero result. Logs as SendMsgSelf does,
    ///         the box's result as "en_ERROR_PUSH_EVT".
    int SendEvtSelf(unsigned eventId, unsigned param);

private:
    int refusalOf(const char* operation) const QM_REQUIRES(unitLock);

    // Fixed after construction.
    const std::uint32_t unitId;

    QMSync unitLock;
    std::int32_t sid QM_GUARDED_BY(unitLock) = kNotRegistered;
    QMIMsgBox* box QM_GUARDED_BY(unitLock) = nullptr;
    QMIMsgHandler* dispatcher QM_GUARDED_BY(unitLock) = nullptr;
};
