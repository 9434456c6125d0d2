#include "Simulator/private/Io/Frame.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

using Payloads = std::vector<std::string>;

TEST(Frame, LengthWordIsInHostOrderInFrontOfThePayload) {
    const std::string frame = encodeFrame("abc");
    const std::uint32_t length = 3;
    EXPECT_EQ(frame, std::string(static_cast<const char*>(static_cast<const void*>(&length)), 4) + "abc");
}

TEST(Frame, AnnouncedLengthMayDifferFromThePayload) {
    const std::string frame = encodeFrame(100, "abc");
    std::uint32_t length = 0;
    frame.copy(static_cast<char*>(static_cast<void*>(&length)), sizeof(length));
    EXPECT_EQ(length, 100u);
    EXPECT_EQ(frame.substr(4), "abc");
}

TEST(FrameDecoder, TakesSeveralFramesAtOnce) {
    FrameDecoder decoder;
    EXPECT_EQ(decoder.feed(encodeFrame("one") + encodeFrame("two")), (Payloads{"one", "two"}));
}

TEST(FrameDecoder, TakesAFrameByteByByte) {
    FrameDecoder decoder;
    const std::string frame = encodeFrame("payload");
    for (std::size_t at = 0; at + 1 < frame.size(); ++at) {
        EXPECT_EQ(decoder.feed(frame.substr(at, 1)), Payloads{});
    }
    EXPECT_EQ(decoder.feed(frame.substr(frame.size() - 1)), Payloads{"payload"});
}

TEST(FrameDecoder, EmptyPayloadIsAFrame) {
    FrameDecoder decoder;
    EXPECT_EQ(decoder.feed(encodeFrame("")), Payloads{""});
}

TEST(FrameDecoder, LongestPayloadIsTaken) {
    FrameDecoder decoder;
    const std::string longest(FrameDecoder::kLongestPayload, 'x');
    EXPECT_EQ(decoder.feed(encodeFrame(longest)), Payloads{longest});
    EXPECT_FALSE(decoder.isBroken());
}

TEST(FrameDecoder, LongerPayloadBreaksTheStreamForGood) {
    FrameDecoder decoder;
    EXPECT_EQ(decoder.feed(encodeFrame(FrameDecoder::kLongestPayload + 1, "x")), Payloads{});
    EXPECT_TRUE(decoder.isBroken());
    EXPECT_EQ(decoder.feed(encodeFrame("later")), Payloads{});
}

}  // namespace
}  // namespace simulator
