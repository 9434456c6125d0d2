#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "LibWpp/WppIPCMessage.h"
#include "common/Common.pb.h"
#include "wifi_discovery/WifiDiscovery.h"

// The messages between the controller process and the receiver, in the order of their ids. Ids below 2000 go
// to the receiver, the others to the controller.
//
// A message names its fields once, in wire order, in fields(); what a field's type means on the wire is one
// table in MessageFields.h. The constructors take the fields in the same order; a device id wider than 8 bits
// is cut to its low 8 bits.
namespace wifi_projection_protocol {

/// Orders the receiver to end. Header only.
constexpr std::int32_t kTerminateMessageId = 1;
/// Orders the receiver to discard the projection protocol. Header only.
constexpr std::int32_t kStopWifiProjectionProtocolMessageId = 1001;

/// Starts the protocol; empty TLS texts make the receiver ask for them when a phone connects.
class StartWifiProjectionProtocolSerializer
    : public WppIPCMessage<StartWifiProjectionProtocolSerializer, 1000> {
public:
    StartWifiProjectionProtocolSerializer() = default;
    StartWifiProjectionProtocolSerializer(wifi_discovery::WifiChannelType channelTypeValue,
                                          std::vector<unsigned int> channelListValue,
                                          common::HeadUnitInfo headUnitInfoValue,
                                          std::string sslCertificateValue, std::string sslPrivateKeyValue,
                                          std::string sslCaCertificateValue)
        : channelType(channelTypeValue),
          channelList(std::move(channelListValue)),
          headUnitInfo(std::move(headUnitInfoValue)),
          sslCertificate(std::move(sslCertificateValue)),
          sslPrivateKey(std::move(sslPrivateKeyValue)),
          sslCaCertificate(std::move(sslCaCertificateValue)) {}

    auto fields() {
        return std::tie(channelType, channelList, headUnitInfo, sslCertificate, sslPrivateKey,
                        sslCaCertificate);
    }

    wifi_discovery::WifiChannelType channelType{};
    std::vector<unsigned int> channelList;
    common::HeadUnitInfo headUnitInfo;
    std::string sslCertificate;
    std::string sslPrivateKey;
    std::string sslCaCertificate;
};

/// The address at which the phone is told to reach the receiver.
class SetProjectionPortInfoSerializer : public WppIPCMessage<SetProjectionPortInfoSerializer, 1002> {
public:
    SetProjectionPortInfoSerializer() = default;
    SetProjectionPortInfoSerializer(std::string ipAddressValue, std::uint16_t portValue)
        : ipAddress(std::move(ipAddressValue)), port(portValue) {}

    auto fields() { return std::tie(ipAddress, port); }

    std::string ipAddress;
    std::uint16_t port = 0;
};

/// The Wi-Fi settings, passed on to the phone unchanged.
class SetWifiInfoSerializer : public WppIPCMessage<SetWifiInfoSerializer, 1003> {
public:
    SetWifiInfoSerializer() = default;
    SetWifiInfoSerializer(std::string wifiInfo1Value, std::string wifiInfo2Value, std::string wifiInfo3Value,
                          std::uint32_t wifiInfo4Value)
        : wifiInfo1(std::move(wifiInfo1Value)),
          wifiInfo2(std::move(wifiInfo2Value)),
          wifiInfo3(std::move(wifiInfo3Value)),
          wifiInfo4(wifiInfo4Value) {}

    auto fields() { return std::tie(wifiInfo1, wifiInfo2, wifiInfo3, wifiInfo4); }

    std::string wifiInfo1;
    std::string wifiInfo2;
    std::string wifiInfo3;
    std::uint32_t wifiInfo4 = 0;
};

/// The phone's RFCOMM link is up.
class RfcommConnectedSerializer : public WppIPCMessage<RfcommConnectedSerializer, 1004> {
public:
    RfcommConnectedSerializer() = default;
    explicit RfcommConnectedSerializer(unsigned deviceId) : btDeviceId(lowByte(deviceId)) {}

    auto fields() { return std::tie(btDeviceId); }

    std::uint8_t btDeviceId = 0;
};

/// The phone's RFCOMM link is gone.
class RfcommDisconnectedSerializer : public WppIPCMessage<RfcommDisconnectedSerializer, 1005> {
public:
    RfcommDisconnectedSerializer() = default;
    explicit RfcommDisconnectedSerializer(unsigned deviceId) : btDeviceId(lowByte(deviceId)) {}

