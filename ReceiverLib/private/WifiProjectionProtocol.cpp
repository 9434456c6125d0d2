#include "wifi_projection_protocol/WifiProjectionProtocol.h"

#include <utility>

#include "private/ProtocolEngine.h"

namespace wifi_projection_protocol {

class WifiProjectionProtocol::Implementation {
public:
    Implementation(Callbacks callbacks, const FixedSettings& settings)
        : engine(std::move(callbacks), settings) {}

    ProtocolEngine engine;
};

// The head unit accepts the phones' TCP connections itself and hands them over, so the stand-in listens
// nowhere and has no use for the listen address, nor for being passive.
WifiProjectionProtocol::WifiProjectionProtocol(
    std::unique_ptr<WifiProjectionProtocolCallback> callback,
    std::unique_ptr<WifiProjectionInfoProvider> infoProvider, wifi_discovery::WifiChannelType channelType,
    std::vector<unsigned int> channelList, common::HeadUnitInfo headUnitInfo, InetSocketAddress, bool,
    std::unique_ptr<WifiProjectionProtocolLoggingCallback> loggingCallback)
    : implementation(std::make_unique<Implementation>(
          Callbacks{std::move(callback), std::move(infoProvider), std::move(loggingCallback)},
          FixedSettings{channelType, std::move(channelList), std::move(headUnitInfo)})) {}

// Stopped first, since a callback that is still under way may use `implementation`.
WifiProjectionProtocol::~WifiProjectionProtocol() {
    implementation->engine.stop();
}

void WifiProjectionProtocol::ClientConnected(const std::string& name, TransportType type,
                                             std::unique_ptr<TransportInputOutput> transport) {
    implementation->engine.clientConnected(name, type, std::move(transport));
}

void WifiProjectionProtocol::ClientDisconnected(const std::string& name) {
    implementation->engine.clientDisconnected(name);
}

std::future<std::uint32_t> WifiProjectionProtocol::StartProjection(
    const std::string& clientId, wifi_discovery::StartRequestReason reason) {
    return implementation->engine.startProjection(clientId, reason);
}

}  // namespace wifi_projection_protocol
