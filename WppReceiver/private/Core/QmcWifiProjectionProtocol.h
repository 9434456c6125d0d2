#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Core/IWifiProjectionProtocolTcpServerCallbacks.h"
#include "Pattern/QMUncopyable.h"
#include "common/Common.pb.h"
#include "wifi_discovery/WifiDiscovery.h"

namespace wifi_projection_protocol {

class IWifiProjectionProtocolCallbacks;
class QmcStartProjection;
class QmcWifiProjectionInfoStore;
class QmcWifiProjectionProtocolCallbackImpl;
class QmcWifiProjectionProtocolDevice;
class SslTransportFactory;
class WifiProjectionProtocol;
class WifiProjectionProtocolTcpServer;

/// Owns the library's protocol object and everything that the library needs from the head unit.
///
/// Live from construction, which starts the library and the TCP server on port 30516, to destruction, which
/// stops the TCP server, cancels a running start and destroys the library before the objects that its
/// callbacks reach. The operations belong to the control stream's thread, onClientAccepted to the TCP
/// server's thread; the library's threads come in through the callback and the info provider. It takes no
/// lock of its own.
///
/// No operation checks a device id: an unknown one finds no record.
class QmcWifiProjectionProtocol final : public IWifiProjectionProtocolTcpServerCallbacks,
                                        private QMUncopyable {
public:
    /// A library or a thread that cannot be started is passed on as the exception that it is; nothing is left
    /// of the object then.
    /// @param controllerCallbacks the way to the controller; not owned, outlives this object.
    /// @param certificate, privateKey, caCertificate the TLS material (PEM texts); with an empty certificate
    ///        it is fetched from the controller when the first phone connects over TCP.
    QmcWifiProjectionProtocol(IWifiProjectionProtocolCallbacks* controllerCallbacks,
                              wifi_discovery::WifiChannelType channelType,
                              std::vector<unsigned int> channelList, const common::HeadUnitInfo& headUnitInfo,
                              const std::string& certificate, const std::string& privateKey,
                              const std::string& caCertificate);
    ~QmcWifiProjectionProtocol() override;

    /// Hands a new RFCOMM transport for the phone to the library, as "RFCOMM_" and the id.
    void rfcommConnected(int btDeviceId);

    /// Tells the library that the phone's RFCOMM transport is gone, whether or not it ever was there.
    void rfcommDisconnected(int btDeviceId);

    /// Where phones are told to open their TCP connection.
    void setProjectionPortInfo(const std::string& host, std::uint16_t port);

    void setWifiInfo(const std::string& wifiInfo1, const std::string& wifiInfo2, const std::string& wifiInfo3,
                     int wifiInfo4);

    /// Cancels a start that is still running, then begins this one. The result goes to the controller later.
    void startProjection(std::uint8_t btDeviceId, wifi_discovery::StartRequestReason reason);

    /// Cancels the running start, whichever device it is for.
    void stopProjectionStart();

    void replyCanStartProjection(std::uint8_t btDeviceId, int result);
    void addDeviceInfo(std::uint8_t btDeviceId, const std::string& deviceInfo1,
                       const std::string& deviceInfo2);

    /// Disconnects the phone's TCP transport, if the library has reported one, and drops its record.
    void deleteDeviceInfo(std::uint8_t btDeviceId);

    /// Wraps the connection in TLS and hands it to the library as "TCP_" and the peer's address. A connection
    /// that cannot be wrapped is closed silently; one that an exception meets is closed as well.
    void onClientAccepted(const ClientSocket& client) override;

    /// The parts that the callback and the start worker reach through their owner. They live as long as it
    /// does, except the library, which goes first: only the start worker uses it.
    IWifiProjectionProtocolCallbacks& controller() { return *callbacks; }
    QmcWifiProjectionProtocolDevice& deviceRecords() { return *devices; }
    WifiProjectionProtocol& library() { return *protocol; }

private:
    void startServing();
    void makeSslFactory();

    IWifiProjectionProtocolCallbacks* const callbacks;
    std::unique_ptr<QmcWifiProjectionProtocolCallbackImpl> callbackImpl;
    std::unique_ptr<QmcWifiProjectionInfoStore> infoStore;
    std::unique_ptr<WifiProjectionProtocol> protocol;
    std::unique_ptr<SslTransportFactory> sslFactory;  // touched only on the TCP server's thread
    const std::string sslCertificate;
    const std::string sslPrivateKey;
    const std::string sslCaCertificate;
    std::unique_ptr<WifiProjectionProtocolTcpServer> tcpServer;
    std::unique_ptr<QmcWifiProjectionProtocolDevice> devices;
    std::unique_ptr<QmcStartProjection> startProjectionWorker;
};

}  // namespace wifi_projection_protocol
