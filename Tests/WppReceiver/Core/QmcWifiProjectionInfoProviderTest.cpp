#include "Core/QmcWifiProjectionInfoProvider.h"

#include <gtest/gtest.h>

namespace {

using wifi_projection_protocol::QmcWifiProjectionInfoProvider;
using wifi_projection_protocol::QmcWifiProjectionInfoStore;

TEST(QmcWifiProjectionInfoProvider, WithoutAnySettingTheLibraryReadsThreeEmptyTextsAnd40) {
    QmcWifiProjectionInfoStore store;
    QmcWifiProjectionInfoProvider provider(&store);

    EXPECT_EQ(provider.projectionAddress().host(), "0.0.0.0");
    EXPECT_EQ(provider.projectionAddress().port(), 0);
    EXPECT_EQ(provider.wifiInfo1(), "");
    EXPECT_EQ(provider.wifiInfo2(), "");
    EXPECT_EQ(provider.wifiInfo3(), "");
    EXPECT_EQ(provider.wifiInfo4(), 40);
}

TEST(QmcWifiProjectionInfoProvider, TheLibraryReadsWhatTheControllerSet) {
    QmcWifiProjectionInfoStore store;
    QmcWifiProjectionInfoProvider provider(&store);
    store.setProjectionPortInfo({"192.168.5.1", 30516});
    store.setWifiInfo("one", "two", "three", -4);

    EXPECT_EQ(provider.projectionAddress().host(), "192.168.5.1");
    EXPECT_EQ(provider.projectionAddress().port(), 30516);
    EXPECT_EQ(provider.wifiInfo1(), "one");
    EXPECT_EQ(provider.wifiInfo2(), "two");
    EXPECT_EQ(provider.wifiInfo3(), "three");
    EXPECT_EQ(provider.wifiInfo4(), -4);
}

TEST(QmcWifiProjectionInfoProvider, ItsEndLeavesTheStoreAlone) {
    QmcWifiProjectionInfoStore store;
    store.setWifiInfo("one", "two", "three", 4);
    { QmcWifiProjectionInfoProvider provider(&store); }

    EXPECT_EQ(store.getWifiInfo1(), "one");
}

}  // namespace
