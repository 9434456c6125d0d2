#pragma once

#include <string>
#include <type_traits>

#include "Core/CaughtException.h"
#include "Core/QmcWifiProjectionInfoStore.h"
#include "Diagnostics/QMLog.h"
#include "wifi_projection_protocol/WifiProjectionInfoProvider.h"

namespace wifi_projection_protocol {

/// Answers the library's questions from the info store. The library owns it; the store, which it does not
/// own, outlives it. Called from the library's threads.
class QmcWifiProjectionInfoProvider final : public WifiProjectionInfoProvider {
public:
    explicit QmcWifiProjectionInfoProvider(QmcWifiProjectionInfoStore* infoStore) : store(infoStore) {}

    InetSocketAddress projectionAddress() override {
        return guarded("projectionAddress", [this] { return store->getProjectionAddress(); });
    }
    std::string wifiInfo1() override {
        return guarded("wifiInfo1", [this] { return store->getWifiInfo1(); });
    }
    std::string wifiInfo2() override {
        return guarded("wifiInfo2", [this] { return store->getWifiInfo2(); });
    }
    std::string wifiInfo3() override {
        return guarded("wifiInfo3", [this] { return store->getWifiInfo3(); });
    }
    int wifiInfo4() override { return store->getWifiInfo4(); }

private:
    /// What the library gets; logged as well where it is an exception, since it drops its own lines. A wrong setting
    /// in the place of one that cannot be copied would send the phone astray.
    template <class Get>
    static std::invoke_result_t<Get> guarded(const char* function, Get get) {
        try {
            return get();
        } catch (...) {
            qm_Log(QM_SOURCE_PATH, function, __LINE__, QM_LOG_LEVEL_ERROR, "catch exception. what [%s]\n",
                   caughtExceptionText());
            throw;
        }
    }

    QmcWifiProjectionInfoStore* store;
};

}  // namespace wifi_projection_protocol
