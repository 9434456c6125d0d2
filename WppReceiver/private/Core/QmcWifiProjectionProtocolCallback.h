#pragma once

#include <cstdint>
#include <string>

#include "Core/QmcWifiProjectionProtocolCallbackImpl.h"
#include "wifi_projection_protocol/WifiProjectionProtocolCallback.h"

namespace wifi_projection_protocol {

/// The library's way to QmcWifiProjectionProtocolCallbackImpl. The library owns it and calls it from its own
/// threads; the object behind it, which it does not own, outlives it.
class QmcWifiProjectionProtocolCallback final : public WifiProjectionProtocolCallback {
public:
    explicit QmcWifiProjectionProtocolCallback(QmcWifiProjectionProtocolCallbackImpl* callbackImpl)
        : impl(callbackImpl) {}

    int canStartProjection(const ClientInfo& client) override { return impl->canStartProjection(client); }

    void onReadyForProjection(const ClientInfo& client) override { impl->readyForProjection(client); }

    void onWifiConnectStatus(const std::string& clientId, const std::uint32_t& status,
                             const std::string& text) override {
        impl->wifiConnectStatus(clientId, status, text);
    }

    void onWifiVersionResponseFailure(const ClientInfo& client, const std::uint32_t& value) override {
        impl->wifiVersionResponseFailure(client, value);
    }

    void onClientLost(const ClientInfo& client) override { impl->clientLost(client); }

    bool isClientKnown(const std::string& clientId) override { return impl->isClientKnown(clientId); }

private:
    QmcWifiProjectionProtocolCallbackImpl* impl;
};

}  // namespace wifi_projection_protocol
