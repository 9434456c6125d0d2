#include "Simulator/private/Peers/MessageBytes.h"

#include <cstring>

namespace simulator {

std::string payloadOf(wifi_projection_protocol::WppIPCMessageCore& message) {
    message.serialize();
    const void* const bytes = message.archive.getBuffer();
    return std::string(static_cast<const char*>(bytes), message.archive.getSize());
}

// Looks at the bytes itself: a message too short for an id is nothing to log about here.
std::int32_t messageIdOf(std::string_view payload) {
    std::int32_t id = -1;
    if (payload.size() >= sizeof(id)) {
        std::memcpy(&id, payload.data(), sizeof(id));
    }
    return id;
}

}  // namespace simulator
