#pragma once

#include "LibWpp/WppIPCMessageCore.h"

namespace wifi_projection_protocol {

/// A message without a body: what a receiver decodes first to learn the id, and the form of the header-only
/// commands. A buffer too short for an id leaves the id as it is.
class WppIPCMessageHeader : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kUnknownMessageId = -1;

    WppIPCMessageHeader() : WppIPCMessageCore(kUnknownMessageId) {}
    explicit WppIPCMessageHeader(std::int32_t id) : WppIPCMessageCore(id) {}
    ~WppIPCMessageHeader() override;

    /// The id of an encoded message. Takes no memory, unless the bytes are too few for an id.
    static std::int32_t idOf(const void* data, unsigned length);
};

}  // namespace wifi_projection_protocol
