#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace google::protobuf {
class MessageLite;
}

// Include paths of the target phone-protocol: "phone/PhoneMessageCodec.h" and "phone/PhoneProtocol.pb.h".
namespace phone_protocol {

/// Bytes of the big-endian length in front of each message.
constexpr std::size_t kLengthPrefixSize = 4;

/// Largest serialised message, in bytes; the smallest is 1.
constexpr std::size_t kMaxMessageSize = 65536;

/// @return `message` as it goes over the link, its length in front; empty when its size is not 1 to
/// kMaxMessageSize.
std::string encodeMessage(const google::protobuf::MessageLite& message);

/// Cuts a stream of bytes into serialised messages. Pure: no socket, no thread, and no more memory than the
/// bytes that have arrived. A length outside 1 to kMaxMessageSize is an error for good. One thread at a time.
class PhoneMessageDecoder {
public:
    /// Takes the next `size` bytes of the stream, in pieces of any size, and appends to `messages` those that
    /// they complete. @return false when the stream is in error; complete messages ahead of the error are
    /// still appended, later bytes are ignored.
    bool feed(const void* bytes, std::size_t size, std::vector<std::string>& messages);

    /// Has a message begun whose end has not arrived yet?
    bool isMidMessage() const { return !failed && !buffer.empty(); }

private:
    bool takeMessage(std::size_t& cursor, std::vector<std::string>& messages);

    std::string buffer;  // the begun message, its length in front
    bool failed = false;
};

}  // namespace phone_protocol
