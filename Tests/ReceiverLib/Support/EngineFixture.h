#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>

#include "Tests/ReceiverLib/Support/MemoryLink.h"
#include "Tests/ReceiverLib/Support/RecordingHeadUnit.h"
#include "Tests/ReceiverLib/Support/TestPhone.h"
#include "private/ProtocolEngine.h"

namespace wpp_test {

/// An engine between a recording head unit and phones on memory links.
class EngineFixture : public testing::Test {
protected:
    using TransportType = wifi_projection_protocol::TransportType;

    /// A phone on a link that the engine has been given.
    struct Peer {
        std::shared_ptr<MemoryLink> link = MemoryLink::make();
        TestPhone phone{link};
    };

    void makeEngine(const wifi_projection_protocol::Limits& limits = {}) {
        wifi_projection_protocol::FixedSettings settings;
        settings.channelType = wifi_discovery::WifiChannelType{5};
        settings.channelList = {36, 149};
        settings.headUnitInfo.set_text_1("head unit");
        engine = std::make_unique<wifi_projection_protocol::ProtocolEngine>(
            wifi_projection_protocol::Callbacks{unit->makeCallback(), unit->makeInfoProvider(),
                                                unit->makeLog()},
            settings, limits);
    }

    void SetUp() override { makeEngine(); }

    Peer connect(const std::string& name, TransportType type) {
        Peer peer;
        engine->clientConnected(name, type, peer.link->makeTransport());
        return peer;
    }

    /// A phone that has said Hello over RFCOMM.
    Peer introduceOnRfcomm(const std::string& clientId, const std::string& name) {
        Peer peer = connect(name, TransportType::kRfcomm);
        EXPECT_TRUE(peer.phone.introduce(clientId));
        return peer;
    }

    /// A phone that the head unit knows and that has said Hello over TCP.
    Peer introduceOnTcp(const std::string& clientId, const std::string& name) {
        unit->addKnown(clientId);
        Peer peer = connect(name, TransportType::kTcp);
        EXPECT_TRUE(peer.phone.introduce(clientId));
        return peer;
    }

    std::future<std::uint32_t> start(const std::string& clientId, std::uint32_t reason = 1) {
        return engine->startProjection(clientId, wifi_discovery::StartRequestReason{reason});
    }

    static bool isReady(const std::future<std::uint32_t>& future) {
        return future.wait_for(kPatience) == std::future_status::ready;
    }

    std::shared_ptr<RecordingHeadUnit> unit = RecordingHeadUnit::make();
    std::unique_ptr<wifi_projection_protocol::ProtocolEngine> engine;
};

}  // namespace wpp_test
