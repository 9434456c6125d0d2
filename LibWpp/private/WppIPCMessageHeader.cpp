#include "LibWpp/WppIPCMessageHeader.h"

#include <cstring>

namespace wifi_projection_protocol {

WppIPCMessageHeader::~WppIPCMessageHeader() = default;

std::int32_t WppIPCMessageHeader::idOf(const void* data, unsigned length) {
    std::int32_t id = kUnknownMessageId;
    if (length >= sizeof(id)) {
        std::memcpy(&id, data, sizeof(id));
        return id;
    }
    WppIPCMessageHeader header;
    header.deserialize(data, length);
    return header.messageId;
}

}  // namespace wifi_projection_protocol
