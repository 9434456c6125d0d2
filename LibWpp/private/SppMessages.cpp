#include "LibWpp/SppMessages.h"

#include <utility>

#include "LibWpp/private/MessageFields.h"

namespace wifi_projection_protocol {

SendSppDataSerializer::SendSppDataSerializer(unsigned deviceId, std::string serviceUuid,
                                             const std::uint8_t* bytes, std::uint32_t byteCount)
    : WppIPCMessageCore(kMessageId),
      btDeviceId(lowByte(deviceId)),
      uuid(std::move(serviceUuid)),
      data(bytes),
      dataLength(byteCount) {}

SendSppDataSerializer::~SendSppDataSerializer() = default;

SppDataFields SendSppDataSerializer::fields() {
    return {btDeviceId, uuid, {data, dataLength, dataStorage}};
}

void SendSppDataSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void SendSppDataSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

DisconnectSppSerializer::DisconnectSppSerializer(unsigned deviceId, std::string serviceUuid)
    : WppIPCMessageCore(kMessageId), btDeviceId(lowByte(deviceId)), uuid(std::move(serviceUuid)) {}

DisconnectSppSerializer::~DisconnectSppSerializer() = default;

void DisconnectSppSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void DisconnectSppSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

RecvSppDataSerializer::RecvSppDataSerializer(unsigned deviceId, std::string serviceUuid,
                                             const std::uint8_t* bytes, std::uint32_t byteCount)
    : WppIPCMessageCore(kMessageId),
      btDeviceId(lowByte(deviceId)),
      uuid(std::move(serviceUuid)),
      data(bytes),
      dataLength(byteCount) {}

RecvSppDataSerializer::~RecvSppDataSerializer() = default;

SppDataFields RecvSppDataSerializer::fields() {
    return {btDeviceId, uuid, {data, dataLength, dataStorage}};
}

void RecvSppDataSerializer::writeBody(QMSerialization::Archive& body) {
    writeFields(body, fields());
}

void RecvSppDataSerializer::readBody(QMSerialization::Archive& body) {
    readFields(body, fields());
}

}  // namespace wifi_projection_protocol
