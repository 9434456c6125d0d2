#include "Core/QmcWifiProjectionProtocolCallbackImpl.h"

#include "Core/QmcWifiProjectionProtocol.h"
#include "Core/QmcWifiProjectionProtocolDevice.h"
#include "Diagnostics/QMLog.h"
#include "Proxy/IWifiProjectionProtocolCallbacks.h"

namespace wifi_projection_protocol {

namespace {
constexpr std::uint32_t kAnswerLimitMs = 1000;
}

QmcWifiProjectionProtocolCallbackImpl::QmcWifiProjectionProtocolCallbackImpl(
    QmcWifiProjectionProtocol* protocolOwner)
    : owner(protocolOwner) {}

int QmcWifiProjectionProtocolCallbackImpl::canStartProjection(const ClientInfo& client) {
    canStartResult = kNoAnswer;
    const std::uint8_t btDeviceId = owner->deviceRecords().idOf(client.clientId);
    if (btDeviceId == kNoDevice) {
        return kNoAnswer;
    }
    QMEvent::Drain(&replyEvent);
    owner->controller().CanStartProjection(btDeviceId);
    if (QMEvent::WaitEvent(&replyEvent, kAnswerLimitMs) != QMEvent::kSignalled) {
        // The line names the question that the controller left open.
        qm_Log(QM_SOURCE_PATH, "CanStartProjection", __LINE__, QM_LOG_LEVEL_ERROR, "timeout.\n");
    }
    return canStartResult;
}

void QmcWifiProjectionProtocolCallbackImpl::replyCanStartProjection(std::uint8_t, int result) {
    canStartResult = result;
    replyEvent.SetEvent();
}

void QmcWifiProjectionProtocolCallbackImpl::readyForProjection(const ClientInfo& client) {
    const std::uint8_t btDeviceId = updateAndFind(client);
    if (btDeviceId == kNoDevice) {
        return;
    }
    owner->controller().OnReadyForProjection(btDeviceId, client.clientId, client.phoneName,
                                             client.phoneInfo.description());
    owner->controller().OnClientConnected(btDeviceId);
}

void QmcWifiProjectionProtocolCallbackImpl::wifiConnectStatus(const std::string& clientId,
                                                              const std::uint32_t& status,
                                                              const std::string& text) {
    const std::uint8_t btDeviceId = owner->deviceRecords().idOf(clientId);
    if (btDeviceId != kNoDevice) {
        owner->controller().OnWifiConnectStatus(btDeviceId, status, text);
    }
}

void QmcWifiProjectionProtocolCallbackImpl::wifiVersionResponseFailure(const ClientInfo& client,
                                                                       const std::uint32_t& value) {
    const std::uint8_t btDeviceId = updateAndFind(client);
    if (btDeviceId != kNoDevice) {
        owner->controller().OnWifiVersionResponseFailure(btDeviceId, client.clientId, client.phoneName,
                                                         client.phoneInfo.description(), value);
    }
}

void QmcWifiProjectionProtocolCallbackImpl::clientLost(const ClientInfo& client) {
    const std::uint8_t btDeviceId = owner->deviceRecords().idOf(client.clientId);
    if (btDeviceId != kNoDevice) {
        owner->controller().OnClientLost(btDeviceId);
    }
}

bool QmcWifiProjectionProtocolCallbackImpl::isClientKnown(const std::string& clientId) {
    return owner->deviceRecords().idOf(clientId) != kNoDevice;
}

std::uint8_t QmcWifiProjectionProtocolCallbackImpl::updateAndFind(const ClientInfo& client) {
    owner->deviceRecords().updateFrom(client);
    return owner->deviceRecords().idOf(client.clientId);
}

}  // namespace wifi_projection_protocol
