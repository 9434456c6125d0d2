#include "phone/PhoneMessageCodec.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "phone/PhoneProtocol.pb.h"

namespace phone_protocol {
namespace {

std::string framed(std::size_t length, const std::string& body) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) {
        bytes.push_back(static_cast<char>((length >> shift) & 0xFF));
    }
    return bytes + body;
}

struct Fed {
    bool accepted;
    std::vector<std::string> messages;
};

Fed feed(PhoneMessageDecoder& decoder, const std::string& bytes) {
    Fed fed{false, {}};
    fed.accepted = decoder.feed(bytes.data(), bytes.size(), fed.messages);
    return fed;
}

TEST(PhoneMessageCodec, LengthGoesOutBigEndianInFourBytes) {
    PhoneMessage message;
    message.mutable_start_result()->set_result(5);

    EXPECT_EQ(encodeMessage(message), std::string("\0\0\0\x04\x32\x02\x08\x05", 8));
}

TEST(PhoneMessageCodec, MessageComesBackAsItWentOut) {
    PhoneMessage message;
    message.mutable_hello()->set_client_id("phone");
    PhoneMessageDecoder decoder;

    const Fed fed = feed(decoder, encodeMessage(message));

    ASSERT_EQ(fed.messages.size(), 1U);
    PhoneMessage back;
    ASSERT_TRUE(back.ParseFromString(fed.messages[0]));
    EXPECT_EQ(back.hello().client_id(), "phone");
}

TEST(PhoneMessageCodec, MessageWithoutContentsIsNotEncoded) {
    EXPECT_EQ(encodeMessage(PhoneMessage()), "");
}

TEST(PhoneMessageCodec, LargestMessageIsEncodedAndOneByteMoreIsNot) {
    PhoneMessage message;
    std::string& text = *message.mutable_hello()->mutable_client_id();
    text.assign(kMaxMessageSize - 8, 'x');  // two field tags and two lengths of three bytes
    ASSERT_EQ(message.ByteSizeLong(), kMaxMessageSize);
    EXPECT_EQ(encodeMessage(message).size(), kLengthPrefixSize + kMaxMessageSize);

    text.push_back('x');
    EXPECT_EQ(encodeMessage(message), "");
}

TEST(PhoneMessageCodec, MessageMayComeByteByByte) {
    PhoneMessageDecoder decoder;
    std::vector<std::string> messages;
    for (const char byte : framed(3, "abc")) {
        EXPECT_TRUE(messages.empty());
        EXPECT_TRUE(decoder.feed(&byte, 1, messages));
    }
    EXPECT_EQ(messages, std::vector<std::string>{"abc"});
}

TEST(PhoneMessageCodec, SeveralMessagesMayComeAtOnce) {
    PhoneMessageDecoder decoder;
    const Fed fed = feed(decoder, framed(1, "a") + framed(2, "bc") + framed(3, "d"));
    EXPECT_TRUE(fed.accepted);
    EXPECT_EQ(fed.messages, (std::vector<std::string>{"a", "bc"}));
    EXPECT_EQ(feed(decoder, "ef").messages, std::vector<std::string>{"def"});
}

TEST(PhoneMessageCodec, DecoderKnowsWhetherAMessageHasBegun) {
    PhoneMessageDecoder decoder;
    EXPECT_FALSE(decoder.isMidMessage());
    feed(decoder, framed(3, "ab"));
    EXPECT_TRUE(decoder.isMidMessage());
    feed(decoder, "c");
    EXPECT_FALSE(decoder.isMidMessage());
}

TEST(PhoneMessageCodec, LargestLengthIsAccepted) {
    PhoneMessageDecoder decoder;
    const Fed fed = feed(decoder, framed(kMaxMessageSize, std::string(kMaxMessageSize, 'x')));
    ASSERT_EQ(fed.messages.size(), 1U);
    EXPECT_EQ(fed.messages[0].size(), kMaxMessageSize);
}

TEST(PhoneMessageCodec, LengthAboveTheLimitIsAnErrorAtOnce) {
    PhoneMessageDecoder decoder;
    EXPECT_FALSE(feed(decoder, framed(kMaxMessageSize + 1, "")).accepted);
}

TEST(PhoneMessageCodec, LengthZeroIsAnError) {
    PhoneMessageDecoder decoder;
    EXPECT_FALSE(feed(decoder, framed(0, "")).accepted);
}

TEST(PhoneMessageCodec, ErrorLasts) {
    PhoneMessageDecoder decoder;
    feed(decoder, framed(0, ""));
    const Fed fed = feed(decoder, framed(1, "a"));
    EXPECT_FALSE(fed.accepted);
    EXPECT_TRUE(fed.messages.empty());
    EXPECT_FALSE(decoder.isMidMessage());
}

TEST(PhoneMessageCodec, MessagesAheadOfAnErrorStillCome) {
    PhoneMessageDecoder decoder;
    const Fed fed = feed(decoder, framed(1, "a") + framed(0, ""));
    EXPECT_FALSE(fed.accepted);
    EXPECT_EQ(fed.messages, std::vector<std::string>{"a"});
}

}  // namespace
}  // namespace phone_protocol
