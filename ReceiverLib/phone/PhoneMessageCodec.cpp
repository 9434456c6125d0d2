#include "phone/PhoneMessageCodec.h"

#include <google/protobuf/message_lite.h>

namespace phone_protocol {

namespace {

std::uint32_t readLength(const std::string& buffer, std::size_t cursor) {
    std::uint32_t length = 0;
    for (std::size_t i = 0; i < kLengthPrefixSize; ++i) {
        length = (length << 8) | static_cast<unsigned char>(buffer[cursor + i]);
    }
    return length;
}

void appendLength(std::string& out, std::size_t length) {
    for (int shift = 24; shift >= 0; shift -= 8) {
        out.push_back(static_cast<char>((length >> shift) & 0xFF));
    }
}

}  // namespace

std::string encodeMessage(const google::protobuf::MessageLite& message) {
    const std::size_t size = message.ByteSizeLong();
    if (size == 0 || size > kMaxMessageSize) {
        return {};
    }
    std::string out;
    out.reserve(kLengthPrefixSize + size);
    appendLength(out, size);
    return message.AppendToString(&out) ? out : std::string();
}

bool PhoneMessageDecoder::feed(const void* bytes, std::size_t size, std::vector<std::string>& messages) {
    if (failed) {
        return false;
    }
    buffer.append(static_cast<const char*>(bytes), size);
    std::size_t cursor = 0;
    while (takeMessage(cursor, messages)) {
    }
    buffer.erase(0, cursor);
    return !failed;
}

bool PhoneMessageDecoder::takeMessage(std::size_t& cursor, std::vector<std::string>& messages) {
    const std::size_t available = buffer.size() - cursor;
    if (available < kLengthPrefixSize) {
        return false;
    }
    const std::uint32_t length = readLength(buffer, cursor);
    if (length == 0 || length > kMaxMessageSize) {
        failed = true;
        return false;
    }
    if (available - kLengthPrefixSize < length) {
        return false;
    }
    messages.push_back(buffer.substr(cursor + kLengthPrefixSize, length));
    cursor += kLengthPrefixSize + length;
    return true;
}

}  // namespace phone_protocol
