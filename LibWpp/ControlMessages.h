#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "LibWpp/WppIPCMessageCore.h"
#include "common/Common.pb.h"
#include "wifi_discovery/WifiDiscovery.h"

// The messages between the controller process and the receiver, in the order of their ids. Ids below 2000 go
// to the receiver, the others to the controller.
//
// A message names its fields once, in wire order, in fields(); what a field's type means on the wire is one
// table in private/MessageFields.h. The constructors take the fields in the same order; a device id wider
// than 8 bits is cut to its low 8 bits.
namespace wifi_projection_protocol {

/// Orders the receiver to end. Header only.
constexpr std::int32_t kTerminateMessageId = 1;
/// Orders the receiver to discard the projection protocol. Header only.
constexpr std::int32_t kStopWifiProjectionProtocolMessageId = 1001;

/// Starts the protocol; empty TLS texts make the receiver ask for them when a phone connects.
class StartWifiProjectionProtocolSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1000;

    StartWifiProjectionProtocolSerializer() : WppIPCMessageCore(kMessageId) {}
    StartWifiProjectionProtocolSerializer(wifi_discovery::WifiChannelType channelTypeValue,
                                          std::vector<unsigned int> channelListValue,
                                          common::HeadUnitInfo headUnitInfoValue,
                                          std::string sslCertificateValue, std::string sslPrivateKeyValue,
                                          std::string sslCaCertificateValue);
    ~StartWifiProjectionProtocolSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    wifi_discovery::WifiChannelType channelType{};
    std::vector<unsigned int> channelList;
    common::HeadUnitInfo headUnitInfo;
    std::string sslCertificate;
    std::string sslPrivateKey;
    std::string sslCaCertificate;

private:
    auto fields() {
        return std::tie(channelType, channelList, headUnitInfo, sslCertificate, sslPrivateKey,
                        sslCaCertificate);
    }
};

/// The address at which the phone is told to reach the receiver.
class SetProjectionPortInfoSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1002;

    SetProjectionPortInfoSerializer() : WppIPCMessageCore(kMessageId) {}
    SetProjectionPortInfoSerializer(std::string ipAddressValue, std::uint16_t portValue);
    ~SetProjectionPortInfoSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::string ipAddress;
    std::uint16_t port = 0;

private:
    auto fields() { return std::tie(ipAddress, port); }
};

/// The Wi-Fi settings, passed on to the phone unchanged.
class SetWifiInfoSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1003;

    SetWifiInfoSerializer() : WppIPCMessageCore(kMessageId) {}
    SetWifiInfoSerializer(std::string wifiInfo1Value, std::string wifiInfo2Value, std::string wifiInfo3Value,
                          std::uint32_t wifiInfo4Value);
    ~SetWifiInfoSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::string wifiInfo1;
    std::string wifiInfo2;
    std::string wifiInfo3;
    std::uint32_t wifiInfo4 = 0;

private:
    auto fields() { return std::tie(wifiInfo1, wifiInfo2, wifiInfo3, wifiInfo4); }
};

/// The phone's RFCOMM link is up.
class RfcommConnectedSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1004;

    RfcommConnectedSerializer() : WppIPCMessageCore(kMessageId) {}
    explicit RfcommConnectedSerializer(unsigned deviceId);
    ~RfcommConnectedSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;

private:
    auto fields() { return std::tie(btDeviceId); }
};

/// The phone's RFCOMM link is gone.
class RfcommDisconnectedSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1005;

    RfcommDisconnectedSerializer() : WppIPCMessageCore(kMessageId) {}
    explicit RfcommDisconnectedSerializer(unsigned deviceId);
    ~RfcommDisconnectedSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;

private:
    auto fields() { return std::tie(btDeviceId); }
};

/// Start the phone's projection.
class StartProjectionSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1006;

    StartProjectionSerializer() : WppIPCMessageCore(kMessageId) {}
    StartProjectionSerializer(unsigned deviceId, wifi_discovery::StartRequestReason reasonValue);
    ~StartProjectionSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;
    wifi_discovery::StartRequestReason reason{};

private:
    auto fields() { return std::tie(btDeviceId, reason); }
};

/// Give up a pending start.
class StopProjectionStartSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1007;

    StopProjectionStartSerializer() : WppIPCMessageCore(kMessageId) {}
    explicit StopProjectionStartSerializer(unsigned deviceId);
    ~StopProjectionStartSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;

private:
    auto fields() { return std::tie(btDeviceId); }
};

/// The controller's answer to CanStartProjection.
class ReplyCanStartProjectionSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1008;

    ReplyCanStartProjectionSerializer() : WppIPCMessageCore(kMessageId) {}
    ReplyCanStartProjectionSerializer(unsigned deviceId, std::uint32_t canStartValue);
    ~ReplyCanStartProjectionSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;
    std::uint32_t canStart = 0;

private:
    auto fields() { return std::tie(btDeviceId, canStart); }
};

