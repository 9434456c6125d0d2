#pragma once

#include <cstdint>
#include <string>

namespace wifi_projection_protocol {

/// What the observers of received SPP data get.
struct SppReceivedData {
    std::uint8_t btDeviceId = 0;
    std::string uuid;
    const std::uint8_t* data = nullptr;  ///< valid only during the notification
    std::uint32_t length = 0;
};

/// The size that is announced with an SppReceivedData: the record's size on the target, on every machine.
constexpr int kSppReceivedDataSize = 16;

}  // namespace wifi_projection_protocol
