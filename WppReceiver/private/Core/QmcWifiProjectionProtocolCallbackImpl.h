#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "Foundation/QMEvent.h"
#include "wifi_projection_protocol/ClientInfo.h"

namespace wifi_projection_protocol {

class QmcWifiProjectionProtocol;

/// Translates the library's events from its client identities to Bluetooth device ids and passes them on to
/// the controller. An event of a client without a device record is dropped.
///
/// The events run on the library's threads, replyCanStartProjection on the control stream's thread. Owned by
/// the QmcWifiProjectionProtocol that it points back to.
class QmcWifiProjectionProtocolCallbackImpl {
public:
    /// The answer to a may-it-start question that nobody answered.
    static constexpr int kNoAnswer = -5;

    explicit QmcWifiProjectionProtocolCallbackImpl(QmcWifiProjectionProtocol* protocolOwner);

    /// Puts the question to the controller and waits up to 1000 ms for replyCanStartProjection; logs
    /// "timeout.\n" when it does not come. One question is open at a time.
    /// @return the controller's answer; -5 when there was none or the client has no device record.
    int canStartProjection(const ClientInfo& client);

    /// The controller's answer to the open question, whichever device it names.
    void replyCanStartProjection(std::uint8_t btDeviceId, int result);

    /// Updates the device record from the client, then reports readiness and connection.
    void readyForProjection(const ClientInfo& client);

    void wifiConnectStatus(const std::string& clientId, const std::uint32_t& status, const std::string& text);

    /// Updates the device record from the client, then reports the failure.
    void wifiVersionResponseFailure(const ClientInfo& client, const std::uint32_t& value);

    void clientLost(const ClientInfo& client);

    bool isClientKnown(const std::string& clientId);

private:
    std::uint8_t updateAndFind(const ClientInfo& client);

    QmcWifiProjectionProtocol* const owner;
    QMEvent replyEvent;
    std::atomic<int> canStartResult{kNoAnswer};
};

}  // namespace wifi_projection_protocol
