#include "LibWpp/SppMessages.h"
#include "LibWpp/SppReceivedData.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <tuple>
#include <vector>

#include "Tests/LibWpp/MessageChecks.h"
#include "Tests/Support/LogCapture.h"

namespace {

using namespace wifi_projection_protocol;
using namespace wpp_test;
using testing::IsEmpty;

const std::string kLong(70000, 'x');
const std::string kUuid = "0123456789abcdef0123456789abcdef";

constexpr auto kSppFields = [](const auto& m) {
    return std::tuple(m.btDeviceId, m.uuid, std::vector<std::uint8_t>(m.data, m.data + m.dataLength));
};

std::vector<std::uint8_t> largeData() {
    std::vector<std::uint8_t> data(100020, 0xFF);
    std::fill_n(data.begin(), 20, std::uint8_t{0});
    return data;
}

template <class Message>
void expectSppData(const char* name) {
    const std::vector<std::uint8_t> three{0x0A, 0x0B, 0x0C};
    const std::vector<std::uint8_t> zeros{1, 0, 2};
    const std::vector<std::uint8_t> large = largeData();
    expectGolden(name, "ordinary", Message(2, kUuid, three.data(), 3), kSppFields);
    expectGolden(name, "empty", Message(), kSppFields);
    expectGolden(name, "extreme", Message(255, kLong, large.data(), static_cast<std::uint32_t>(large.size())),
                 kSppFields);
    expectGolden(name, "nul", Message(2, std::string("ab\0cd", 5), zeros.data(), 3),
                 Message(2, "ab", zeros.data(), 3), kSppFields);
}

TEST(SppMessages, SendSppData) {
    expectSppData<SendSppDataSerializer>("SendSppData");
}

TEST(SppMessages, RecvSppData) {
    expectSppData<RecvSppDataSerializer>("RecvSppData");
}

TEST(SppMessages, DisconnectSpp) {
    const auto fields = [](const auto& m) { return std::tie(m.btDeviceId, m.uuid); };
    expectGolden("DisconnectSpp", "ordinary", DisconnectSppSerializer(2, kUuid), fields);
    expectGolden("DisconnectSpp", "empty", DisconnectSppSerializer(), fields);
    expectGolden("DisconnectSpp", "extreme", DisconnectSppSerializer(255, kLong), fields);
}

TEST(SppMessages, ThreeBytesWithA32CharacterUuidAre48Bytes) {
    EXPECT_EQ(goldenBytes("SendSppData", "ordinary").size(), 48U);
}

TEST(SppMessages, DecodedDataLiesInTheMessagesOwnStorage) {
    RecvSppDataSerializer message;
    decode(message, goldenBytes("RecvSppData", "ordinary"));
    EXPECT_EQ(message.data, message.dataStorage.data());
    EXPECT_EQ(message.dataStorage.size(), 3U);
}

TEST(SppMessages, AnnouncedLengthThatIsNotThereYieldsNoDataAndIsLogged) {
    RecvSppDataSerializer message;
    const LogCapture log;
    decode(message, std::string("\xA0\x0F\0\0\2\0\0\0\1u\xFF\xFF\xFF\xFF\1\2\3", 17));
    EXPECT_EQ(message.uuid, "u");
    EXPECT_EQ(message.dataLength, 0U);
    EXPECT_THAT(message.dataStorage, IsEmpty());
    EXPECT_EQ(log.count("buffer size over!"), 1U);
}

TEST(SppMessages, DecodingAgainReplacesLongerData) {
    RecvSppDataSerializer message;
    decode(message, goldenBytes("RecvSppData", "extreme"));
    decode(message, goldenBytes("RecvSppData", "empty"));
    EXPECT_EQ(message.dataLength, 0U);
    EXPECT_THAT(message.dataStorage, IsEmpty());
}

TEST(SppMessages, ObserversRecordIsAnnouncedWithItsSizeOnTheTarget) {
    EXPECT_EQ(kSppReceivedDataSize, 16);
}

TEST(SppMessages, ObserversRecordTakesTwelveBytesBesideItsTextOnA32BitMachine) {
    constexpr std::size_t kBesideText = sizeof(void*) == 4 ? 12 : 24;
    EXPECT_EQ(sizeof(SppReceivedData) - sizeof(std::string), kBesideText);
    // With a text of one pointer, as the target's C++ library has it, that makes the announced size.
    EXPECT_EQ(kSppReceivedDataSize, 12 + 4);
}

}  // namespace
