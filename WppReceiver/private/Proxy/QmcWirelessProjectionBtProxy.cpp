#include "Proxy/QmcWirelessProjectionBtProxy.h"

#include <functional>

#include "Core/CaughtException.h"
#include "Diagnostics/QMLog.h"
#include "LibWpp/SppMessages.h"
#include "LibWpp/SppReceivedData.h"
#include "LibWpp/WppIPCMessageHeader.h"
#include "LibWpp/WppLocalSocketClientStream.h"
#include "LibWpp/WppLocalSocketServerStream.h"

namespace wifi_projection_protocol {

namespace {

constexpr const char* kServerSocketName = "WPP_SOCKET_FROM_BT";
constexpr const char* kClientSocketName = "WPP_SOCKET_TO_BT";
constexpr std::uint8_t kHandled = 1;
constexpr std::uint8_t kNotHandled = 0;

}  // namespace

QmcWirelessProjectionBtProxy::QmcWirelessProjectionBtProxy()
    : serverStream(std::make_unique<WppLocalSocketServerStream>()),
      clientStream(std::make_unique<WppLocalSocketClientStream>()) {}

QmcWirelessProjectionBtProxy::~QmcWirelessProjectionBtProxy() {
    closeServer();
    closeClient();
    clientStream.reset();
    serverStream.reset();
}

bool QmcWirelessProjectionBtProxy::openServer() {
    return serverStream->open(kServerSocketName,
                              std::bind(&QmcWirelessProjectionBtProxy::onReceivedServerSocket, this,
                                        std::placeholders::_1, std::placeholders::_2));
}

bool QmcWirelessProjectionBtProxy::openClient() {
    return clientStream->open(kClientSocketName);
}

void QmcWirelessProjectionBtProxy::closeServer() {
    serverStream->close();
}

void QmcWirelessProjectionBtProxy::closeClient() {
    clientStream->close();
}

int QmcWirelessProjectionBtProxy::sendSppData(std::uint8_t btDeviceId, const std::string& uuid,
                                              const std::uint8_t* data, unsigned length) {
    SendSppDataSerializer message(btDeviceId, uuid, data, length);
    return clientStream->communicate(message);
}

int QmcWirelessProjectionBtProxy::disconnectSpp(std::uint8_t btDeviceId, const std::string& uuid) {
    DisconnectSppSerializer message(btDeviceId, uuid);
    return clientStream->communicate(message);
}

void QmcWirelessProjectionBtProxy::onReceivedServerSocket(const void* data, unsigned length) {
    if (data == nullptr || length == 0) {
        return;
    }
    std::int32_t messageId = WppIPCMessageHeader::kUnknownMessageId;
    try {
        messageId = WppIPCMessageHeader::idOf(data, length);
        if (messageId == RecvSppDataSerializer::kMessageId) {
            publishSppData(data, length);
        } else {
            QM_LOG_ERROR("*** unknown message! *** messageId[%d] \n", messageId);
        }
    } catch (...) {
        // The stream's thread would end with the exception, and no further byte of any phone come in.
        QM_LOG_ERROR("catch exception. messageId[%d], what [%s]\n", messageId, caughtExceptionText());
    }
    if (!reply(messageId)) {
        QM_LOG_ERROR("*** message processing failed! *** messageId[%d] \n", messageId);
    }
}

void QmcWirelessProjectionBtProxy::publishSppData(const void* data, unsigned length) {
    RecvSppDataSerializer message;
    message.deserialize(data, length);
    const SppReceivedData record{message.btDeviceId, message.uuid, message.data, message.dataLength};
    NotifyObservers(kSppDataReceived, &record, kSppReceivedDataSize, kNotifyAll);
}

bool QmcWirelessProjectionBtProxy::reply(std::int32_t messageId) {
    // Received data is acknowledged whatever its observers made of it.
    const std::uint8_t value = messageId == RecvSppDataSerializer::kMessageId ? kHandled : kNotHandled;
    return serverStream->send(&value, sizeof(value)) > 0;
}

}  // namespace wifi_projection_protocol
