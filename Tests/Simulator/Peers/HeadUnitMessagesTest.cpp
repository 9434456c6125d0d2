#include "Simulator/private/Peers/HeadUnitMessages.h"

#include <gtest/gtest.h>

#include "common/Common.pb.h"
#include "phone/PhoneProtocol.pb.h"

namespace simulator {
namespace {

TEST(HeadUnitMessages, SettingsCarryAllThatThePhoneIsTold) {
    common::HeadUnitInfo info;
    info.set_text_1("first");
    info.set_text_8("last");
    phone_protocol::HeadUnitMessage message;
    auto& settings = *message.mutable_settings();
    settings.set_wifi_info_1("ssid");
    settings.set_wifi_info_4(-3);
    settings.set_host("10.0.0.1");
    settings.set_port(30516);
    settings.set_channel_type(2);
    settings.add_channels(36);
    settings.set_head_unit_info(info.SerializeAsString());
    const HeadUnitEvent event = describeHeadUnitMessage(message.SerializeAsString());
    EXPECT_EQ(event.name, "settings");
    EXPECT_EQ(event.details["wifiInfo1"], "ssid");
    EXPECT_EQ(event.details["wifiInfo4"], -3);
    EXPECT_EQ(event.details["host"], "10.0.0.1");
    EXPECT_EQ(event.details["port"], 30516);
    EXPECT_EQ(event.details["channelType"], 2);
    EXPECT_EQ(event.details["channelList"], Json::array({36}));
    EXPECT_EQ(event.details["headUnitInfo"], (Json{"first", "", "", "", "", "", "", "last"}));
}

TEST(HeadUnitMessages, StartAnswerCarriesItsAnswer) {
    phone_protocol::HeadUnitMessage message;
    message.mutable_start_answer()->set_answer(-5);
    const HeadUnitEvent event = describeHeadUnitMessage(message.SerializeAsString());
    EXPECT_EQ(event.name, "start-answer");
    EXPECT_EQ(event.details["answer"], -5);
}

TEST(HeadUnitMessages, StartCarriesItsReason) {
    phone_protocol::HeadUnitMessage message;
    message.mutable_start()->set_reason(4);
    const HeadUnitEvent event = describeHeadUnitMessage(message.SerializeAsString());
    EXPECT_EQ(event.name, "start");
    EXPECT_EQ(event.details["reason"], 4);
}

TEST(HeadUnitMessages, WhatCannotBeReadIsShownInHexadecimal) {
    EXPECT_EQ(describeHeadUnitMessage("\xff\xff").name, "unreadable");
    EXPECT_EQ(describeHeadUnitMessage("\xff\xff").details["bytes"], "ffff");
    EXPECT_EQ(describeHeadUnitMessage("").name, "unreadable");
}

}  // namespace
}  // namespace simulator
