#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>

#include "common/Common.pb.h"
#include "wifi_projection_protocol/TransportInputOutput.h"

namespace wifi_projection_protocol {

/// The client names of a phone's live transports, by the way they take.
using TransportNames = std::unordered_map<TransportType, std::string>;

/// What the library knows of a phone. A plain value.
struct ClientInfo {
    std::string clientId;        ///< the library's name for the phone, the same over every transport
    std::uint32_t revision = 0;  ///< not used by the receiver
    TransportNames transports;   ///< the names given to WifiProjectionProtocol::ClientConnected
    std::string phoneName;       ///< how the phone calls itself
    common::PhoneInfo phoneInfo;
};

}  // namespace wifi_projection_protocol
