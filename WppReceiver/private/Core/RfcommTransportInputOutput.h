#pragma once

#include <cstdint>

#include "Core/RfcommTransportAdapter.h"
#include "wifi_projection_protocol/TransportInputOutput.h"

namespace wifi_projection_protocol {

/// The library's RFCOMM transport of one phone. The library owns it; destroying it closes the link.
class RfcommTransportInputOutput final : public TransportInputOutput {
public:
    /// The service that the phone's SPP link belongs to.
    static constexpr const char* kServiceUuid = "4DE17A0052CB11E6BDF40800200C9A66";

    explicit RfcommTransportInputOutput(int deviceId)
        : adapter(static_cast<std::uint8_t>(deviceId), kServiceUuid) {}

    int read(void* destination, unsigned length) override { return adapter.read(destination, length); }
    int write(const void* source, unsigned length) override { return adapter.write(source, length); }
    void close() override { adapter.close(); }

private:
    RfcommTransportAdapter adapter;
};

}  // namespace wifi_projection_protocol
