#pragma once

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "LibWpp/WppIPCMessageCore.h"

// The messages between the receiver and the Bluetooth process, which owns the phones' RFCOMM (SPP) channels.
// Each is answered by a one-byte frame.
namespace wifi_projection_protocol {

/// The byte field of an SPP data message: `data` and `length` are what is sent; after decoding `data` points
/// into `storage`.
struct SppBytes {
    const std::uint8_t*& data;
    std::uint32_t& length;
    std::vector<std::uint8_t>& storage;
};

/// The field list that both SPP data messages have.
using SppDataFields = std::tuple<std::uint8_t&, std::string&, SppBytes>;

/// Bytes for the phone, receiver to Bluetooth process.
class SendSppDataSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 3000;

    SendSppDataSerializer() : WppIPCMessageCore(kMessageId) {}
    /// Borrows the bytes until the message is serialised.
    SendSppDataSerializer(unsigned deviceId, std::string serviceUuid, const std::uint8_t* bytes,
                          std::uint32_t byteCount);
    ~SendSppDataSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;
    std::string uuid;
    const std::uint8_t* data = nullptr;  ///< the caller's bytes when sending, dataStorage's after decoding
    std::uint32_t dataLength = 0;
    std::vector<std::uint8_t> dataStorage;

private:
    SppDataFields fields();
};

/// Asks the Bluetooth process to drop an SPP link.
class DisconnectSppSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 3001;

    DisconnectSppSerializer() : WppIPCMessageCore(kMessageId) {}
    DisconnectSppSerializer(unsigned deviceId, std::string serviceUuid);
    ~DisconnectSppSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;
    std::string uuid;

private:
    auto fields() { return std::tie(btDeviceId, uuid); }
};

/// Bytes from the phone, Bluetooth process to receiver.
class RecvSppDataSerializer : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 4000;

    RecvSppDataSerializer() : WppIPCMessageCore(kMessageId) {}
    /// Borrows the bytes until the message is serialised.
    RecvSppDataSerializer(unsigned deviceId, std::string serviceUuid, const std::uint8_t* bytes,
                          std::uint32_t byteCount);
    ~RecvSppDataSerializer() override;

    void writeBody(QMSerialization::Archive& body) override;
    void readBody(QMSerialization::Archive& body) override;

    std::uint8_t btDeviceId = 0;
    std::string uuid;
    const std::uint8_t* data = nullptr;  ///< the caller's bytes when sending, dataStorage's after decoding
    std::uint32_t dataLength = 0;
    std::vector<std::uint8_t> dataStorage;

private:
    SppDataFields fields();
};

}  // namespace wifi_projection_protocol
