#pragma once

#include <string>

#include "Core/QmcWifiProjectionInfoStore.h"
#include "wifi_projection_protocol/WifiProjectionInfoProvider.h"

namespace wifi_projection_protocol {

/// Answers the library's questions from the info store. The library owns it; the store, which it does not
/// own, outlives it. Called from the library's threads.
class QmcWifiProjectionInfoProvider final : public WifiProjectionInfoProvider {
public:
    explicit QmcWifiProjectionInfoProvider(QmcWifiProjectionInfoStore* infoStore) : store(infoStore) {}

    InetSocketAddress projectionAddress() override { return store->getProjectionAddress(); }
    std::string wifiInfo1() override { return store->getWifiInfo1(); }
    std::string wifiInfo2() override { return store->getWifiInfo2(); }
    std::string wifiInfo3() override { return store->getWifiInfo3(); }
    int wifiInfo4() override { return store->getWifiInfo4(); }

private:
    QmcWifiProjectionInfoStore* store;
};

}  // namespace wifi_projection_protocol
