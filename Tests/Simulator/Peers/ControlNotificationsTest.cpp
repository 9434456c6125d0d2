#include "Simulator/private/Peers/ControlNotifications.h"

#include <gtest/gtest.h>

namespace simulator {
namespace {

Json describeHex(const std::string& hex) {
    return describeNotification(bytesOfHex(hex));
}

TEST(ControlNotifications, ReadyNamesThePhone) {
    EXPECT_EQ(describeHex("d007000007"
                          "0000000161"
                          "0000000162"
                          "0000000163"),
              (Json{{"message", 2000},
                    {"name", "OnReadyForProjection"},
                    {"btDeviceId", 7},
                    {"phoneInfo1", "a"},
                    {"phoneInfo2", "b"},
                    {"phoneInfo3", "c"}}));
}

TEST(ControlNotifications, VersionFailureCarriesItsValue) {
    const Json description = describeHex(
        "d107000007"
        "00000000"
        "00000000"
        "00000000"
        "05000000");
    EXPECT_EQ(description["name"], "OnWifiVersionResponseFailure");
    EXPECT_EQ(description["value"], 5);
}

TEST(ControlNotifications, StartResponseCarriesItsResult) {
    EXPECT_EQ(
        describeHex("d20700000701000000"),
        (Json{{"message", 2002}, {"name", "OnStartProjectionResponse"}, {"btDeviceId", 7}, {"result", 1}}));
}

TEST(ControlNotifications, WifiStatusCarriesStatusAndText) {
    EXPECT_EQ(describeHex("d407000007"
                          "02000000"
                          "0000000178"),
              (Json{{"message", 2004},
                    {"name", "OnWifiConnectStatus"},
                    {"btDeviceId", 7},
                    {"status", 2},
                    {"text", "x"}}));
}

TEST(ControlNotifications, DeviceOnlyNotificationsCarryTheDevice) {
    EXPECT_EQ(describeHex("d307000007")["name"], "CanStartProjection");
    EXPECT_EQ(describeHex("d507000007")["name"], "OnClientConnected");
    EXPECT_EQ(describeHex("d607000007")["name"], "OnClientLost");
    EXPECT_EQ(describeHex("d607000007")["btDeviceId"], 7);
}

TEST(ControlNotifications, KeyRequestHasNoFields) {
    EXPECT_EQ(describeHex("d7070000"), (Json{{"message", 2007}, {"name", "ReqGetSecureSslKey"}}));
}

TEST(ControlNotifications, UnknownMessageIsShownInHexadecimal) {
    EXPECT_EQ(describeHex("e8030000ff"),
              (Json{{"message", 1000}, {"name", "unknown"}, {"bytes", "e8030000ff"}}));
    EXPECT_EQ(describeHex("e8"), (Json{{"message", -1}, {"name", "unknown"}, {"bytes", "e8"}}));
}

}  // namespace
}  // namespace simulator
