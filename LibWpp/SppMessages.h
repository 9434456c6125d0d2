#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "LibWpp/WppIPCMessage.h"

// The messages between the receiver and the Bluetooth process, which owns the phones' RFCOMM (SPP) channels.
// Each is answered by a one-byte frame.
namespace wifi_projection_protocol {

/// What both SPP data messages consist of.
template <class Message, std::int32_t Id>
class SppDataMessage : public WppIPCMessage<Message, Id> {
public:
    SppDataMessage() = default;
    /// Borrows the bytes until the message is serialised.
    SppDataMessage(unsigned deviceId, std::string serviceUuid, const std::uint8_t* bytes,
                   std::uint32_t byteCount)
        : btDeviceId(lowByte(deviceId)), uuid(std::move(serviceUuid)), data(bytes), dataLength(byteCount) {}

    std::tuple<std::uint8_t&, std::string&, SppBytes> fields() {
        return {btDeviceId, uuid, {data, dataLength, dataStorage}};
    }

    std::uint8_t btDeviceId = 0;
    std::string uuid;
    const std::uint8_t* data = nullptr;  ///< the caller's bytes when sending, dataStorage's after decoding
    std::uint32_t dataLength = 0;
    std::vector<std::uint8_t> dataStorage;
};

/// Bytes for the phone, receiver to Bluetooth process.
class SendSppDataSerializer : public SppDataMessage<SendSppDataSerializer, 3000> {
public:
    using SppDataMessage::SppDataMessage;
};

/// Asks the Bluetooth process to drop an SPP link.
class DisconnectSppSerializer : public WppIPCMessage<DisconnectSppSerializer, 3001> {
public:
    DisconnectSppSerializer() = default;
    DisconnectSppSerializer(unsigned deviceId, std::string serviceUuid)
        : btDeviceId(lowByte(deviceId)), uuid(std::move(serviceUuid)) {}

    auto fields() { return std::tie(btDeviceId, uuid); }

    std::uint8_t btDeviceId = 0;
    std::string uuid;
};

/// Bytes from the phone, Bluetooth process to receiver.
class RecvSppDataSerializer : public SppDataMessage<RecvSppDataSerializer, 4000> {
public:
    using SppDataMessage::SppDataMessage;
};

}  // namespace wifi_projection_protocol
