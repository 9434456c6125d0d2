#pragma once

#include <string>

namespace wifi_projection_protocol {

/// The name under which a phone's RFCOMM transport is handed to the library: "RFCOMM_" and the decimal id.
inline std::string rfcommClientName(int btDeviceId) {
    return "RFCOMM_" + std::to_string(btDeviceId);
}

/// The name under which a phone's TCP transport is handed to the library: "TCP_" and the IPv4 address text.
inline std::string tcpClientName(const std::string& peerAddress) {
    return "TCP_" + peerAddress;
}

}  // namespace wifi_projection_protocol
