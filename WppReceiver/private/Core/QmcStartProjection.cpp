#include "Core/QmcStartProjection.h"

#include <chrono>
#include <exception>
#include <future>

#include "Core/QmcWifiProjectionProtocol.h"
#include "Core/QmcWifiProjectionProtocolDevice.h"
#include "Diagnostics/QMLog.h"
#include "Proxy/IWifiProjectionProtocolCallbacks.h"
#include "wifi_projection_protocol/WifiProjectionProtocol.h"

namespace wifi_projection_protocol {

namespace {

constexpr std::chrono::milliseconds kPollStep{100};
constexpr int kPollSteps = 600;  // 60 s in all
constexpr std::uint32_t kNotStarted = 0;

bool becomesReady(const std::future<std::uint32_t>& result, const std::atomic<bool>& stopRequested) {
    for (int step = 0; step < kPollSteps && !stopRequested; ++step) {
        if (result.wait_for(kPollStep) == std::future_status::ready) {
            return true;
        }
    }
    return false;
}

}  // namespace

QmcStartProjection::QmcStartProjection(QmcWifiProjectionProtocol* protocolOwner) : owner(protocolOwner) {}

void QmcStartProjection::startProjection(std::uint8_t btDeviceId, wifi_discovery::StartRequestReason reason) {
    stop();
    worker = std::thread([this, btDeviceId, reason] { run(btDeviceId, reason); });
}

void QmcStartProjection::stop() {
    stopRequested = true;
    if (worker.joinable()) {
        worker.join();
    }
    stopRequested = false;
}

void QmcStartProjection::run(std::uint8_t btDeviceId, wifi_discovery::StartRequestReason reason) noexcept {
    const std::string clientId = owner->deviceRecords().clientIdOf(btDeviceId);
    try {
        startAndReport(btDeviceId, clientId, reason);
        return;
    } catch (const std::exception& error) {
        QM_LOG_ERROR("catch exception. BtDeviceId=%d, what [%s]\n", btDeviceId, error.what());
    } catch (...) {
        QM_LOG_ERROR("catch exception. BtDeviceId=%d\n", btDeviceId);
    }
    giveUp(btDeviceId, clientId);
}

void QmcStartProjection::startAndReport(std::uint8_t btDeviceId, const std::string& clientId,
                                        wifi_discovery::StartRequestReason reason) {
    std::future<std::uint32_t> result = owner->library().StartProjection(clientId, reason);
    if (becomesReady(result, stopRequested)) {
        owner->controller().OnStartProjectionResponse(btDeviceId, result.get());
        return;
    }
    QM_LOG_ERROR("StartProjection timeout. BtDeviceId=%d\n", btDeviceId);
    giveUp(btDeviceId, clientId);
}

void QmcStartProjection::giveUp(std::uint8_t btDeviceId, const std::string& clientId) {
    for (const auto& [type, name] : owner->deviceRecords().transportsOfClient(clientId)) {
        owner->library().ClientDisconnected(name);
    }
    owner->controller().OnStartProjectionResponse(btDeviceId, kNotStarted);
}

}  // namespace wifi_projection_protocol
