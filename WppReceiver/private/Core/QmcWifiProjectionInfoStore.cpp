#include "Core/QmcWifiProjectionInfoStore.h"

namespace wifi_projection_protocol {

namespace {
constexpr const char* kInitialHost = "0.0.0.0";
constexpr unsigned short kInitialPort = 0;
constexpr int kInitialWifiInfo4 = 40;
}  // namespace

QmcWifiProjectionInfoStore::QmcWifiProjectionInfoStore()
    : projectionAddress(kInitialHost, kInitialPort), wifiInfo4(kInitialWifiInfo4) {}

void QmcWifiProjectionInfoStore::setProjectionPortInfo(const InetSocketAddress& address) {
    QMSyncGuard guard(lock);
    projectionAddress = address;
}

void QmcWifiProjectionInfoStore::setWifiInfo(const std::string& info1, const std::string& info2,
                                             const std::string& info3, int info4) {
    QMSyncGuard guard(lock);
    wifiInfo1 = info1;
    wifiInfo2 = info2;
    wifiInfo3 = info3;
    wifiInfo4 = info4;
}

InetSocketAddress QmcWifiProjectionInfoStore::getProjectionAddress() {
    QMSyncGuard guard(lock);
    return projectionAddress;
}

std::string QmcWifiProjectionInfoStore::getWifiInfo1() {
    QMSyncGuard guard(lock);
    return wifiInfo1;
}

std::string QmcWifiProjectionInfoStore::getWifiInfo2() {
    QMSyncGuard guard(lock);
    return wifiInfo2;
}

std::string QmcWifiProjectionInfoStore::getWifiInfo3() {
    QMSyncGuard guard(lock);
    return wifiInfo3;
}

int QmcWifiProjectionInfoStore::getWifiInfo4() {
    QMSyncGuard guard(lock);
    return wifiInfo4;
}

}  // namespace wifi_projection_protocol
