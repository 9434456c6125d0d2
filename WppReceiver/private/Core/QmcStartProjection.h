#pragma once

#include <atomic>
#include <cstdint>
#include <future>
#include <optional>
#include <string>
#include <thread>

#include "wifi_discovery/WifiDiscovery.h"

namespace wifi_projection_protocol {

class QmcWifiProjectionProtocol;

/// Starts projection on a phone on a thread of its own and reports the outcome to the controller.
///
/// Idle, or starting: the thread polls the library's result every 100 ms for at most 60 s. A start that is
/// cancelled or late logs "StartProjection timeout. BtDeviceId=%d\n", disconnects the phone's transports and
/// is reported as 0; so is one that meets an exception, which is logged with its text. Each start is
/// reported exactly once. startProjection and stop belong to the control stream's thread; the owner calls
/// stop before it deletes the worker.
class QmcStartProjection {
public:
    explicit QmcStartProjection(QmcWifiProjectionProtocol* protocolOwner);
    virtual ~QmcStartProjection() = default;

    /// Cancels and joins a start that is still running, then begins this one. Throws std::system_error when
    /// there is no thread for it, and reports nothing then.
    void startProjection(std::uint8_t btDeviceId, wifi_discovery::StartRequestReason reason);

    /// Cancels a running start and joins its thread, which takes at most a poll step and the worker's closing
    /// calls.
    void stop();

private:
    void run(std::uint8_t btDeviceId, wifi_discovery::StartRequestReason reason) noexcept;
    std::optional<std::uint32_t> awaitResult(std::uint8_t btDeviceId, std::future<std::uint32_t> result);
    void disconnect(const std::string& clientId);

    QmcWifiProjectionProtocol* const owner;
    std::thread worker;
    std::atomic<bool> stopRequested{false};
};

}  // namespace wifi_projection_protocol
