#include "Core/QmcWifiProjectionProtocol.h"

#include <optional>
#include <utility>

#include "Core/ClientNames.h"
#include "Core/QmcStartProjection.h"
#include "Core/QmcWifiProjectionInfoProvider.h"
#include "Core/QmcWifiProjectionInfoStore.h"
#include "Core/QmcWifiProjectionProtocolCallback.h"
#include "Core/QmcWifiProjectionProtocolCallbackImpl.h"
#include "Core/QmcWifiProjectionProtocolDevice.h"
#include "Core/QmcWifiProjectionProtocolLoggingCallback.h"
#include "Core/RfcommTransportInputOutput.h"
#include "Core/WifiProjectionProtocolTcpServer.h"
#include "Foundation/QMDescriptor.h"
#include "Proxy/IWifiProjectionProtocolCallbacks.h"
#include "wifi_projection_protocol/InetSocketAddress.h"
#include "wifi_projection_protocol/SslTransportFactory.h"
#include "wifi_projection_protocol/WifiProjectionProtocol.h"

namespace wifi_projection_protocol {

namespace {

constexpr const char* kListenHost = "0.0.0.0";
constexpr unsigned short kListenPort = 30516;
constexpr const char* kServiceName = "CarService";

InetSocketAddress listenAddress() {
    return {kListenHost, kListenPort};
}

}  // namespace

QmcWifiProjectionProtocol::QmcWifiProjectionProtocol(
    IWifiProjectionProtocolCallbacks* controllerCallbacks, wifi_discovery::WifiChannelType channelType,
    std::vector<unsigned int> channelList, const common::HeadUnitInfo& headUnitInfo,
    const std::string& certificate, const std::string& privateKey, const std::string& caCertificate)
    : callbacks(controllerCallbacks),
      callbackImpl(std::make_unique<QmcWifiProjectionProtocolCallbackImpl>(this)),
      infoStore(std::make_unique<QmcWifiProjectionInfoStore>()),
      sslCertificate(certificate),
      sslPrivateKey(privateKey),
      sslCaCertificate(caCertificate),
      tcpServer(std::make_unique<WifiProjectionProtocolTcpServer>(this, listenAddress())),
      devices(std::make_unique<QmcWifiProjectionProtocolDevice>()),
      startProjectionWorker(std::make_unique<QmcStartProjection>(this)) {
    // The library calls back from its first moment on: all that it can reach stands by now.
    constexpr bool kPassive = false;
    protocol = std::make_unique<WifiProjectionProtocol>(
        std::make_unique<QmcWifiProjectionProtocolCallback>(callbackImpl.get()),
        std::make_unique<QmcWifiProjectionInfoProvider>(infoStore.get()), channelType, std::move(channelList),
        headUnitInfo, listenAddress(), kPassive,
        std::make_unique<QmcWifiProjectionProtocolLoggingCallback>());
    startServing();
}

void QmcWifiProjectionProtocol::startServing() {
    try {
        tcpServer->start();
    } catch (...) {
        // Else the members would go in the reverse order of their declaration: the device records, which the
        // library's callbacks reach, ahead of the library.
        protocol.reset();
        throw;
    }
}

QmcWifiProjectionProtocol::~QmcWifiProjectionProtocol() {
    tcpServer->stop();
    startProjectionWorker->stop();
    protocol.reset();
    startProjectionWorker.reset();
    devices.reset();
    tcpServer.reset();
    sslFactory.reset();
    infoStore.reset();
    callbackImpl.reset();
}

void QmcWifiProjectionProtocol::rfcommConnected(int btDeviceId) {
    protocol->ClientConnected(rfcommClientName(btDeviceId), TransportType::kRfcomm,
                              std::make_unique<RfcommTransportInputOutput>(btDeviceId));
}

void QmcWifiProjectionProtocol::rfcommDisconnected(int btDeviceId) {
    protocol->ClientDisconnected(rfcommClientName(btDeviceId));
}

void QmcWifiProjectionProtocol::setProjectionPortInfo(const std::string& host, std::uint16_t port) {
    infoStore->setProjectionPortInfo(InetSocketAddress(host, port));
}

void QmcWifiProjectionProtocol::setWifiInfo(const std::string& wifiInfo1, const std::string& wifiInfo2,
                                            const std::string& wifiInfo3, int wifiInfo4) {
    infoStore->setWifiInfo(wifiInfo1, wifiInfo2, wifiInfo3, wifiInfo4);
}

void QmcWifiProjectionProtocol::startProjection(std::uint8_t btDeviceId,
                                                wifi_discovery::StartRequestReason reason) {
    startProjectionWorker->startProjection(btDeviceId, reason);
}

void QmcWifiProjectionProtocol::stopProjectionStart() {
    startProjectionWorker->stop();
}

void QmcWifiProjectionProtocol::replyCanStartProjection(std::uint8_t btDeviceId, int result) {
    callbackImpl->replyCanStartProjection(btDeviceId, result);
}

void QmcWifiProjectionProtocol::addDeviceInfo(std::uint8_t btDeviceId, const std::string& deviceInfo1,
                                              const std::string& deviceInfo2) {
    devices->add(btDeviceId, deviceInfo1, deviceInfo2);
}

void QmcWifiProjectionProtocol::deleteDeviceInfo(std::uint8_t btDeviceId) {
    const TransportNames transports = devices->transportsOf(btDeviceId);
    const auto tcp = transports.find(TransportType::kTcp);
    if (tcp != transports.end()) {
        protocol->ClientDisconnected(tcp->second);
    }
    devices->remove(btDeviceId);
}

void QmcWifiProjectionProtocol::onClientAccepted(const ClientSocket& client) {
    QMDescriptor socket(client.fd);
    if (sslFactory == nullptr) {
        makeSslFactory();
    }
    std::unique_ptr<TransportInputOutput> transport = sslFactory->CreateSslTransportInputOutput(socket.get());
    if (transport == nullptr) {
        return;
    }
    socket.release();  // the transport's from now on
    protocol->ClientConnected(tcpClientName(client.peerAddress), TransportType::kTcp, std::move(transport));
}

void QmcWifiProjectionProtocol::makeSslFactory() {
    std::string certificate = sslCertificate;
    std::string privateKey = sslPrivateKey;
    std::string caCertificate = sslCaCertificate;
    if (certificate.empty()) {
        privateKey.clear();
        caCertificate.clear();
        // A failed fetch leaves the texts empty: the factory made of them turns every phone away.
        callbacks->ReqGetSecureSslKey(certificate, privateKey, caCertificate);
    }
    constexpr bool kAcceptAnyPhone = false;
    sslFactory = std::make_unique<SslTransportFactory>(certificate, privateKey, caCertificate, std::nullopt,
                                                       kAcceptAnyPhone, kServiceName);
}

}  // namespace wifi_projection_protocol
