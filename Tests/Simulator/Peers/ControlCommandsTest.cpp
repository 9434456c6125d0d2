#include "Simulator/private/Peers/ControlCommands.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

std::string hexOfCommand(int id, const Json& fields = Json::object()) {
    return hexOfBytes(buildCommand(id, fields));
}

TEST(ControlCommands, HeaderOnlyCommandsAreTheirIdAlone) {
    EXPECT_EQ(hexOfCommand(1), "01000000");
    EXPECT_EQ(hexOfCommand(1001), "e9030000");
    EXPECT_EQ(hexOfCommand(999), "e7030000");
}

TEST(ControlCommands, StartOfTheProtocolCarriesItsFieldsInOrder) {
    const Json fields = {{"channelType", 2},      {"channelList", {36, 40}}, {"headUnitInfo", {"a", "b"}},
                         {"sslCertificate", "c"}, {"sslPrivateKey", "k"},    {"sslCaCertificate", "ca"}};
    EXPECT_EQ(hexOfCommand(1000, fields),
              "e8030000"
              "02000000"
              "00000002"
              "24000000"
              "28000000"
              "0000000161"
              "0000000162"
              "00000000"
              "00000000"
              "00000000"
              "00000000"
              "00000000"
              "00000000"
              "0000000163"
              "000000016b"
              "000000026361");
}

TEST(ControlCommands, PortIsBigEndian) {
    EXPECT_EQ(hexOfCommand(1002, {{"ipAddress", "1"}, {"port", 258}}),
              "ea030000"
              "0000000131"
              "0102");
}

TEST(ControlCommands, WifiSettingsCarryThreeTextsAndANumber) {
    EXPECT_EQ(hexOfCommand(1003, {{"wifiInfo1", "a"}, {"wifiInfo3", "c"}, {"wifiInfo4", 8}}),
              "eb030000"
              "0000000161"
              "00000000"
              "0000000163"
              "08000000");
}

TEST(ControlCommands, DeviceCommandsAreFiveBytesLong) {
    EXPECT_EQ(hexOfCommand(1004, {{"btDeviceId", 7}}), "ec03000007");
    EXPECT_EQ(hexOfCommand(1005, {{"btDeviceId", 7}}), "ed03000007");
    EXPECT_EQ(hexOfCommand(1007, {{"btDeviceId", 7}}), "ef03000007");
    EXPECT_EQ(hexOfCommand(1010, {{"btDeviceId", 7}}), "f203000007");
}

TEST(ControlCommands, StartAndAnswerCarryANumberInHostOrder) {
    EXPECT_EQ(hexOfCommand(1006, {{"btDeviceId", 7}, {"reason", 1}}), "ee0300000701000000");
    EXPECT_EQ(hexOfCommand(1008, {{"btDeviceId", 7}, {"canStart", -5}}), "f003000007fbffffff");
}

TEST(ControlCommands, DeviceRecordCarriesItsTwoTexts) {
    EXPECT_EQ(hexOfCommand(1009, {{"btDeviceId", 3}, {"deviceInfo1", "x"}, {"deviceInfo2", "yz"}}),
              "f103000003"
              "0000000178"
              "00000002797a");
}

TEST(ControlCommands, FieldsOfTheWrongTypeOrRangeAreRefused) {
    EXPECT_THROW(buildCommand(1004, {{"btDeviceId", 256}}), JsonError);
    EXPECT_THROW(buildCommand(1002, {{"ipAddress", 5}}), JsonError);
    EXPECT_THROW(buildCommand(1000, {{"channelList", "36"}}), JsonError);
    EXPECT_THROW(buildCommand(1000, {{"channelList", {"36"}}}), JsonError);
    EXPECT_THROW(buildCommand(1000, {{"headUnitInfo", {1}}}), JsonError);
}

TEST(ControlCommands, AllCommandsButTheStartOfTheProtocolAreReplied) {
    EXPECT_FALSE(isReplied(1000));
    EXPECT_TRUE(isReplied(1));
    EXPECT_TRUE(isReplied(1001));
    EXPECT_TRUE(isReplied(1002));
    EXPECT_TRUE(isReplied(999));
}

TEST(ControlCommands, KeyAnswerCarriesTheThreeTexts) {
    EXPECT_EQ(hexOfBytes(buildKeyAnswer({{"sslCertificate", "c"}, {"sslCaCertificate", "ca"}})),
              "f3030000"
              "0000000163"
              "00000000"
              "000000026361");
}

}  // namespace
}  // namespace simulator
