#include "wifi_projection_protocol/WifiProjectionProtocol.h"

namespace wifi_projection_protocol {

class WifiProjectionProtocol::Implementation {
public:
    std::unique_ptr<WifiProjectionProtocolCallback> callback;
    std::unique_ptr<WifiProjectionInfoProvider> infoProvider;
    std::unique_ptr<WifiProjectionProtocolLoggingCallback> loggingCallback;
};

WifiProjectionProtocol::WifiProjectionProtocol(
    std::unique_ptr<WifiProjectionProtocolCallback> callback,
    std::unique_ptr<WifiProjectionInfoProvider> infoProvider, wifi_discovery::WifiChannelType,
    std::vector<unsigned int>, common::HeadUnitInfo, InetSocketAddress, bool,
    std::unique_ptr<WifiProjectionProtocolLoggingCallback> loggingCallback)
    : implementation(
          new Implementation{std::move(callback), std::move(infoProvider), std::move(loggingCallback)}) {}

WifiProjectionProtocol::~WifiProjectionProtocol() = default;

void WifiProjectionProtocol::ClientConnected(const std::string&, TransportType,
                                             std::unique_ptr<TransportInputOutput>) {}

void WifiProjectionProtocol::ClientDisconnected(const std::string&) {}

std::future<std::uint32_t> WifiProjectionProtocol::StartProjection(const std::string&,
                                                                   wifi_discovery::StartRequestReason) {
    std::promise<std::uint32_t> nobody;
    nobody.set_value(0);
    return nobody.get_future();
}

}  // namespace wifi_projection_protocol
