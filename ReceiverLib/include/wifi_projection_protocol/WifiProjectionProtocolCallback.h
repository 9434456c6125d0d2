#pragma once

#include <cstdint>
#include <string>

#include "wifi_projection_protocol/ClientInfo.h"

namespace wifi_projection_protocol {

/// Receives what happens between the library and the phones. The library owns it and calls it from its own
/// threads, never after its WifiProjectionProtocol is destroyed; one canStartProjection question at a time.
class WifiProjectionProtocolCallback {
public:
    virtual ~WifiProjectionProtocolCallback() = default;

    /// May this client start projection? The answer is passed on to the phone. May block for about a second.
    virtual int canStartProjection(const ClientInfo& client) = 0;

    virtual void onReadyForProjection(const ClientInfo& client) = 0;

    virtual void onWifiConnectStatus(const std::string& clientId, const std::uint32_t& status,
                                     const std::string& text) = 0;

    virtual void onWifiVersionResponseFailure(const ClientInfo& client, const std::uint32_t& value) = 0;

    /// The client has lost its TCP transport, or its last transport when it had no TCP one: by the phone, by
    /// a breach of the protocol, by a time limit or by ClientDisconnected. Once, until the phone has said who
    /// it is again. `client` still holds the names of the transports that it had.
    virtual void onClientLost(const ClientInfo& client) = 0;

    /// Has the head unit a record of this client? Asked about a phone that comes over TCP and is not on
    /// RFCOMM; unless it is known it is turned away.
    virtual bool isClientKnown(const std::string& clientId) = 0;
};

}  // namespace wifi_projection_protocol
