// The cutting of a phone's bytes into messages: the pieces in which they arrive make no difference, no message is
// outside its limits, and what is cut out encodes to the bytes that came. The first byte chooses the pieces.

#include <string>
#include <vector>

#include "Tests/Fuzz/Support/FuzzCheck.h"
#include "Tests/Fuzz/Support/FuzzInput.h"
#include "phone/PhoneMessageCodec.h"
#include "phone/PhoneProtocol.pb.h"

namespace {

using phone_protocol::kLengthPrefixSize;
using phone_protocol::kMaxMessageSize;
using phone_protocol::PhoneMessageDecoder;

/// What the stream must be cut into.
struct Model {
    explicit Model(const std::string& stream) {
        std::size_t at = 0;
        while (stream.size() - at >= kLengthPrefixSize && !failed) {
            std::size_t length = 0;
            for (std::size_t i = 0; i < kLengthPrefixSize; ++i) {
                length = length * 256 + static_cast<unsigned char>(stream[at + i]);
            }
            failed = length == 0 || length > kMaxMessageSize;
            if (failed || stream.size() - at - kLengthPrefixSize < length) {
                break;
            }
            messages.push_back(stream.substr(at + kLengthPrefixSize, length));
            at += kLengthPrefixSize + length;
        }
        isMidMessage = !failed && at < stream.size();
    }

    std::vector<std::string> messages;
    bool failed = false;
    bool isMidMessage = false;
};

/// A message that can be parsed encodes to bytes that are cut and parsed to the same message again.
template <class Message>
void checkMessage(const std::string& payload) {
    Message message;
    FUZZ_CHECK(phone_protocol::encodeMessage(message).empty());
    if (!message.ParseFromString(payload)) {
        return;
    }
    const std::string encoded = phone_protocol::encodeMessage(message);
    const std::size_t size = message.ByteSizeLong();
    FUZZ_CHECK(encoded.empty() == (size == 0 || size > kMaxMessageSize));
    if (encoded.empty()) {
        return;
    }
    FUZZ_CHECK(encoded.size() == kLengthPrefixSize + size);
    PhoneMessageDecoder decoder;
    std::vector<std::string> cut;
    FUZZ_CHECK(decoder.feed(encoded.data(), encoded.size(), cut) && cut.size() == 1);
    FUZZ_CHECK(!decoder.isMidMessage());
    Message again;
    FUZZ_CHECK(again.ParseFromString(cut[0]));
    FUZZ_CHECK(again.SerializeAsString() == message.SerializeAsString());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    wpp_test::FuzzInput input(data, size);
    const std::size_t largestPiece = input.takeByte() + std::size_t{1};
    const std::string stream = input.takeText(size);
    const Model model(stream);

    PhoneMessageDecoder decoder;
    std::vector<std::string> messages;
    bool isWhole = true;
    for (std::size_t at = 0; at < stream.size(); at += largestPiece) {
        const std::string piece = stream.substr(at, largestPiece);
        isWhole = decoder.feed(piece.data(), piece.size(), messages);
    }
    FUZZ_CHECK(isWhole == !model.failed);
    FUZZ_CHECK(messages == model.messages);
    FUZZ_CHECK(decoder.isMidMessage() == model.isMidMessage);
    if (model.failed) {
        const char more[] = {0, 0, 0, 1, 'a'};
        FUZZ_CHECK(!decoder.feed(more, sizeof(more), messages) && messages == model.messages);
    }
    for (const std::string& message : messages) {
        checkMessage<phone_protocol::PhoneMessage>(message);
        checkMessage<phone_protocol::HeadUnitMessage>(message);
    }
    return 0;
}
