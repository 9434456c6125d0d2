#pragma once

#include <cstdint>

#include "LibWpp/MessageFields.h"
#include "LibWpp/WppIPCMessageCore.h"

namespace wifi_projection_protocol {

/// A message with a fixed id whose body is a list of fields.
///
/// `Message` is the message class itself. It names its fields once, in wire order, as a tuple of references
/// that its fields() returns; writing and reading the body follow that list.
template <class Message, std::int32_t Id>
class WppIPCMessage : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = Id;

    void writeBody(QMSerialization::Archive& body) override {
        writeFields(body, static_cast<Message*>(this)->fields());
    }

    void readBody(QMSerialization::Archive& body) override {
        readFields(body, static_cast<Message*>(this)->fields());
    }

protected:
    WppIPCMessage() : WppIPCMessageCore(Id) {}
};

}  // namespace wifi_projection_protocol
