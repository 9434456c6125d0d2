#include "Core/QmcWifiProjectionInfoStore.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

namespace {

using wifi_projection_protocol::QmcWifiProjectionInfoStore;

TEST(QmcWifiProjectionInfoStore, BeginsWithEmptyTextsAnAddressWithoutAPortAnd40) {
    QmcWifiProjectionInfoStore store;

    EXPECT_EQ(store.getProjectionAddress().host(), "0.0.0.0");
    EXPECT_EQ(store.getProjectionAddress().port(), 0);
    EXPECT_EQ(store.getWifiInfo1(), "");
    EXPECT_EQ(store.getWifiInfo2(), "");
    EXPECT_EQ(store.getWifiInfo3(), "");
    EXPECT_EQ(store.getWifiInfo4(), 40);
}

TEST(QmcWifiProjectionInfoStore, ASettingReplacesAllItsValues) {
    QmcWifiProjectionInfoStore store;
    store.setWifiInfo("one", "two", "three", 4);
    store.setWifiInfo("", "2", "", -1);
    store.setProjectionPortInfo({"10.0.0.1", 1});
    store.setProjectionPortInfo({"192.168.5.1", 65535});

    EXPECT_EQ(store.getWifiInfo1(), "");
    EXPECT_EQ(store.getWifiInfo2(), "2");
    EXPECT_EQ(store.getWifiInfo3(), "");
    EXPECT_EQ(store.getWifiInfo4(), -1);
    EXPECT_EQ(store.getProjectionAddress().host(), "192.168.5.1");
    EXPECT_EQ(store.getProjectionAddress().port(), 65535);
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
