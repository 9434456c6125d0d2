#pragma once

#include <cstdint>
#include <string>

namespace wifi_projection_protocol {

/// The way by which the projection adapter reaches the controller.
///
/// Each operation is one exchange with the controller process on the caller's thread: it returns once the
/// controller has answered, without a time limit, or at once when there is no connection. Any thread may
/// call; exchanges take turns. Failures are logged by the control stream, and a notification that fails is
/// lost.
class IWifiProjectionProtocolCallbacks {
public:
    virtual ~IWifiProjectionProtocolCallbacks() = default;

    virtual void OnReadyForProjection(std::uint8_t btDeviceId, const std::string& phoneInfo1,
                                      const std::string& phoneInfo2, const std::string& phoneInfo3) = 0;

    virtual void OnWifiVersionResponseFailure(std::uint8_t btDeviceId, const std::string& phoneInfo1,
                                              const std::string& phoneInfo2, const std::string& phoneInfo3,
                                              const std::uint32_t& value) = 0;

    virtual void OnStartProjectionResponse(std::uint8_t btDeviceId, std::uint32_t result) = 0;

    /// Puts the question to the controller. Its answer comes later, as a command of its own.
    virtual void CanStartProjection(std::uint8_t btDeviceId) = 0;

    virtual void OnWifiConnectStatus(std::uint8_t btDeviceId, const std::uint32_t& status,
                                     const std::string& text) = 0;

    virtual void OnClientConnected(std::uint8_t btDeviceId) = 0;

    virtual void OnClientLost(std::uint8_t btDeviceId) = 0;

    /// Fetches the TLS material (PEM texts) from the controller.
    /// @return whether the three strings were filled; they are untouched otherwise.
    virtual bool ReqGetSecureSslKey(std::string& sslCertificate, std::string& sslPrivateKey,
                                    std::string& sslCaCertificate) = 0;
};

}  // namespace wifi_projection_protocol
