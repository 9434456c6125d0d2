#include "private/SettingsSource.h"

#include <gtest/gtest.h>

#include "Tests/ReceiverLib/Support/RecordingHeadUnit.h"

namespace wifi_projection_protocol {
namespace {

TEST(SettingsSource, PutsTheProvidersValuesBesideTheFixedOnes) {
    const auto unit = wpp_test::RecordingHeadUnit::make();
    const SettingsSource source(unit->makeInfoProvider(), wifi_discovery::WifiChannelType{0xFFFFFFFF},
                                {1, 2, 3}, "info");

    phone_protocol::Settings settings;
    source.fillIn(settings);

    EXPECT_EQ(settings.channel_type(), 0xFFFFFFFFU);
    EXPECT_EQ(settings.channels_size(), 3);
    EXPECT_EQ(settings.head_unit_info(), "info");
    EXPECT_EQ(settings.host(), "192.168.1.1");
    EXPECT_EQ(settings.wifi_info_4(), 40);
}

TEST(SettingsSource, AsksTheProviderAnewEachTime) {
    const auto unit = wpp_test::RecordingHeadUnit::make();
    const SettingsSource source(unit->makeInfoProvider(), {}, {}, "");
    phone_protocol::Settings settings;
    unit->setWifiInfo("first", -1);
    source.fillIn(settings);
    EXPECT_EQ(settings.wifi_info_4(), -1);
    unit->setWifiInfo("second", -2);
    source.fillIn(settings);
    EXPECT_EQ(settings.wifi_info_4(), -2);
    EXPECT_EQ(settings.wifi_info_3(), "second3");
}

}  // namespace
}  // namespace wifi_projection_protocol
