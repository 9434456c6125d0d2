#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "Pattern/QMSingleton.h"
#include "Pattern/QMSubject.h"

namespace wifi_projection_protocol {

class WppIPCMessageCore;
class WppLocalSocketClientStream;
class WppLocalSocketServerStream;

/// The receiver's only contact with the Bluetooth process: tunnels the SPP bytes of the phones.
///
/// What the process sends arrives on the stream thread of "WPP_SOCKET_FROM_BT" and is published to the
/// observers as an SppReceivedData with event kSppDataReceived; its bytes are valid only during the call.
/// What goes out takes "WPP_SOCKET_TO_BT" on the caller's thread; any thread may send, exchanges take turns
/// and have no time limit. One per process; the framework destroys it at termination.
class QmcWirelessProjectionBtProxy final : public QMSubject,
                                           public QMSingleton<QmcWirelessProjectionBtProxy> {
public:
    /// The event of every notification.
    static constexpr unsigned kSppDataReceived = 0;

    /// Stops both streams.
    ~QmcWirelessProjectionBtProxy() override;

    /// Listens on "WPP_SOCKET_FROM_BT". @return whether the stream was started; a failure is logged.
    bool openServer();

    /// Connects to "WPP_SOCKET_TO_BT". Returns only once connected, or at once (false) when the stream could
    /// not be started, which is logged.
    bool openClient();

    void closeServer();
    void closeClient();

    /// Sends bytes to the phone. @return the value of the reply byte, 0 if the exchange failed.
    int sendSppData(std::uint8_t btDeviceId, const std::string& uuid, const std::uint8_t* data,
                    unsigned length);

    /// Asks for the phone's SPP link to be dropped. @return the value of the reply byte, 0 if the exchange
    /// failed.
    int disconnectSpp(std::uint8_t btDeviceId, const std::string& uuid);

private:
    friend class QMSingleton<QmcWirelessProjectionBtProxy>;

    QmcWirelessProjectionBtProxy();

    void onReceivedServerSocket(const void* data, unsigned length);
    void publishSppData(const void* data, unsigned length);
    bool reply(std::int32_t messageId);

    std::unique_ptr<WppLocalSocketServerStream> serverStream;
    std::unique_ptr<WppLocalSocketClientStream> clientStream;
};

}  // namespace wifi_projection_protocol
