#include "LibWpp/ControlMessages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <tuple>
#include <vector>

#include "LibWpp/WppIPCMessageHeader.h"
#include "Tests/LibWpp/MessageChecks.h"
#include "Tests/Support/LogCapture.h"

namespace {

using namespace wifi_projection_protocol;
using namespace wpp_test;
using testing::ElementsAre;
using testing::IsEmpty;
using wifi_discovery::StartRequestReason;
using wifi_discovery::WifiChannelType;

constexpr std::uint32_t kMax = std::numeric_limits<std::uint32_t>::max();
constexpr const char* kOver = "buffer size over!";

const std::string kLong(70000, 'x');

constexpr auto kDeviceId = [](const auto& m) { return std::tie(m.btDeviceId); };

/// The three variants of a message that carries a device id only.
template <class Message>
void expectDeviceMessage(const char* name) {
    expectGolden(name, "ordinary", Message(7), kDeviceId);
    expectGolden(name, "empty", Message(0), kDeviceId);
    expectGolden(name, "extreme", Message(255), kDeviceId);
}

common::HeadUnitInfo headUnit(const std::vector<std::string>& texts) {
    common::HeadUnitInfo info;
    info.set_text_1(texts.at(0));
    info.set_text_2(texts.at(1));
    info.set_text_3(texts.at(2));
    info.set_text_4(texts.at(3));
    info.set_text_5(texts.at(4));
    info.set_text_6(texts.at(5));
    info.set_text_7(texts.at(6));
    info.set_text_8(texts.at(7));
    return info;
}

TEST(ControlMessages, TerminateIsItsIdAlone) {
    WppIPCMessageHeader message(kTerminateMessageId);
    EXPECT_EQ(encoded(message), goldenBytes("Terminate", "ordinary"));
}

TEST(ControlMessages, StopWifiProjectionProtocolIsItsIdAlone) {
    WppIPCMessageHeader message(kStopWifiProjectionProtocolMessageId);
    EXPECT_EQ(encoded(message), goldenBytes("StopWifiProjectionProtocol", "ordinary"));
}

TEST(ControlMessages, StartWifiProjectionProtocol) {
    const auto fields = [](const auto& m) {
        const auto& info = m.headUnitInfo;
        return std::tuple(m.channelType, m.channelList, info.text_1(), info.text_2(), info.text_3(),
                          info.text_4(), info.text_5(), info.text_6(), info.text_7(), info.text_8(),
                          m.sslCertificate, m.sslPrivateKey, m.sslCaCertificate);
    };
    const auto* const name = "StartWifiProjectionProtocol";
    expectGolden(
        name, "ordinary",
        StartWifiProjectionProtocolSerializer(
            WifiChannelType{2}, {36, 40, 149},
            headUnit({"hu-1", "hu-2", "hu-3", "hu-4", "hu-5", "hu-6", "hu-7", "hu-8"}), "CERT", "KEY", "CA"),
        fields);
    expectGolden(name, "empty", StartWifiProjectionProtocolSerializer(), fields);
    expectGolden(
        name, "extreme",
        StartWifiProjectionProtocolSerializer(WifiChannelType{kMax}, {0, kMax, 0x01020304},
                                              headUnit({kLong, "", "\xC3\xA9", "", "", "", "", "\xFF\x01"}),
                                              kLong, "\x01\x7F\x80\xFF", "\n"),
        fields);
}

TEST(ControlMessages, SetProjectionPortInfo) {
    const auto fields = [](const auto& m) { return std::tie(m.ipAddress, m.port); };
    expectGolden("SetProjectionPortInfo", "ordinary", SetProjectionPortInfoSerializer("192.168.0.1", 258),
                 fields);
    expectGolden("SetProjectionPortInfo", "empty", SetProjectionPortInfoSerializer(), fields);
    expectGolden("SetProjectionPortInfo", "extreme", SetProjectionPortInfoSerializer(kLong, 65535), fields);
}

TEST(ControlMessages, SetWifiInfo) {
    const auto fields = [](const auto& m) {
        return std::tie(m.wifiInfo1, m.wifiInfo2, m.wifiInfo3, m.wifiInfo4);
    };
    expectGolden("SetWifiInfo", "ordinary", SetWifiInfoSerializer("net", "aa:bb:cc", "secret", 8), fields);
    expectGolden("SetWifiInfo", "empty", SetWifiInfoSerializer(), fields);
    expectGolden("SetWifiInfo", "extreme", SetWifiInfoSerializer(kLong, "\xFF\xFE", "", kMax), fields);
}

TEST(ControlMessages, TextsAreCutAtTheirFirstZeroByteWhenTheyComeIn) {
    const auto fields = [](const auto& m) {
        return std::tie(m.wifiInfo1, m.wifiInfo2, m.wifiInfo3, m.wifiInfo4);
    };
    expectGolden("SetWifiInfo", "nul",
                 SetWifiInfoSerializer(std::string("ab\0cd", 5), std::string(1, '\0'), std::string("e\0", 2),
                                       0x04030201),
                 SetWifiInfoSerializer("ab", "", "e", 0x04030201), fields);
}

TEST(ControlMessages, RfcommConnected) {
    expectDeviceMessage<RfcommConnectedSerializer>("RfcommConnected");
}

TEST(ControlMessages, RfcommDisconnected) {
    expectDeviceMessage<RfcommDisconnectedSerializer>("RfcommDisconnected");
}

TEST(ControlMessages, StartProjection) {
    const auto fields = [](const auto& m) { return std::tie(m.btDeviceId, m.reason); };
    expectGolden("StartProjection", "ordinary", StartProjectionSerializer(7, StartRequestReason{1}), fields);
    expectGolden("StartProjection", "empty", StartProjectionSerializer(), fields);
    expectGolden("StartProjection", "extreme", StartProjectionSerializer(255, StartRequestReason{kMax}),
                 fields);
}

TEST(ControlMessages, StopProjectionStart) {
    expectDeviceMessage<StopProjectionStartSerializer>("StopProjectionStart");
}

TEST(ControlMessages, ReplyCanStartProjection) {
    const auto fields = [](const auto& m) { return std::tie(m.btDeviceId, m.canStart); };
    expectGolden("ReplyCanStartProjection", "ordinary", ReplyCanStartProjectionSerializer(7, 1), fields);
    expectGolden("ReplyCanStartProjection", "empty", ReplyCanStartProjectionSerializer(), fields);
    expectGolden("ReplyCanStartProjection", "extreme", ReplyCanStartProjectionSerializer(255, kMax), fields);
}

TEST(ControlMessages, AddDeviceInfo) {
    const auto fields = [](const auto& m) { return std::tie(m.btDeviceId, m.deviceInfo1, m.deviceInfo2); };
    expectGolden("AddDeviceInfo", "ordinary", AddDeviceInfoSerializer(7, "phone-7", "Phone"), fields);
    expectGolden("AddDeviceInfo", "empty", AddDeviceInfoSerializer(), fields);
    expectGolden("AddDeviceInfo", "extreme", AddDeviceInfoSerializer(255, kLong, ""), fields);
}

TEST(ControlMessages, DeleteDeviceInfo) {
    expectDeviceMessage<DeleteDeviceInfoSerializer>("DeleteDeviceInfo");
}

TEST(ControlMessages, ResGetSecureSslKey) {
    const auto fields = [](const auto& m) {
        return std::tie(m.sslCertificate, m.sslPrivateKey, m.sslCaCertificate);
    };
    expectGolden("ResGetSecureSslKey", "ordinary", ResGetSecureSslKeySerializer("CERT", "KEY", "CA"), fields);
    expectGolden("ResGetSecureSslKey", "empty", ResGetSecureSslKeySerializer(), fields);
    expectGolden("ResGetSecureSslKey", "extreme", ResGetSecureSslKeySerializer(kLong, "", kLong), fields);
}

TEST(ControlMessages, OnReadyForProjection) {
    const auto fields = [](const auto& m) {
        return std::tie(m.btDeviceId, m.phoneInfo1, m.phoneInfo2, m.phoneInfo3);
    };
    expectGolden("OnReadyForProjection", "ordinary", OnReadyForProjectionSerializer(7, "one", "two", "three"),
                 fields);
    expectGolden("OnReadyForProjection", "empty", OnReadyForProjectionSerializer(), fields);
    expectGolden("OnReadyForProjection", "extreme", OnReadyForProjectionSerializer(255, kLong, "", "\x80"),
                 fields);
}

TEST(ControlMessages, OnWifiVersionResponseFailure) {
    const auto fields = [](const auto& m) {
        return std::tie(m.btDeviceId, m.phoneInfo1, m.phoneInfo2, m.phoneInfo3, m.value);
    };
    const auto* const name = "OnWifiVersionResponseFailure";
    expectGolden(name, "ordinary", OnWifiVersionResponseFailureSerializer(7, "one", "two", "three", 3),
                 fields);
    expectGolden(name, "empty", OnWifiVersionResponseFailureSerializer(), fields);
    expectGolden(name, "extreme", OnWifiVersionResponseFailureSerializer(255, kLong, "", "\x80", kMax),
                 fields);
}

TEST(ControlMessages, OnStartProjectionResponse) {
    const auto fields = [](const auto& m) { return std::tie(m.btDeviceId, m.result); };
    expectGolden("OnStartProjectionResponse", "ordinary", OnStartProjectionResponseSerializer(7, 1), fields);
    expectGolden("OnStartProjectionResponse", "empty", OnStartProjectionResponseSerializer(), fields);
    expectGolden("OnStartProjectionResponse", "extreme", OnStartProjectionResponseSerializer(255, kMax),
                 fields);
}

TEST(ControlMessages, CanStartProjection) {
    expectDeviceMessage<CanStartProjectionSerializer>("CanStartProjection");
}

TEST(ControlMessages, OnWifiConnectStatus) {
    const auto fields = [](const auto& m) { return std::tie(m.btDeviceId, m.status, m.text); };
    expectGolden("OnWifiConnectStatus", "ordinary", OnWifiConnectStatusSerializer(7, 258, "joined"), fields);
    expectGolden("OnWifiConnectStatus", "empty", OnWifiConnectStatusSerializer(), fields);
    expectGolden("OnWifiConnectStatus", "extreme", OnWifiConnectStatusSerializer(255, kMax, kLong), fields);
}

TEST(ControlMessages, OnClientConnected) {
    expectDeviceMessage<OnClientConnectedSerializer>("OnClientConnected");
}

TEST(ControlMessages, OnClientLost) {
    expectDeviceMessage<OnClientLostSerializer>("OnClientLost");
}

TEST(ControlMessages, ReqGetSecureSslKeyIsItsIdAlone) {
    expectGolden("ReqGetSecureSslKey", "ordinary", ReqGetSecureSslKeySerializer(),
                 [](const auto&) { return std::tuple<>(); });
}

TEST(ControlMessages, DeviceIdOf300GoesOutAs44) {
    CanStartProjectionSerializer message(300);
    EXPECT_EQ(encoded(message), std::string("\xD3\x07\0\0\x2C", 5));
}

TEST(ControlMessages, PortOf258GoesOutAs01And02) {
    SetProjectionPortInfoSerializer message("", 258);
    EXPECT_EQ(encoded(message), std::string("\xEA\3\0\0\0\0\0\0\1\2", 10));
}

TEST(ControlMessages, ReasonOf1GoesOutLeastSignificantByteFirst) {
    StartProjectionSerializer message(7, StartRequestReason{1});
    EXPECT_EQ(encoded(message), std::string("\xEE\3\0\0\7\1\0\0\0", 9));
}

TEST(ControlMessages, EmptyChannelListIsFourZeroBytes) {
    StartWifiProjectionProtocolSerializer message(WifiChannelType{2}, {},
                                                  headUnit({"a", "", "", "", "", "", "", ""}), "", "", "");
    EXPECT_EQ(encoded(message).substr(0, 17), std::string("\xE8\3\0\0\2\0\0\0\0\0\0\0\0\0\0\1a", 17));
}

TEST(ControlMessages, MessagesWithADeviceIdAloneAreFiveBytes) {
    const auto sizeOf = [](WppIPCMessageCore&& message) { return encoded(message).size(); };
    EXPECT_EQ(sizeOf(RfcommConnectedSerializer(1)), 5U);
    EXPECT_EQ(sizeOf(RfcommDisconnectedSerializer(1)), 5U);
    EXPECT_EQ(sizeOf(StopProjectionStartSerializer(1)), 5U);
    EXPECT_EQ(sizeOf(DeleteDeviceInfoSerializer(1)), 5U);
    EXPECT_EQ(sizeOf(CanStartProjectionSerializer(1)), 5U);
    EXPECT_EQ(sizeOf(OnClientConnectedSerializer(1)), 5U);
    EXPECT_EQ(sizeOf(OnClientLostSerializer(1)), 5U);
}

TEST(ControlMessages, MessagesWithADeviceIdAndANumberAreNineBytes) {
    const auto sizeOf = [](WppIPCMessageCore&& message) { return encoded(message).size(); };
    EXPECT_EQ(sizeOf(StartProjectionSerializer(1, StartRequestReason{1})), 9U);
    EXPECT_EQ(sizeOf(ReplyCanStartProjectionSerializer(1, 1)), 9U);
    EXPECT_EQ(sizeOf(OnStartProjectionResponseSerializer(1, 1)), 9U);
}

TEST(ControlMessages, EveryHeadUnitTextIsPresentAfterDecodingEvenWhenEmpty) {
    StartWifiProjectionProtocolSerializer message;
    decode(message, goldenBytes("StartWifiProjectionProtocol", "empty"));
    const auto& info = message.headUnitInfo;
    EXPECT_TRUE(info.has_text_1() && info.has_text_2() && info.has_text_3() && info.has_text_4());
    EXPECT_TRUE(info.has_text_5() && info.has_text_6() && info.has_text_7() && info.has_text_8());
}

/// A start message that breaks off behind its list of channels.
std::string startWithList(const std::string& list) {
    return std::string("\xE8\3\0\0\2\0\0\0", 8) + list;
}

TEST(ControlMessages, ListWhoseElementsAreNotAllThereStaysAsItWasWithoutALogLine) {
    StartWifiProjectionProtocolSerializer message;
    message.channelList = {1, 2};
    const LogCapture log;
    decode(message, startWithList(std::string("\0\0\0\2\5\0\0\0", 8)));
    EXPECT_THAT(message.channelList, ElementsAre(1U, 2U));
    // The cursor stands behind the count, so the element passes for the first text's length, one larger than
    // what is there.
    EXPECT_EQ(log.count(kOver), 11U);
}

TEST(ControlMessages, ListCountWhoseByteCountOverflowsIsRefused) {
    StartWifiProjectionProtocolSerializer message;
    decode(message, startWithList(std::string("\x40\0\0\1\5\0\0\0", 8)));
    EXPECT_THAT(message.channelList, IsEmpty());
}

TEST(ControlMessages, ListOfTheLargestCountIsRefused) {
    StartWifiProjectionProtocolSerializer message;
    decode(message, startWithList(std::string("\xFF\xFF\xFF\xFF\5\0\0\0", 8)));
    EXPECT_THAT(message.channelList, IsEmpty());
}

TEST(ControlMessages, ListCountThatIsMissingEmptiesTheListAndIsLogged) {
    StartWifiProjectionProtocolSerializer message;
    message.channelList = {1, 2};
    const LogCapture log;
    decode(message, startWithList(std::string("\0\0", 2)));
    EXPECT_THAT(message.channelList, IsEmpty());
    EXPECT_GE(log.count(kOver), 1U);
}

TEST(ControlMessages, MissingFieldsStayZeroOrEmptyAndAreLogged) {
    SetWifiInfoSerializer message;
    const LogCapture log;
    EXPECT_TRUE(decode(message, std::string("\xEB\3\0\0\0\0\0\1n", 9)));
    EXPECT_EQ(message.wifiInfo1, "n");
    EXPECT_EQ(message.wifiInfo2, "");
    EXPECT_EQ(message.wifiInfo3, "");
    EXPECT_EQ(message.wifiInfo4, 0U);
    EXPECT_EQ(log.count(kOver), 3U);
}

TEST(ControlMessages, MissingDeviceIdIsZeroWithoutALogLine) {
    RfcommConnectedSerializer message(9);
    const LogCapture log;
    decode(message, std::string("\xEC\3\0\0", 4));
    EXPECT_EQ(message.btDeviceId, 0);
    EXPECT_THAT(log.lines(), IsEmpty());
}

}  // namespace
