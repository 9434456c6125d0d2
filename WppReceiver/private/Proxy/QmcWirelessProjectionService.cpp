#include "Proxy/QmcWirelessProjectionService.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <iterator>
#include <thread>
#include <utility>

#include "Core/CaughtException.h"
#include "Core/QmcWifiProjectionProtocol.h"
#include "Diagnostics/QMLog.h"
#include "LibWpp/ControlMessages.h"
#include "LibWpp/WppIPCMessageHeader.h"
#include "LibWpp/WppLocalSocketClientStream.h"
#include "LibWpp/WppLocalSocketServerStream.h"

namespace wifi_projection_protocol {

namespace {

constexpr const char* kServerSocketName = "WPP_SOCKET_TO_WPP";
constexpr const char* kClientSocketName = "WPP_SOCKET_FROM_WPP";
constexpr std::uint8_t kHandled = 1;
constexpr std::uint8_t kNotHandled = 0;
constexpr std::chrono::milliseconds kFailedWaitPause{100};

using Protocol = QmcWifiProjectionProtocol;

/// Whether the controller gets no reply to this command, whatever becomes of it.
bool isUnanswered(std::int32_t messageId) {
    return messageId == StartWifiProjectionProtocolSerializer::kMessageId;
}

/// Decodes a command's message from the whole received buffer and passes it to what the command does.
template <class Message, void (*Do)(Protocol&, const Message&)>
void decodeAndDo(Protocol& protocol, const void* data, unsigned size) {
    Message message;
    message.deserialize(data, size);
    Do(protocol, message);
}

void setProjectionPortInfo(Protocol& protocol, const SetProjectionPortInfoSerializer& message) {
    protocol.setProjectionPortInfo(message.ipAddress, message.port);
}

void setWifiInfo(Protocol& protocol, const SetWifiInfoSerializer& message) {
    protocol.setWifiInfo(message.wifiInfo1, message.wifiInfo2, message.wifiInfo3,
                         static_cast<int>(message.wifiInfo4));
}

void rfcommConnected(Protocol& protocol, const RfcommConnectedSerializer& message) {
    protocol.rfcommConnected(message.btDeviceId);
}

void rfcommDisconnected(Protocol& protocol, const RfcommDisconnectedSerializer& message) {
    protocol.rfcommDisconnected(message.btDeviceId);
}

void startProjection(Protocol& protocol, const StartProjectionSerializer& message) {
    protocol.startProjection(message.btDeviceId, message.reason);
}

void stopProjectionStart(Protocol& protocol, const StopProjectionStartSerializer&) {
    protocol.stopProjectionStart();
}

void replyCanStartProjection(Protocol& protocol, const ReplyCanStartProjectionSerializer& message) {
    protocol.replyCanStartProjection(message.btDeviceId, static_cast<int>(message.canStart));
}

void addDeviceInfo(Protocol& protocol, const AddDeviceInfoSerializer& message) {
    protocol.addDeviceInfo(message.btDeviceId, message.deviceInfo1, message.deviceInfo2);
}

void deleteDeviceInfo(Protocol& protocol, const DeleteDeviceInfoSerializer& message) {
    protocol.deleteDeviceInfo(message.btDeviceId);
}

}  // namespace

/// A controller command: its id, its handler's name as the log shows it, how it is handled and, for a command
/// that needs the projection protocol object, what it does with it.
struct QmcWirelessProjectionService::Command {
    std::int32_t id;
    const char* name;
    bool (QmcWirelessProjectionService::*handle)(const Command& command, const void* data, unsigned size);
    void (*operation)(Protocol& protocol, const void* data, unsigned size);
};

const QmcWirelessProjectionService::Command QmcWirelessProjectionService::kCommands[] = {
    {kTerminateMessageId, "receiveTerminate", &QmcWirelessProjectionService::receiveTerminate, nullptr},
    {StartWifiProjectionProtocolSerializer::kMessageId, "receiveStartWifiProjectionProtocol",
     &QmcWirelessProjectionService::receiveStartWifiProjectionProtocol, nullptr},
    {kStopWifiProjectionProtocolMessageId, "receiveStopWifiProjectionProtocol",
     &QmcWirelessProjectionService::receiveStopWifiProjectionProtocol, nullptr},
    onProtocol<SetProjectionPortInfoSerializer, setProjectionPortInfo>("receiveSetProjectionPortInfo"),
    onProtocol<SetWifiInfoSerializer, setWifiInfo>("receiveSetWifiInfo"),
    onProtocol<RfcommConnectedSerializer, rfcommConnected>("receiveRfcommConnected"),
    onProtocol<RfcommDisconnectedSerializer, rfcommDisconnected>("receiveRfcommDisconnected"),
    onProtocol<StartProjectionSerializer, startProjection>("receiveStartProjection"),
    onProtocol<StopProjectionStartSerializer, stopProjectionStart>("receiveStopProjectionStart"),
    onProtocol<ReplyCanStartProjectionSerializer, replyCanStartProjection>("receiveReplyCanStartProjection"),
    onProtocol<AddDeviceInfoSerializer, addDeviceInfo>("receiveAddDeviceInfo"),
    onProtocol<DeleteDeviceInfoSerializer, deleteDeviceInfo>("receiveDeleteDeviceInfo"),
};

template <class Message, void (*Do)(Protocol&, const Message&)>
constexpr QmcWirelessProjectionService::Command QmcWirelessProjectionService::onProtocol(const char* name) {
    return {Message::kMessageId, name, &QmcWirelessProjectionService::receiveWhenStarted,
            &decodeAndDo<Message, Do>};
}

QmcWirelessProjectionService::QmcWirelessProjectionService()
    : serverStream(std::make_unique<WppLocalSocketServerStream>()),
      clientStream(std::make_unique<WppLocalSocketClientStream>()) {}

QmcWirelessProjectionService::~QmcWirelessProjectionService() {
    closeServer();
    closeClient();
    protocol.reset();
    clientStream.reset();
    serverStream.reset();
}

bool QmcWirelessProjectionService::openServer() {
    return serverStream->open(kServerSocketName,
                              std::bind(&QmcWirelessProjectionService::onReceivedServerSocket, this,
                                        std::placeholders::_1, std::placeholders::_2));
}

bool QmcWirelessProjectionService::openClient() {
    return clientStream->open(kClientSocketName);
}

void QmcWirelessProjectionService::closeServer() {
    serverStream->close();
}

void QmcWirelessProjectionService::closeClient() {
    clientStream->close();
}

void QmcWirelessProjectionService::waitExit() {
    // Out of descriptors the wait fails at once, and for good when there was none for the event itself; the process
    // lives on and looks again.
    while (!exitOrdered && QMEvent::WaitEvent(&exitEvent, QM_WAIT_INFINITE) != QMEvent::kSignalled) {
        std::this_thread::sleep_for(kFailedWaitPause);
    }
}

void QmcWirelessProjectionService::onReceivedServerSocket(const void* data, unsigned size) {
    if (size == 0 || data == nullptr) {
        return;
    }
    std::int32_t messageId = WppIPCMessageHeader::kUnknownMessageId;
    bool processed;
    try {
        messageId = WppIPCMessageHeader::idOf(data, size);
        processed = dispatch(messageId, data, size);
    } catch (...) {
        // The stream's thread would end with the exception, and no further command be heard.
        QM_LOG_ERROR("catch exception. messageId[%d], what [%s]\n", messageId, caughtExceptionText());
        processed = isUnanswered(messageId) || reply(kNotHandled);
    }
    if (!processed) {
        QM_LOG_ERROR("*** message processing failed! *** messageId[%d] \n", messageId);
    }
}

bool QmcWirelessProjectionService::dispatch(std::int32_t messageId, const void* data, unsigned size) {
    const Command* command =
        std::find_if(std::begin(kCommands), std::end(kCommands),
                     [messageId](const Command& candidate) { return candidate.id == messageId; });
    if (command != std::end(kCommands)) {
        return (this->*command->handle)(*command, data, size);
    }
    qm_Log(QM_SOURCE_PATH, "onReceivedServerSocket", __LINE__, QM_LOG_LEVEL_ERROR,
           "*** unknown message! *** messageId[%d] \n", messageId);
    return reply(kNotHandled);
}

bool QmcWirelessProjectionService::receiveTerminate(const Command&, const void*, unsigned) {
    protocol.reset();
    exitOrdered = true;
    exitEvent.SetEvent();
    return reply(kHandled);
}

bool QmcWirelessProjectionService::receiveStartWifiProjectionProtocol(const Command&, const void* data,
                                                                      unsigned size) {
    if (protocol == nullptr) {
        StartWifiProjectionProtocolSerializer message;
        message.deserialize(data, size);
        protocol = std::make_unique<QmcWifiProjectionProtocol>(
            this, message.channelType, std::move(message.channelList), message.headUnitInfo,
            message.sslCertificate, message.sslPrivateKey, message.sslCaCertificate);
    }
    return true;
}

bool QmcWirelessProjectionService::receiveStopWifiProjectionProtocol(const Command&, const void*, unsigned) {
    protocol.reset();
    return reply(kHandled);
}

bool QmcWirelessProjectionService::receiveWhenStarted(const Command& command, const void* data,
                                                      unsigned size) {
    if (protocol == nullptr) {
        qm_Log(QM_SOURCE_PATH, command.name, __LINE__, QM_LOG_LEVEL_ERROR, "WPP has not started.\n");
        return reply(kNotHandled);
    }
    command.operation(*protocol, data, size);
    return reply(kHandled);
}

bool QmcWirelessProjectionService::reply(std::uint8_t value) {
    return serverStream->send(&value, sizeof(value)) > 0;
}

void QmcWirelessProjectionService::OnReadyForProjection(std::uint8_t btDeviceId,
                                                        const std::string& phoneInfo1,
                                                        const std::string& phoneInfo2,
                                                        const std::string& phoneInfo3) {
    notify(OnReadyForProjectionSerializer(btDeviceId, phoneInfo1, phoneInfo2, phoneInfo3));
}

void QmcWirelessProjectionService::OnWifiVersionResponseFailure(std::uint8_t btDeviceId,
                                                                const std::string& phoneInfo1,
                                                                const std::string& phoneInfo2,
                                                                const std::string& phoneInfo3,
                                                                const std::uint32_t& value) {
    notify(OnWifiVersionResponseFailureSerializer(btDeviceId, phoneInfo1, phoneInfo2, phoneInfo3, value));
}

void QmcWirelessProjectionService::OnStartProjectionResponse(std::uint8_t btDeviceId, std::uint32_t result) {
    notify(OnStartProjectionResponseSerializer(btDeviceId, result));
}

void QmcWirelessProjectionService::CanStartProjection(std::uint8_t btDeviceId) {
    notify(CanStartProjectionSerializer(btDeviceId));
}

void QmcWirelessProjectionService::OnWifiConnectStatus(std::uint8_t btDeviceId, const std::uint32_t& status,
                                                       const std::string& text) {
    notify(OnWifiConnectStatusSerializer(btDeviceId, status, text));
}

void QmcWirelessProjectionService::OnClientConnected(std::uint8_t btDeviceId) {
    notify(OnClientConnectedSerializer(btDeviceId));
}

void QmcWirelessProjectionService::OnClientLost(std::uint8_t btDeviceId) {
    notify(OnClientLostSerializer(btDeviceId));
}

bool QmcWirelessProjectionService::ReqGetSecureSslKey(std::string& sslCertificate, std::string& sslPrivateKey,
                                                      std::string& sslCaCertificate) {
    ReqGetSecureSslKeySerializer request;
    ResGetSecureSslKeySerializer response;
    if (!clientStream->communicate(request, response)) {
        return false;
    }
    sslCertificate = std::move(response.sslCertificate);
    sslPrivateKey = std::move(response.sslPrivateKey);
    sslCaCertificate = std::move(response.sslCaCertificate);
    return true;
}

void QmcWirelessProjectionService::notify(WppIPCMessageCore&& message) {
    // The controller's acknowledgement carries nothing, and a failure is logged by the stream.
    clientStream->communicate(message);
}

}  // namespace wifi_projection_protocol
