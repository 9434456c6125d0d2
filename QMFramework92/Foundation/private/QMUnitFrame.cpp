#include "Foundation/QMUnitFrame.h"

#include "Diagnostics/QMAssert.h"
#include "Diagnostics/QMLog.h"
#include "Foundation/private/QMLowAddress.h"

namespace {

/// Stands above and below each banner.
constexpr const char* kRule = "##########################################";

}  // namespace

bool QMUnitFrame::Register(QMIMsgBox* newBox, std::int32_t newSid, QMIMsgHandler* newDispatcher) {
    QMSyncGuard guard(unitLock);
    if (newSid == kNotRegistered || sid != kNotRegistered) {
        return false;
    }
    sid = newSid;
    box = newBox;
    dispatcher = newDispatcher;
    return true;
}

void QMUnitFrame::Unregister() {
    QMSyncGuard guard(unitLock);
    sid = kNotRegistered;
    box = nullptr;
    dispatcher = nullptr;
}

int QMUnitFrame::SendMsgSelf(unsigned msgId, unsigned priority, const void* buffer, unsigned size) {
    QMSyncGuard guard(unitLock);
    if (const int refusal = refusalOf("SendMsgSelf"); refusal != en_ERROR_NONE) {
        return refusal;
    }
    const QMMsgRecord record{static_cast<std::uint32_t>(sid), msgId, priority, buffer, size, 0};
    if (box->PushMsg(record) == QMIMsgBox::kQueued) {
        return en_ERROR_NONE;
    }
    QM_LOG_ERROR(
        "\n%s\n[QMUnitFrame] SendMsgSelf - en_ERROR_PUSH_MSG unit id[%d] pIMsgBox_[0x%08x] "
        "pIDispatcher_[0x%08x] SID[%d] Priority[%d] MsgID[%d] Buff[0x%08x] BuffSize[%d]\n%s\n",
        kRule, static_cast<int>(unitId), qm_LowAddress(box), qm_LowAddress(dispatcher), sid,
        static_cast<int>(priority), static_cast<int>(msgId), qm_LowAddress(buffer), static_cast<int>(size),
        kRule);
    return en_ERROR_PUSH_MSG;
}

int QMUnitFrame::SendEvtSelf(unsigned eventId, unsigned param) {
    QMSyncGuard guard(unitLock);
    if (const int refusal = refusalOf("SendEvtSelf"); refusal != en_ERROR_NONE) {
        return refusal;
    }
    const int result = box->SetEvent(static_cast<int>(eventId), param, false);
    if (result != QMIMsgBox::kQueued) {
        QM_LOG_ERROR("\n%s\n[QMUnitFrame] SendEvtSelf - en_ERROR_PUSH_EVT\n%s\n", kRule, kRule);
    }
    return result;
}

/// Why the unit cannot send, reported in the name of the operation that wants to.
int QMUnitFrame::refusalOf(const char* operation) const {
    if (sid == kNotRegistered) {
        qm_Log(QM_SOURCE_PATH, operation, __LINE__, QM_LOG_LEVEL_ERROR,
               "\n%s\n[QMUnitFrame] %s - en_ERROR_REGIST\n%s\n", kRule, operation, kRule);
        QM_ASSERT_FAILED();
        return en_ERROR_REGIST;
    }
    if (box == nullptr) {
        qm_Log(QM_SOURCE_PATH, operation, __LINE__, QM_LOG_LEVEL_ERROR,
               "\n%s\n[QMUnitFrame] %s - en_ERROR_NO_MSGBOX\n%s\n", kRule, operation, kRule);
        QM_ASSERT_FAILED();
        return en_ERROR_NO_MSGBOX;
    }
    return en_ERROR_NONE;
}
