#pragma once

#include <gtest/gtest.h>

#include <string>

#include "LibWpp/WppIPCMessageCore.h"
#include "Tests/LibWpp/GoldenMessages.h"

namespace wpp_test {

/// The bytes that a message goes out as.
inline std::string encoded(wifi_projection_protocol::WppIPCMessageCore& message) {
    EXPECT_TRUE(message.serialize());
    const auto* bytes = message.archive.getBuffer();
    return std::string(bytes, bytes + message.archive.getSize());
}

inline bool decode(wifi_projection_protocol::WppIPCMessageCore& message, const std::string& bytes) {
    return message.deserialize(bytes.data(), static_cast<unsigned>(bytes.size()));
}

/// `message` must go out as the golden bytes, and these must come in with the fields of `received`.
/// `fieldsOf` makes a comparable tuple of a message's fields.
template <class Message, class FieldsOf>
void expectGolden(const char* name, const char* variant, Message&& message, const Message& received,
                  FieldsOf fieldsOf) {
    SCOPED_TRACE(std::string(name) + " " + variant);
    const std::string& golden = goldenBytes(name, variant);
    EXPECT_TRUE(encoded(message) == golden) << "the bytes that go out differ";
    Message decodedMessage;
    EXPECT_TRUE(decode(decodedMessage, golden));
    EXPECT_EQ(decodedMessage.messageId, Message::kMessageId);
    EXPECT_TRUE(fieldsOf(decodedMessage) == fieldsOf(received)) << "the fields that come in differ";
}

/// The usual case: what comes in is what went out.
template <class Message, class FieldsOf>
void expectGolden(const char* name, const char* variant, Message&& message, FieldsOf fieldsOf) {
    expectGolden(name, variant, std::move(message), message, fieldsOf);
}

}  // namespace wpp_test
