#pragma once

#include <cstdint>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "common/Common.pb.h"
#include "wifi_discovery/WifiDiscovery.h"
#include "wifi_projection_protocol/InetSocketAddress.h"
#include "wifi_projection_protocol/TransportInputOutput.h"
#include "wifi_projection_protocol/WifiProjectionInfoProvider.h"
#include "wifi_projection_protocol/WifiProjectionProtocolCallback.h"
#include "wifi_projection_protocol/WifiProjectionProtocolLoggingCallback.h"

namespace wifi_projection_protocol {

/// The wireless projection protocol towards every phone at once.
///
/// It starts with its construction and runs its own threads; the callback, the info provider and the logging
/// callback are called from them. Any thread may call its operations, also from within a callback, except
/// that the destructor must not run on one of the library's threads.
class WifiProjectionProtocol {
public:
    /// @param callback, infoProvider never empty; `loggingCallback` may be.
    /// @param channelType, channelList, headUnitInfo told to every phone as they are.
    /// @param listenAddress, passive not used: the head unit accepts the phones' connections and hands them
    ///        over.
    WifiProjectionProtocol(std::unique_ptr<WifiProjectionProtocolCallback> callback,
                           std::unique_ptr<WifiProjectionInfoProvider> infoProvider,
                           wifi_discovery::WifiChannelType channelType, std::vector<unsigned int> channelList,
                           common::HeadUnitInfo headUnitInfo, InetSocketAddress listenAddress, bool passive,
                           std::unique_ptr<WifiProjectionProtocolLoggingCallback> loggingCallback);

    /// Ends every conversation, joins every thread and releases every transport, then the three callbacks.
    /// A start still pending ends with the result 0. No event is reported for the phones that it drops.
    ~WifiProjectionProtocol();

    WifiProjectionProtocol(const WifiProjectionProtocol&) = delete;
    WifiProjectionProtocol& operator=(const WifiProjectionProtocol&) = delete;

    /// Hands over a connected transport under a client name. A transport that still has this name is closed
    /// first, and released like a disconnected one. With no room for another transport it is closed and
    /// released at once.
    void ClientConnected(const std::string& name, TransportType type,
                         std::unique_ptr<TransportInputOutput> transport);

    /// The named transport is gone: it is closed before the call returns, and released as soon as nobody is
    /// within one of its operations. An unknown name is ignored. Does not wait for the phone.
    void ClientDisconnected(const std::string& name);

    /// Asks the phone to start its projection, over its TCP transport.
    /// @return the phone's result once it has answered; 0 when it is lost before that, has no TCP transport,
    ///         is not known at all, or is asked again meanwhile. A phone that does not answer within 65 s is
    ///         dropped.
    std::future<std::uint32_t> StartProjection(const std::string& clientId,
                                               wifi_discovery::StartRequestReason reason);

private:
    class Implementation;
    std::unique_ptr<Implementation> implementation;
};

}  // namespace wifi_projection_protocol
