#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "Core/QmcWifiProjectionProtocol.h"
#include "Core/QmcWifiProjectionProtocolDevice.h"
#include "Pattern/QMSingleton.h"
#include "Tests/Support/Deadline.h"
#include "Tests/Support/LogCapture.h"
#include "Tests/WppReceiver/Support/FakeReceiverLib.h"
#include "Tests/WppReceiver/Support/RecordingController.h"

namespace wpp_test {

/// A client as the library describes it.
inline wifi_projection_protocol::ClientInfo makeClient(std::string clientId,
                                                       wifi_projection_protocol::TransportNames transports) {
    wifi_projection_protocol::ClientInfo client;
    client.clientId = std::move(clientId);
    client.transports = std::move(transports);
    client.phoneName = "name of " + client.clientId;
    client.phoneInfo.set_description("description of " + client.clientId);
    return client;
}

/// A projection protocol owner between a recording controller and the fake library.
class ProtocolFixture : public testing::Test {
protected:
    using TransportType = wifi_projection_protocol::TransportType;

    ProtocolFixture() { FakeReceiverLib::instance().reset(); }

    ~ProtocolFixture() override {
        owner.reset();
        qm_DestroySingletons();
    }

    wifi_projection_protocol::QmcWifiProjectionProtocol& makeOwner(const std::string& certificate = "",
                                                                   const std::string& privateKey = "",
                                                                   const std::string& caCertificate = "") {
        owner = std::make_unique<wifi_projection_protocol::QmcWifiProjectionProtocol>(
            &controller, wifi_discovery::WifiChannelType{2}, std::vector<unsigned int>{36, 40},
            common::HeadUnitInfo(), certificate, privateKey, caCertificate);
        return *owner;
    }

    /// A phone that the controller has announced and the library has reported over both transports.
    void makeKnownClient(std::uint8_t id, const std::string& clientId) {
        owner->addDeviceInfo(id, "info", clientId);
        owner->deviceRecords().updateFrom(
            makeClient(clientId, {{TransportType::kRfcomm, "RFCOMM_" + std::to_string(id)},
                                  {TransportType::kTcp, "TCP_10.0.0." + std::to_string(id)}}));
    }

    FakeReceiverLib& library = FakeReceiverLib::instance();
    RecordingController controller;
    LogCapture log;
    std::unique_ptr<wifi_projection_protocol::QmcWifiProjectionProtocol> owner;
};

}  // namespace wpp_test
