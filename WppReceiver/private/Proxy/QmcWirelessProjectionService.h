#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "Foundation/QMEvent.h"
#include "Pattern/QMUncopyable.h"
#include "Proxy/IWifiProjectionProtocolCallbacks.h"

namespace wifi_projection_protocol {

class QmcWifiProjectionProtocol;
class WppIPCMessageCore;
class WppLocalSocketClientStream;
class WppLocalSocketServerStream;

/// The receiver's end of the control link to the head unit's controller process.
///
/// Not started until command 1000, which makes the projection protocol object; 1001 and 1 delete it. Commands
/// arrive on the stream thread of "WPP_SOCKET_TO_WPP", one at a time and in order, and each but 1000 is
/// answered with one byte: 1 when it was handled, 0 when it was not. An exception is logged and counts as not
/// handled. Command 1 also sets the termination event.
///
/// In the other direction the IWifiProjectionProtocolCallbacks operations run on the caller's thread and take
/// turns on "WPP_SOCKET_FROM_WPP". open, close and the destructor belong to the main thread.
class QmcWirelessProjectionService final : public IWifiProjectionProtocolCallbacks, private QMUncopyable {
public:
    /// Makes the streams; nothing is opened.
    QmcWirelessProjectionService();

    /// Stops the streams, then deletes the projection protocol object if there is one.
    ~QmcWirelessProjectionService() override;

    /// Listens on "WPP_SOCKET_TO_WPP". @return whether the stream was started; a failure is logged.
    bool openServer();

    /// Connects to "WPP_SOCKET_FROM_WPP". Returns only once connected, or at once (false) when the stream
    /// could not be started, which is logged.
    bool openClient();

    void closeServer();
    void closeClient();

    /// Waits without limit for command 1.
    void waitExit();

    void OnReadyForProjection(std::uint8_t btDeviceId, const std::string& phoneInfo1,
                              const std::string& phoneInfo2, const std::string& phoneInfo3) override;
    void OnWifiVersionResponseFailure(std::uint8_t btDeviceId, const std::string& phoneInfo1,
                                      const std::string& phoneInfo2, const std::string& phoneInfo3,
                                      const std::uint32_t& value) override;
    void OnStartProjectionResponse(std::uint8_t btDeviceId, std::uint32_t result) override;
    void CanStartProjection(std::uint8_t btDeviceId) override;
    void OnWifiConnectStatus(std::uint8_t btDeviceId, const std::uint32_t& status,
                             const std::string& text) override;
    void OnClientConnected(std::uint8_t btDeviceId) override;
    void OnClientLost(std::uint8_t btDeviceId) override;
    bool ReqGetSecureSslKey(std::string& sslCertificate, std::string& sslPrivateKey,
                            std::string& sslCaCertificate) override;

private:
    struct Command;
    static const Command kCommands[];

    template <class Message, void (*Do)(QmcWifiProjectionProtocol&, const Message&)>
    static constexpr Command onProtocol(const char* name);

    void onReceivedServerSocket(const void* data, unsigned size);
    bool dispatch(std::int32_t messageId, const void* data, unsigned size);
    bool receiveTerminate(const Command& command, const void* data, unsigned size);
    bool receiveStartWifiProjectionProtocol(const Command& command, const void* data, unsigned size);
    bool receiveStopWifiProjectionProtocol(const Command& command, const void* data, unsigned size);
    bool receiveWhenStarted(const Command& command, const void* data, unsigned size);
    bool reply(std::uint8_t value);
    void notify(WppIPCMessageCore&& message);

    QMEvent exitEvent;
    std::atomic<bool> exitOrdered{false};  // set before the event is, which may have no descriptors
    std::unique_ptr<WppLocalSocketServerStream> serverStream;
    std::unique_ptr<WppLocalSocketClientStream> clientStream;
    std::unique_ptr<QmcWifiProjectionProtocol> protocol;  // touched only on the server stream's thread
};

}  // namespace wifi_projection_protocol
