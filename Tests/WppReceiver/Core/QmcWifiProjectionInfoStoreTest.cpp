#include "Core/QmcWifiProjectionInfoStore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "Core/QmcWifiProjectionInfoProvider.h"

namespace {

using wifi_projection_protocol::QmcWifiProjectionInfoProvider;
using wifi_projection_protocol::QmcWifiProjectionInfoStore;

TEST(QmcWifiProjectionInfoStore, BeforeAnySettingTheLibraryReadsEmptyTextsAnd40) {
    QmcWifiProjectionInfoStore store;
    QmcWifiProjectionInfoProvider provider(&store);

    EXPECT_EQ(provider.projectionAddress().host(), "0.0.0.0");
    EXPECT_EQ(provider.projectionAddress().port(), 0);
    EXPECT_EQ(provider.wifiInfo1(), "");
    EXPECT_EQ(provider.wifiInfo2(), "");
    EXPECT_EQ(provider.wifiInfo3(), "");
    EXPECT_EQ(provider.wifiInfo4(), 40);
}

TEST(QmcWifiProjectionInfoStore, TheLibraryReadsWhatTheControllerSet) {
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

TEST(QmcWifiProjectionInfoStore, TheProviderLeavesTheStoreAlone) {
    QmcWifiProjectionInfoStore store;
    store.setWifiInfo("one", "two", "three", 4);
    { QmcWifiProjectionInfoProvider provider(&store); }

    EXPECT_EQ(store.getWifiInfo1(), "one");
}

TEST(QmcWifiProjectionInfoStore, AReaderOnAnotherThreadSeesWholeTexts) {
    QmcWifiProjectionInfoStore store;
    const std::string longText(1000, 'x');
    std::atomic<bool> done{false};
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) {
            store.setWifiInfo(i % 2 == 0 ? longText : "", "two", "three", i);
        }
        done = true;
    });
    while (!done) {
        const std::string text = store.getWifiInfo1();
        EXPECT_TRUE(text.empty() || text == longText);
    }
    writer.join();
}

}  // namespace
