#pragma once

#include <cstdint>

#include "Pattern/QMSerializable.h"

namespace wifi_projection_protocol {

/// A message between the receiver and its peer processes: a 4-byte id in host byte order, then the body
/// fields of the message class in archive encoding.
///
/// To send, fill the fields, call serialize() and send getBuffer()/getSize() of the inherited `archive` as
/// one frame. To receive, decode a WppIPCMessageHeader to learn the id, then the whole buffer again into the
/// message class of that id. Decoding never fails: the archive logs what is missing, which stays 0 or empty.
///
/// A plain value without locks: one thread at a time.
class WppIPCMessageCore : public QMSerialization::QMSerializable {
public:
    ~WppIPCMessageCore() override;

    /// Writes header and body into the emptied archive. @return always true.
    bool serialize() override;
    /// Loads the bytes into the emptied archive and reads header and body. @return always true.
    bool deserialize(const void* data, unsigned length) override;

    virtual void writeHeader();
    virtual void readHeader();
    virtual void writeBody(QMSerialization::Archive& body);
    virtual void readBody(QMSerialization::Archive& body);

    std::int32_t messageId;

protected:
    explicit WppIPCMessageCore(std::int32_t id) : messageId(id) {}
};

}  // namespace wifi_projection_protocol
