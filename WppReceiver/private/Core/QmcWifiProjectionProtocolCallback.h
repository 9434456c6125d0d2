#pragma once

#include <cstdint>
#include <string>

#include "Core/CaughtException.h"
#include "Core/QmcWifiProjectionProtocolCallbackImpl.h"
#include "Diagnostics/QMLog.h"
#include "wifi_projection_protocol/WifiProjectionProtocolCallback.h"

namespace wifi_projection_protocol {

/// The library's way to QmcWifiProjectionProtocolCallbackImpl. The library owns it and calls it from its own
/// threads; the object behind it, which it does not own, outlives it.
class QmcWifiProjectionProtocolCallback final : public WifiProjectionProtocolCallback {
public:
    explicit QmcWifiProjectionProtocolCallback(QmcWifiProjectionProtocolCallbackImpl* callbackImpl)
        : impl(callbackImpl) {}

    int canStartProjection(const ClientInfo& client) override {
        constexpr int kNoAnswer = QmcWifiProjectionProtocolCallbackImpl::kNoAnswer;
        return guarded("canStartProjection", kNoAnswer, [&] { return impl->canStartProjection(client); });
    }

    void onReadyForProjection(const ClientInfo& client) override {
        guarded("onReadyForProjection", true, [&] { return impl->readyForProjection(client), true; });
    }

    void onWifiConnectStatus(const std::string& clientId, const std::uint32_t& status,
                             const std::string& text) override {
        guarded("onWifiConnectStatus", true,
                [&] { return impl->wifiConnectStatus(clientId, status, text), true; });
    }

    void onWifiVersionResponseFailure(const ClientInfo& client, const std::uint32_t& value) override {
        guarded("onWifiVersionResponseFailure", true,
                [&] { return impl->wifiVersionResponseFailure(client, value), true; });
    }

    void onClientLost(const ClientInfo& client) override {
        guarded("onClientLost", true, [&] { return impl->clientLost(client), true; });
    }

    bool isClientKnown(const std::string& clientId) override {
        return guarded("isClientKnown", false, [&] { return impl->isClientKnown(clientId); });
    }

private:
    /// No exception reaches the library, whose threads may have nobody to catch it.
    template <class Result, class Step>
    static Result guarded(const char* function, Result otherwise, Step step) noexcept {
        try {
            return step();
        } catch (...) {
            qm_Log(QM_SOURCE_PATH, function, __LINE__, QM_LOG_LEVEL_ERROR, "catch exception. what [%s]\n",
                   caughtExceptionText());
            return otherwise;
        }
    }

    QmcWifiProjectionProtocolCallbackImpl* impl;
};

}  // namespace wifi_projection_protocol