    auto fields() { return std::tie(btDeviceId); }

    std::uint8_t btDeviceId = 0;
};

/// Start the phone's projection.
class StartProjectionSerializer : public WppIPCMessage<StartProjectionSerializer, 1006> {
public:
    StartProjectionSerializer() = default;
    StartProjectionSerializer(unsigned deviceId, wifi_discovery::StartRequestReason reasonValue)
        : btDeviceId(lowByte(deviceId)), reason(reasonValue) {}

    auto fields() { return std::tie(btDeviceId, reason); }

    std::uint8_t btDeviceId = 0;
    wifi_discovery::StartRequestReason reason{};
};

/// Give up a pending start.
class StopProjectionStartSerializer : public WppIPCMessage<StopProjectionStartSerializer, 1007> {
public:
    StopProjectionStartSerializer() = default;
    explicit StopProjectionStartSerializer(unsigned deviceId) : btDeviceId(lowByte(deviceId)) {}

    auto fields() { return std::tie(btDeviceId); }

    std::uint8_t btDeviceId = 0;
};

/// The controller's answer to CanStartProjection.
class ReplyCanStartProjectionSerializer : public WppIPCMessage<ReplyCanStartProjectionSerializer, 1008> {
public:
    ReplyCanStartProjectionSerializer() = default;
    ReplyCanStartProjectionSerializer(unsigned deviceId, std::uint32_t canStartValue)
        : btDeviceId(lowByte(deviceId)), canStart(canStartValue) {}

    auto fields() { return std::tie(btDeviceId, canStart); }

    std::uint8_t btDeviceId = 0;
    std::uint32_t canStart = 0;
};

/// Adds the record of a paired phone.
class AddDeviceInfoSerializer : public WppIPCMessage<AddDeviceInfoSerializer, 1009> {
public:
    AddDeviceInfoSerializer() = default;
    AddDeviceInfoSerializer(unsigned deviceId, std::string deviceInfo1Value, std::string deviceInfo2Value)
        : btDeviceId(lowByte(deviceId)),
          deviceInfo1(std::move(deviceInfo1Value)),
          deviceInfo2(std::move(deviceInfo2Value)) {}

    auto fields() { return std::tie(btDeviceId, deviceInfo1, deviceInfo2); }

    std::uint8_t btDeviceId = 0;
    std::string deviceInfo1;
    std::string deviceInfo2;
};

/// Drops the record of a paired phone.
class DeleteDeviceInfoSerializer : public WppIPCMessage<DeleteDeviceInfoSerializer, 1010> {
public:
    DeleteDeviceInfoSerializer() = default;
    explicit DeleteDeviceInfoSerializer(unsigned deviceId) : btDeviceId(lowByte(deviceId)) {}

    auto fields() { return std::tie(btDeviceId); }

    std::uint8_t btDeviceId = 0;
};

/// The TLS texts (PEM), only as the reply to ReqGetSecureSslKey.
class ResGetSecureSslKeySerializer : public WppIPCMessage<ResGetSecureSslKeySerializer, 1011> {
public:
    ResGetSecureSslKeySerializer() = default;
    ResGetSecureSslKeySerializer(std::string sslCertificateValue, std::string sslPrivateKeyValue,
                                 std::string sslCaCertificateValue)
        : sslCertificate(std::move(sslCertificateValue)),
          sslPrivateKey(std::move(sslPrivateKeyValue)),
          sslCaCertificate(std::move(sslCaCertificateValue)) {}

    auto fields() { return std::tie(sslCertificate, sslPrivateKey, sslCaCertificate); }

    std::string sslCertificate;
    std::string sslPrivateKey;
    std::string sslCaCertificate;
};

/// A phone is ready for projection.
class OnReadyForProjectionSerializer : public WppIPCMessage<OnReadyForProjectionSerializer, 2000> {
public:
    OnReadyForProjectionSerializer() = default;
    OnReadyForProjectionSerializer(unsigned deviceId, std::string phoneInfo1Value,
                                   std::string phoneInfo2Value, std::string phoneInfo3Value)
        : btDeviceId(lowByte(deviceId)),
          phoneInfo1(std::move(phoneInfo1Value)),
          phoneInfo2(std::move(phoneInfo2Value)),
          phoneInfo3(std::move(phoneInfo3Value)) {}

