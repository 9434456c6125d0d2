#pragma once

#include <string>

#include "LibWpp/WppIPCMessageCore.h"

namespace bench {

/// Bytes that are a message already, so that what is measured is how they travel and not how they are encoded.
class EncodedMessage final : public wifi_projection_protocol::WppIPCMessageCore {
public:
    explicit EncodedMessage(const std::string& bytes) : WppIPCMessageCore(0) {
        archive.write(bytes.data(), static_cast<int>(bytes.size()));
    }

    bool serialize() override { return true; }
};

}  // namespace bench
