#include "Core/QmcWifiProjectionProtocolDevice.h"

#include <algorithm>

#include "Core/ClientNames.h"

namespace wifi_projection_protocol {

void QmcWifiProjectionProtocolDevice::add(std::uint8_t btDeviceId, const std::string& deviceInfo1,
                                          const std::string& deviceInfo2) {
    QMSyncGuard guard(lock);
    if (findById(btDeviceId) == nullptr) {
        records.push_back({btDeviceId, deviceInfo1, deviceInfo2, rfcommClientName(btDeviceId), {}});
    }
}

void QmcWifiProjectionProtocolDevice::remove(std::uint8_t btDeviceId) {
    QMSyncGuard guard(lock);
    const auto found = std::find_if(records.begin(), records.end(), [btDeviceId](const Record& record) {
        return record.btDeviceId == btDeviceId;
    });
    if (found != records.end()) {
        records.erase(found);
    }
}

std::uint8_t QmcWifiProjectionProtocolDevice::idOf(const std::string& clientId) {
    QMSyncGuard guard(lock);
    const Record* record = findByClientId(clientId);
    return record == nullptr ? kNoDevice : record->btDeviceId;
}

std::string QmcWifiProjectionProtocolDevice::clientIdOf(std::uint8_t btDeviceId) {
    QMSyncGuard guard(lock);
    const Record* record = findById(btDeviceId);
    return record == nullptr ? std::string() : record->clientId;
}

TransportNames QmcWifiProjectionProtocolDevice::transportsOf(std::uint8_t btDeviceId) {
    QMSyncGuard guard(lock);
    const Record* record = findById(btDeviceId);
    return record == nullptr ? TransportNames() : record->transports;
}

TransportNames QmcWifiProjectionProtocolDevice::transportsOfClient(const std::string& clientId) {
    QMSyncGuard guard(lock);
    const Record* record = findByClientId(clientId);
    return record == nullptr ? TransportNames() : record->transports;
}

void QmcWifiProjectionProtocolDevice::updateFrom(const ClientInfo& client) {
    QMSyncGuard guard(lock);
    const auto rfcomm = client.transports.find(TransportType::kRfcomm);
    if (rfcomm != client.transports.end()) {
        Record* named =
            findRecord([&rfcomm](const Record& record) { return record.rfcommName == rfcomm->second; });
        if (named != nullptr) {
            named->clientId = client.clientId;
        }
    }
    Record* known = findByClientId(client.clientId);
    if (known != nullptr) {
        known->transports = client.transports;
    }
}

template <class Predicate>
QmcWifiProjectionProtocolDevice::Record* QmcWifiProjectionProtocolDevice::findRecord(Predicate matches) {
    const auto found = std::find_if(records.begin(), records.end(), matches);
    return found == records.end() ? nullptr : &*found;
}

QmcWifiProjectionProtocolDevice::Record* QmcWifiProjectionProtocolDevice::findById(std::uint8_t btDeviceId) {
    return findRecord([btDeviceId](const Record& record) { return record.btDeviceId == btDeviceId; });
}

QmcWifiProjectionProtocolDevice::Record* QmcWifiProjectionProtocolDevice::findByClientId(
    const std::string& clientId) {
    return findRecord([&clientId](const Record& record) { return record.clientId == clientId; });
}

}  // namespace wifi_projection_protocol
