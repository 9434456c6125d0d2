#include "Core/QmcStartProjection.h"

#include <chrono>
#include <future>
#include <utility>

#include "Core/CaughtException.h"
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

/// Takes one step of a start. An exception ends the step, but neither the start nor the process.
template <class Step>
void logExceptions(std::uint8_t btDeviceId, Step step) noexcept {
    try {
        step();
    } catch (...) {
        QM_LOG_ERROR("catch exception. BtDeviceId=%d, what [%s]\n", btDeviceId, caughtExceptionText());
    }
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
    std::string clientId;
    std::optional<std::uint32_t> result;
    logExceptions(btDeviceId, [&] {
        clientId = owner->deviceRecords().clientIdOf(btDeviceId);
        result = awaitResult(btDeviceId, owner->library().StartProjection(clientId, reason));
    });
    if (!result.has_value()) {
        logExceptions(btDeviceId, [&] { disconnect(clientId); });
    }
    logExceptions(btDeviceId, [&] {
        owner->controller().OnStartProjectionResponse(btDeviceId, result.value_or(kNotStarted));
    });
}

std::optional<std::uint32_t> QmcStartProjection::awaitResult(std::uint8_t btDeviceId,
                                                             std::future<std::uint32_t> result) {
    if (becomesReady(result, stopRequested)) {
        return result.get();
    }
    QM_LOG_ERROR("StartProjection timeout. BtDeviceId=%d\n", btDeviceId);
    return std::nullopt;
}

void QmcStartProjection::disconnect(const std::string& clientId) {
    for (const auto& [type, name] : owner->deviceRecords().transportsOfClient(clientId)) {
        owner->library().ClientDisconnected(name);
    }
}

}  // namespace wifi_projection_protocol
