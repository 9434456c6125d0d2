#pragma once

#include <cstdint>

namespace wifi_discovery {

/// Kind of Wi-Fi channel that the head unit offers. Any 32-bit value may arrive and is passed through.
enum class WifiChannelType : std::uint32_t {};

/// Why a projection is to be started. Any 32-bit value may arrive and is passed through.
enum class StartRequestReason : std::uint32_t {};

}  // namespace wifi_discovery
