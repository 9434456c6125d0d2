#pragma once

#include <string>

#include "Foundation/QMSync.h"
#include "inc/QMThreadSafety.h"
#include "wifi_projection_protocol/InetSocketAddress.h"

namespace wifi_projection_protocol {

/// The settings that the controller supplies and the library asks for.
///
/// Any thread may call. Each setter replaces its values together, so a reader never sees half of them.
class QmcWifiProjectionInfoStore {
public:
    /// What the library reads before the controller has sent anything: 0.0.0.0:0, three empty texts and 40.
    QmcWifiProjectionInfoStore();

    void setProjectionPortInfo(const InetSocketAddress& address);
    void setWifiInfo(const std::string& info1, const std::string& info2, const std::string& info3, int info4);

    InetSocketAddress getProjectionAddress();
    std::string getWifiInfo1();
    std::string getWifiInfo2();
    std::string getWifiInfo3();
    int getWifiInfo4();

private:
    QMSync lock;
    InetSocketAddress projectionAddress QM_GUARDED_BY(lock);
    std::string wifiInfo1 QM_GUARDED_BY(lock);
    std::string wifiInfo2 QM_GUARDED_BY(lock);
    std::string wifiInfo3 QM_GUARDED_BY(lock);
    int wifiInfo4 QM_GUARDED_BY(lock);
};

}  // namespace wifi_projection_protocol
