#include "Core/RfcommTransportInputOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "LibWpp/SppMessages.h"
#include "Pattern/QMSingleton.h"
#include "Proxy/QmcWirelessProjectionBtProxy.h"
#include "Tests/Support/TemporaryDirectory.h"
#include "Tests/WppReceiver/Support/AnsweringPeer.h"

namespace {

using wifi_projection_protocol::DisconnectSppSerializer;
using wifi_projection_protocol::QmcWirelessProjectionBtProxy;
using wifi_projection_protocol::RfcommTransportInputOutput;
using wifi_projection_protocol::SendSppDataSerializer;

/// The transport as the library holds it, before a Bluetooth process that answers.
class RfcommTransportInputOutputTest : public testing::Test {
protected:
    RfcommTransportInputOutputTest() {
        directory.enter();
        process = std::make_unique<wpp_test::AnsweringPeer>("WPP_SOCKET_TO_BT");
        QmcWirelessProjectionBtProxy::getInstance()->openClient();
    }

    ~RfcommTransportInputOutputTest() override { qm_DestroySingletons(); }

    /// The last frame, decoded as SendSppData into `message`.
    void decodeLast(SendSppDataSerializer& message) {
        const std::string frame = process->frames().back();
        message.deserialize(frame.data(), static_cast<unsigned>(frame.size()));
    }

    wpp_test::TemporaryDirectory directory;
    std::unique_ptr<wpp_test::AnsweringPeer> process;
};

TEST_F(RfcommTransportInputOutputTest, ItsLinkIsTheOneSppServiceOfTheDevice) {
    const std::unique_ptr<wifi_projection_protocol::TransportInputOutput> transport =
        std::make_unique<RfcommTransportInputOutput>(9);
    ASSERT_EQ(transport->write("x", 1), 1);

    SendSppDataSerializer message;
    decodeLast(message);
    EXPECT_EQ(message.btDeviceId, 9);
    EXPECT_EQ(message.uuid, "4DE17A0052CB11E6BDF40800200C9A66");
}

TEST_F(RfcommTransportInputOutputTest, OfAWiderDeviceIdTheLowEightBitsAreUsed) {
    RfcommTransportInputOutput transport(258);
    ASSERT_EQ(transport.write("x", 1), 1);

    SendSppDataSerializer message;
    decodeLast(message);
    EXPECT_EQ(message.btDeviceId, 2);
}

TEST_F(RfcommTransportInputOutputTest, DestroyedThroughItsBaseItClosesTheLink) {
    std::unique_ptr<wifi_projection_protocol::TransportInputOutput> transport =
        std::make_unique<RfcommTransportInputOutput>(9);
    transport.reset();
    EXPECT_THAT(process->ids(), testing::ElementsAre(DisconnectSppSerializer::kMessageId));
}

}  // namespace
