#include "LibWpp/WppIPCMessageCore.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "LibWpp/WppIPCMessageHeader.h"
#include "Tests/LibWpp/MessageChecks.h"
#include "Tests/Support/LogCapture.h"

namespace {

using namespace wifi_projection_protocol;
using namespace wpp_test;

/// A message of a big-endian number and a text.
class NumberAndText : public WppIPCMessageCore {
public:
    static constexpr std::int32_t kMessageId = 5;

    NumberAndText() : WppIPCMessageCore(kMessageId) {}

    void writeBody(QMSerialization::Archive& body) override {
        body.write(number);
        body.write(text);
    }
    void readBody(QMSerialization::Archive& body) override {
        body.read(number);
        body.read(text);
    }

    std::uint32_t number = 0;
    std::string text;
};

TEST(WppIPCMessageCore, IdIsInHostOrderAndTheBodyBigEndian) {
    NumberAndText message;
    message.number = 1;
    EXPECT_EQ(encoded(message), std::string("\5\0\0\0\0\0\0\1\0\0\0\0", 12));
}

TEST(WppIPCMessageCore, SerializingAgainStartsAfresh) {
    NumberAndText message;
    encoded(message);
    EXPECT_EQ(encoded(message).size(), 12U);
}

TEST(WppIPCMessageCore, DecodingReadsTheIdToo) {
    NumberAndText message;
    EXPECT_TRUE(decode(message, std::string("\6\0\0\0\0\0\0\2\0\0\0\1x", 13)));
    EXPECT_EQ(message.messageId, 6);
    EXPECT_EQ(message.number, 2U);
    EXPECT_EQ(message.text, "x");
}

TEST(WppIPCMessageCore, DecodingAgainStartsAfresh) {
    NumberAndText message;
    const std::string bytes("\5\0\0\0\0\0\0\2\0\0\0\1x", 13);
    decode(message, bytes);
    decode(message, bytes);
    EXPECT_EQ(message.archive.getSize(), bytes.size());
    EXPECT_EQ(message.text, "x");
}

TEST(WppIPCMessageCore, MessageCanBeNestedInAnArchive) {
    NumberAndText inner;
    inner.number = 9;
    QMSerialization::Archive archive;
    archive.write(inner);
    NumberAndText outer;
    archive.read(outer);
    EXPECT_EQ(outer.number, 9U);
    EXPECT_EQ(archive.getRemaining(), 0U);
}

TEST(WppIPCMessageHeader, Id3000IsExactlyFourBytes) {
    WppIPCMessageHeader header(3000);
    EXPECT_EQ(encoded(header), std::string("\xB8\x0B\0\0", 4));
}

TEST(WppIPCMessageHeader, IdStartsAtMinusOne) {
    EXPECT_EQ(WppIPCMessageHeader().messageId, -1);
}

TEST(WppIPCMessageHeader, BufferOfTwoBytesLeavesTheIdAndIsLogged) {
    WppIPCMessageHeader header;
    const LogCapture log;
    EXPECT_TRUE(decode(header, "\1\1"));
    EXPECT_EQ(header.messageId, -1);
    EXPECT_EQ(log.count("buffer size over!"), 1U);
}

TEST(WppIPCMessageHeader, IdIsReadFromALongerMessage) {
    WppIPCMessageHeader header;
    decode(header, std::string("\xD3\x07\0\0\7", 5));
    EXPECT_EQ(header.messageId, 2003);
}

TEST(WppIPCMessageHeader, NegativeIdIsKept) {
    WppIPCMessageHeader header(0);
    decode(header, "\xFE\xFF\xFF\xFF");
    EXPECT_EQ(header.messageId, -2);
}

}  // namespace
