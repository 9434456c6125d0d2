#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "LibWpp/WppIPCMessageCore.h"

namespace simulator {

/// The payload of a message, ready for a frame.
std::string payloadOf(wifi_projection_protocol::WppIPCMessageCore& message);

/// Decodes a payload into a message; fields that are missing stay 0 or empty.
template <typename Message>
void decodeInto(Message& message, std::string_view payload) {
    message.deserialize(payload.data(), static_cast<unsigned>(payload.size()));
}

/// The id at the head of a payload; -1 when it is too short for one.
std::int32_t messageIdOf(std::string_view payload);

}  // namespace simulator
