#include "LibWpp/ControlMessages.h"

#include <utility>

#include "LibWpp/private/MessageFields.h"

namespace wifi_projection_protocol {

StartWifiProjectionProtocolSerializer::StartWifiProjectionProtocolSerializer(
    wifi_discovery::WifiChannelType channelTypeValue, std::vector<unsigned int> channelListValue,
    common::HeadUnitInfo headUnitInfoValue, std::string sslCertificateValue, std::string sslPrivateKeyValue,
    std::string sslCaCertificateValue)
    : WppIPCMessageCore(kMessageId),
      channelType(channelTypeValue),
      channelList(std::move(channelListValue)),
      headUnitInfo(std::move(headUnitInfoValue)),
      sslCertificate(std::move(sslCertificateValue)),
      sslPrivateKey(std::move(sslPrivateKeyValue)),
      sslCaCertificate(std::move(sslCaCertificateValue)) {}

StartWifiProjectionProtocolSerializer::~StartWifiProjectionProtocolSerializer() = default;

void StartWifiProjectionProtocolSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void StartWifiProjectionProtocolSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

SetProjectionPortInfoSerializer::SetProjectionPortInfoSerializer(std::string ipAddressValue,
                                                                 std::uint16_t portValue)
    : WppIPCMessageCore(kMessageId), ipAddress(std::move(ipAddressValue)), port(portValue) {}

SetProjectionPortInfoSerializer::~SetProjectionPortInfoSerializer() = default;

void SetProjectionPortInfoSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void SetProjectionPortInfoSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

SetWifiInfoSerializer::SetWifiInfoSerializer(std::string wifiInfo1Value, std::string wifiInfo2Value,
                                             std::string wifiInfo3Value, std::uint32_t wifiInfo4Value)
    : WppIPCMessageCore(kMessageId),
      wifiInfo1(std::move(wifiInfo1Value)),
      wifiInfo2(std::move(wifiInfo2Value)),
      wifiInfo3(std::move(wifiInfo3Value)),
      wifiInfo4(wifiInfo4Value) {}

SetWifiInfoSerializer::~SetWifiInfoSerializer() = default;

void SetWifiInfoSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void SetWifiInfoSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

RfcommConnectedSerializer::RfcommConnectedSerializer(unsigned deviceId)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)) {}

RfcommConnectedSerializer::~RfcommConnectedSerializer() = default;

void RfcommConnectedSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void RfcommConnectedSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

RfcommDisconnectedSerializer::RfcommDisconnectedSerializer(unsigned deviceId)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)) {}

RfcommDisconnectedSerializer::~RfcommDisconnectedSerializer() = default;

void RfcommDisconnectedSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void RfcommDisconnectedSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

StartProjectionSerializer::StartProjectionSerializer(unsigned deviceId,
                                                     wifi_discovery::StartRequestReason reasonValue)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)), reason(reasonValue) {}

StartProjectionSerializer::~StartProjectionSerializer() = default;

void StartProjectionSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void StartProjectionSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

StopProjectionStartSerializer::StopProjectionStartSerializer(unsigned deviceId)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)) {}

StopProjectionStartSerializer::~StopProjectionStartSerializer() = default;

void StopProjectionStartSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void StopProjectionStartSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

ReplyCanStartProjectionSerializer::ReplyCanStartProjectionSerializer(unsigned deviceId,
                                                                     std::uint32_t canStartValue)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)), canStart(canStartValue) {}

ReplyCanStartProjectionSerializer::~ReplyCanStartProjectionSerializer() = default;

void ReplyCanStartProjectionSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void ReplyCanStartProjectionSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

AddDeviceInfoSerializer::AddDeviceInfoSerializer(unsigned deviceId, std::string deviceInfo1Value,
                                                 std::string deviceInfo2Value)
    : WppIPCMessageCore(kMessageId),
      btDeviceId(lowByte(deviceId)),
      deviceInfo1(std::move(deviceInfo1Value)),
      deviceInfo2(std::move(deviceInfo2Value)) {}

AddDeviceInfoSerializer::~AddDeviceInfoSerializer() = default;

void AddDeviceInfoSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void AddDeviceInfoSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

DeleteDeviceInfoSerializer::DeleteDeviceInfoSerializer(unsigned deviceId)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)) {}

DeleteDeviceInfoSerializer::~DeleteDeviceInfoSerializer() = default;

void DeleteDeviceInfoSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void DeleteDeviceInfoSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

ResGetSecureSslKeySerializer::ResGetSecureSslKeySerializer(std::string sslCertificateValue,
                                                           std::string sslPrivateKeyValue,
                                                           std::string sslCaCertificateValue)
    : WppIPCMessageCore(kMessageId),
      sslCertificate(std::move(sslCertificateValue)),
      sslPrivateKey(std::move(sslPrivateKeyValue)),
      sslCaCertificate(std::move(sslCaCertificateValue)) {}

ResGetSecureSslKeySerializer::~ResGetSecureSslKeySerializer() = default;

void ResGetSecureSslKeySerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void ResGetSecureSslKeySerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

OnReadyForProjectionSerializer::OnReadyForProjectionSerializer(unsigned deviceId, std::string phoneInfo1Value,
                                                               std::string phoneInfo2Value,
                                                               std::string phoneInfo3Value)
    : WppIPCMessageCore(kMessageId),
      btDeviceId(lowByte(deviceId)),
      phoneInfo1(std::move(phoneInfo1Value)),
      phoneInfo2(std::move(phoneInfo2Value)),
      phoneInfo3(std::move(phoneInfo3Value)) {}

OnReadyForProjectionSerializer::~OnReadyForProjectionSerializer() = default;

void OnReadyForProjectionSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void OnReadyForProjectionSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

OnWifiVersionResponseFailureSerializer::OnWifiVersionResponseFailureSerializer(unsigned deviceId,
                                                                               std::string phoneInfo1Value,
                                                                               std::string phoneInfo2Value,
                                                                               std::string phoneInfo3Value,
                                                                               std::uint32_t valueValue)
    : WppIPCMessageCore(kMessageId),
      btDeviceId(lowByte(deviceId)),
      phoneInfo1(std::move(phoneInfo1Value)),
      phoneInfo2(std::move(phoneInfo2Value)),
      phoneInfo3(std::move(phoneInfo3Value)),
      value(valueValue) {}

OnWifiVersionResponseFailureSerializer::~OnWifiVersionResponseFailureSerializer() = default;

void OnWifiVersionResponseFailureSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void OnWifiVersionResponseFailureSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

OnStartProjectionResponseSerializer::OnStartProjectionResponseSerializer(unsigned deviceId,
                                                                         std::uint32_t resultValue)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)), result(resultValue) {}

OnStartProjectionResponseSerializer::~OnStartProjectionResponseSerializer() = default;

void OnStartProjectionResponseSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void OnStartProjectionResponseSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

CanStartProjectionSerializer::CanStartProjectionSerializer(unsigned deviceId)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)) {}

CanStartProjectionSerializer::~CanStartProjectionSerializer() = default;

void CanStartProjectionSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void CanStartProjectionSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

OnWifiConnectStatusSerializer::OnWifiConnectStatusSerializer(unsigned deviceId, std::uint32_t statusValue,
                                                             std::string textValue)
    : WppIPCMessageCore(kMessageId),
      btDeviceId(lowByte(deviceId)),
      status(statusValue),
      text(std::move(textValue)) {}

OnWifiConnectStatusSerializer::~OnWifiConnectStatusSerializer() = default;

void OnWifiConnectStatusSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void OnWifiConnectStatusSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

OnClientConnectedSerializer::OnClientConnectedSerializer(unsigned deviceId)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)) {}

OnClientConnectedSerializer::~OnClientConnectedSerializer() = default;

void OnClientConnectedSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void OnClientConnectedSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

OnClientLostSerializer::OnClientLostSerializer(unsigned deviceId)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)) {}

OnClientLostSerializer::~OnClientLostSerializer() = default;

void OnClientLostSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void OnClientLostSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

ReqGetSecureSslKeySerializer::~ReqGetSecureSslKeySerializer() = default;

}  // namespace wifi_projection_protocol
