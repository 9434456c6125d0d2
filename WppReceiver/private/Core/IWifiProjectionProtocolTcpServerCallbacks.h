#pragma once

#include <string>

namespace wifi_projection_protocol {

/// A connected TCP socket and the dotted IPv4 text of its peer.
struct ClientSocket {
    int fd = -1;
    std::string peerAddress = "0.0.0.0";
};

/// Receives the connections that WifiProjectionProtocolTcpServer accepts.
class IWifiProjectionProtocolTcpServerCallbacks {
public:
    virtual ~IWifiProjectionProtocolTcpServerCallbacks() = default;

    /// Takes over the connected socket, also when it throws. Runs on the server's thread; no further
    /// connection is accepted until it returns.
    virtual void onClientAccepted(const ClientSocket& client) = 0;
};

}  // namespace wifi_projection_protocol