    auto fields() { return std::tie(btDeviceId, phoneInfo1, phoneInfo2, phoneInfo3); }

    std::uint8_t btDeviceId = 0;
    std::string phoneInfo1;
    std::string phoneInfo2;
    std::string phoneInfo3;
};

/// A phone cannot do the Wi-Fi settings.
class OnWifiVersionResponseFailureSerializer
    : public WppIPCMessage<OnWifiVersionResponseFailureSerializer, 2001> {
public:
    OnWifiVersionResponseFailureSerializer() = default;
    OnWifiVersionResponseFailureSerializer(unsigned deviceId, std::string phoneInfo1Value,
                                           std::string phoneInfo2Value, std::string phoneInfo3Value,
                                           std::uint32_t valueValue)
        : btDeviceId(lowByte(deviceId)),
          phoneInfo1(std::move(phoneInfo1Value)),
          phoneInfo2(std::move(phoneInfo2Value)),
          phoneInfo3(std::move(phoneInfo3Value)),
          value(valueValue) {}

    auto fields() { return std::tie(btDeviceId, phoneInfo1, phoneInfo2, phoneInfo3, value); }

    std::uint8_t btDeviceId = 0;
    std::string phoneInfo1;
    std::string phoneInfo2;
    std::string phoneInfo3;
    std::uint32_t value = 0;
};

/// The outcome of a StartProjection.
class OnStartProjectionResponseSerializer : public WppIPCMessage<OnStartProjectionResponseSerializer, 2002> {
public:
    OnStartProjectionResponseSerializer() = default;
    OnStartProjectionResponseSerializer(unsigned deviceId, std::uint32_t resultValue)
        : btDeviceId(lowByte(deviceId)), result(resultValue) {}

    auto fields() { return std::tie(btDeviceId, result); }

    std::uint8_t btDeviceId = 0;
    std::uint32_t result = 0;
};

/// May this phone start projection? Answered later by ReplyCanStartProjection.
class CanStartProjectionSerializer : public WppIPCMessage<CanStartProjectionSerializer, 2003> {
public:
    CanStartProjectionSerializer() = default;
    explicit CanStartProjectionSerializer(unsigned deviceId) : btDeviceId(lowByte(deviceId)) {}

    auto fields() { return std::tie(btDeviceId); }

    std::uint8_t btDeviceId = 0;
};

/// How a phone's joining of the Wi-Fi goes.
class OnWifiConnectStatusSerializer : public WppIPCMessage<OnWifiConnectStatusSerializer, 2004> {
public:
    OnWifiConnectStatusSerializer() = default;
    OnWifiConnectStatusSerializer(unsigned deviceId, std::uint32_t statusValue, std::string textValue)
        : btDeviceId(lowByte(deviceId)), status(statusValue), text(std::move(textValue)) {}

    auto fields() { return std::tie(btDeviceId, status, text); }

    std::uint8_t btDeviceId = 0;
    std::uint32_t status = 0;
    std::string text;
};

/// A phone is connected over TCP.
class OnClientConnectedSerializer : public WppIPCMessage<OnClientConnectedSerializer, 2005> {
public:
    OnClientConnectedSerializer() = default;
    explicit OnClientConnectedSerializer(unsigned deviceId) : btDeviceId(lowByte(deviceId)) {}

    auto fields() { return std::tie(btDeviceId); }

    std::uint8_t btDeviceId = 0;
};

/// A phone is lost.
class OnClientLostSerializer : public WppIPCMessage<OnClientLostSerializer, 2006> {
public:
    OnClientLostSerializer() = default;
    explicit OnClientLostSerializer(unsigned deviceId) : btDeviceId(lowByte(deviceId)) {}

    auto fields() { return std::tie(btDeviceId); }

    std::uint8_t btDeviceId = 0;
};

/// Asks for the TLS texts; answered at once by ResGetSecureSslKey. No body.
class ReqGetSecureSslKeySerializer : public WppIPCMessage<ReqGetSecureSslKeySerializer, 2007> {
public:
    auto fields() { return std::tie(); }
};

}  // namespace wifi_projection_protocol
