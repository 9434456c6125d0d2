#pragma once

#include <cstdint>
#include <list>
#include <string>

#include "Foundation/QMSync.h"
#include "inc/QMThreadSafety.h"
#include "wifi_projection_protocol/ClientInfo.h"

namespace wifi_projection_protocol {

/// The device id that no phone has.
constexpr std::uint8_t kNoDevice = 255;

/// The records that tie the controller's Bluetooth device ids to the library's names for the same phones.
///
/// A record lives from add to remove. It starts with what the controller tells of the phone and learns the
/// library's client identifier and transport names from updateFrom. Lookups walk the records in insertion
/// order and take the first match; results are copies. Any thread may call; each operation holds the lock
/// throughout.
class QmcWifiProjectionProtocolDevice {
public:
    virtual ~QmcWifiProjectionProtocolDevice() = default;

    /// Adds a record; ignored, strings included, if there is one with this id.
    void add(std::uint8_t btDeviceId, const std::string& deviceInfo1, const std::string& deviceInfo2);

    /// Removes the record with this id, if any.
    void remove(std::uint8_t btDeviceId);

    /// The id of the phone with this client identifier; kNoDevice (255) if none has it.
    std::uint8_t idOf(const std::string& clientId);

    /// The client identifier of this phone; empty if there is no record.
    std::string clientIdOf(std::uint8_t btDeviceId);

    /// The client names of this phone's transports; empty if there is no record.
    TransportNames transportsOf(std::uint8_t btDeviceId);

    /// The client names of the transports of the phone with this client identifier; empty if none has it.
    TransportNames transportsOfClient(const std::string& clientId);

    /// Learns from the library: the record whose RFCOMM name the client carries takes the client's
    /// identifier; then the record with that identifier takes the client's transport names.
    void updateFrom(const ClientInfo& client);

private:
    struct Record {
        std::uint8_t btDeviceId;
        std::string deviceInfo1;
        std::string clientId;
        std::string rfcommName;
        TransportNames transports;
    };

    template <class Predicate>
    Record* findRecord(Predicate matches) QM_REQUIRES(lock);
    Record* findById(std::uint8_t btDeviceId) QM_REQUIRES(lock);
    Record* findByClientId(const std::string& clientId) QM_REQUIRES(lock);

    QMSync lock;
    std::list<Record> records QM_GUARDED_BY(lock);
};

}  // namespace wifi_projection_protocol