/// Adds the record of a paired phone.
class AddDeviceInfoSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1009;

    AddDeviceInfoSerializer() : WppIPCMessageCore(kMessageId) {}
    AddDeviceInfoSerializer(unsigned deviceId, std::string deviceInfo1Value, std::string deviceInfo2Value);
    ~AddDeviceInfoSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;
    std::string deviceInfo1;
    std::string deviceInfo2;

private:
    auto fields() { return std::tie(btDeviceId, deviceInfo1, deviceInfo2); }
};

/// Drops the record of a paired phone.
class DeleteDeviceInfoSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1010;

    DeleteDeviceInfoSerializer() : WppIPCMessageCore(kMessageId) {}
    explicit DeleteDeviceInfoSerializer(unsigned deviceId);
    ~DeleteDeviceInfoSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;

private:
    auto fields() { return std::tie(btDeviceId); }
};

/// The TLS texts (PEM), only as the reply to ReqGetSecureSslKey.
class ResGetSecureSslKeySerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 1011;

    ResGetSecureSslKeySerializer() : WppIPCMessageCore(kMessageId) {}
    ResGetSecureSslKeySerializer(std::string sslCertificateValue, std::string sslPrivateKeyValue,
                                 std::string sslCaCertificateValue);
    ~ResGetSecureSslKeySerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::string sslCertificate;
    std::string sslPrivateKey;
    std::string sslCaCertificate;

private:
    auto fields() { return std::tie(sslCertificate, sslPrivateKey, sslCaCertificate); }
};

/// A phone is ready for projection.
class OnReadyForProjectionSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 2000;

    OnReadyForProjectionSerializer() : WppIPCMessageCore(kMessageId) {}
    OnReadyForProjectionSerializer(unsigned deviceId, std::string phoneInfo1Value,
                                   std::string phoneInfo2Value, std::string phoneInfo3Value);
    ~OnReadyForProjectionSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;
    std::string phoneInfo1;
    std::string phoneInfo2;
    std::string phoneInfo3;

private:
    auto fields() { return std::tie(btDeviceId, phoneInfo1, phoneInfo2, phoneInfo3); }
};

/// A phone cannot do the Wi-Fi settings.
class OnWifiVersionResponseFailureSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 2001;

    OnWifiVersionResponseFailureSerializer() : WppIPCMessageCore(kMessageId) {}
    OnWifiVersionResponseFailureSerializer(unsigned deviceId, std::string phoneInfo1Value,
                                           std::string phoneInfo2Value, std::string phoneInfo3Value,
                                           std::uint32_t valueValue);
    ~OnWifiVersionResponseFailureSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;
    std::string phoneInfo1;
    std::string phoneInfo2;
    std::string phoneInfo3;
    std::uint32_t value = 0;

private:
    auto fields() { return std::tie(btDeviceId, phoneInfo1, phoneInfo2, phoneInfo3, value); }
};

/// The outcome of a StartProjection.
class OnStartProjectionResponseSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 2002;

    OnStartProjectionResponseSerializer() : WppIPCMessageCore(kMessageId) {}
    OnStartProjectionResponseSerializer(unsigned deviceId, std::uint32_t resultValue);
    ~OnStartProjectionResponseSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;
    std::uint32_t result = 0;

private:
    auto fields() { return std::tie(btDeviceId, result); }
};

/// May this phone start projection? Answered later by ReplyCanStartProjection.
class CanStartProjectionSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 2003;

    CanStartProjectionSerializer() : WppIPCMessageCore(kMessageId) {}
    explicit CanStartProjectionSerializer(unsigned deviceId);
    ~CanStartProjectionSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;

private:
    auto fields() { return std::tie(btDeviceId); }
};

/// How a phone's joining of the Wi-Fi goes.
class OnWifiConnectStatusSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 2004;

    OnWifiConnectStatusSerializer() : WppIPCMessageCore(kMessageId) {}
    OnWifiConnectStatusSerializer(unsigned deviceId, std::uint32_t statusValue, std::string textValue);
    ~OnWifiConnectStatusSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;
    std::uint32_t status = 0;
    std::string text;

private:
    auto fields() { return std::tie(btDeviceId, status, text); }
};

/// A phone is connected over TCP.
class OnClientConnectedSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 2005;

    OnClientConnectedSerializer() : WppIPCMessageCore(kMessageId) {}
    explicit OnClientConnectedSerializer(unsigned deviceId);
    ~OnClientConnectedSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;

private:
    auto fields() { return std::tie(btDeviceId); }
};

/// A phone is lost.
class OnClientLostSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 2006;

    OnClientLostSerializer() : WppIPCMessageCore(kMessageId) {}
    explicit OnClientLostSerializer(unsigned deviceId);
    ~OnClientLostSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;

private:
    auto fields() { return std::tie(btDeviceId); }
};

/// Asks for the TLS texts; answered at once by ResGetSecureSslKey. No body.
class ReqGetSecureSslKeySerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 2007;

    ReqGetSecureSslKeySerializer() : WppIPCMessageCore(kMessageId) {}
    ~ReqGetSecureSslKeySerializer() override;
};

}  // namespace wifi_projection_protocol
