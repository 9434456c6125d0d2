#include "Simulator/private/Peers/BluetoothPeer.h"

#include "Simulator/private/Io/LocalSocket.h"
#include "Tests/Simulator/FakeReceiver.h"
#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

constexpr const char* kUuidHex = "000000203444453137413030353243423131453642444634303830303230304339413636";

class BluetoothPeerTest : public LoopTest {
protected:
    BluetoothPeerTest() {
        EXPECT_TRUE(stepUntil([&] { return receiver.isConnected(); }));
        EXPECT_TRUE(awaitEvent("link-up", Json::object(), 2));
    }

    /// A phone's end of its channel.
    struct Phone {
        std::unique_ptr<ByteStream> stream;
        std::string received;
        bool closed = false;
    };

    std::unique_ptr<Phone> link(char device) {
        auto phone = std::make_unique<Phone>();
        phone->stream = std::make_unique<ByteStream>(
            loop, connectLocal(kRfcommSocketName),
            [raw = phone.get()](std::string_view bytes) { raw->received += bytes; },
            [raw = phone.get()] { raw->closed = true; });
        phone->stream->send(std::string(1, device));
        EXPECT_TRUE(awaitEvent("phone-linked", {{"btDeviceId", static_cast<int>(device)}}));
        return phone;
    }

    void obey(const Json& order) { book.obey(order.dump()); }
    bool awaitAnswers(std::size_t count) {
        return stepUntil([&] { return receiver.answers.size() >= count; });
    }

    BluetoothPeer peer{loop, events};
    OrderBook book{events, peer.orders()};
    FakeReceiver receiver{loop, "WPP_SOCKET_FROM_BT", "WPP_SOCKET_TO_BT"};
};

TEST_F(BluetoothPeerTest, ForwardsThePhonesBytesToTheReceiver) {
    const auto phone = link(2);
    phone->stream->send("abc");
    ASSERT_TRUE(stepUntil([&] { return !receiver.commands.empty(); }));
    EXPECT_EQ(hexOfBytes(receiver.commands[0]), std::string("a00f000002") + kUuidHex + "00000003616263");
    receiver.server->sendFrame(std::string(1, '\1'));
    EXPECT_TRUE(awaitEvent("reply", {{"bytes", "01"}}));
}

TEST_F(BluetoothPeerTest, TakesTheDeviceIdAndTheFirstBytesTogether) {
    ByteStream phone(
        loop, connectLocal(kRfcommSocketName), [](std::string_view) {}, [] {});
    phone.send("\5xy");
    ASSERT_TRUE(stepUntil([&] { return !receiver.commands.empty(); }));
    EXPECT_EQ(hexOfBytes(receiver.commands[0]), std::string("a00f000005") + kUuidHex + "000000027879");
}

TEST_F(BluetoothPeerTest, ForwardsTheReceiversBytesToTheirPhone) {
    const auto first = link(1);
    const auto second = link(2);
    receiver.client->sendFrame(bytesOfHex(std::string("b80b000002") + kUuidHex + "00000003616263"));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(hexOfBytes(receiver.answers[0]), "01");
    EXPECT_TRUE(stepUntil([&] { return second->received == "abc"; }));
    EXPECT_EQ(first->received, "");
}

TEST_F(BluetoothPeerTest, AnswersZeroForAPhoneThatIsNotThere) {
    receiver.client->sendFrame(bytesOfHex(std::string("b80b000002") + kUuidHex + "00000003616263"));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(hexOfBytes(receiver.answers[0]), "00");
    EXPECT_EQ(eventsNamed("to-phone", {{"btDeviceId", 2}, {"delivered", false}}).size(), 1u);
}

TEST_F(BluetoothPeerTest, AnswersZeroForAnotherService) {
    const auto phone = link(2);
    receiver.client->sendFrame(
        bytesOfHex("b80b0000020000000178"
                   "00000003616263"));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(hexOfBytes(receiver.answers[0]), "00");
}

TEST_F(BluetoothPeerTest, DisconnectClosesThePhonesChannel) {
    const auto phone = link(2);
    receiver.client->sendFrame(bytesOfHex(std::string("b90b000002") + kUuidHex));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(hexOfBytes(receiver.answers[0]), "01");
    EXPECT_TRUE(stepUntil([&] { return phone->closed; }));
    EXPECT_EQ(eventsNamed("disconnect-spp", {{"btDeviceId", 2}, {"delivered", true}}).size(), 1u);
    EXPECT_EQ(eventsNamed("phone-gone").size(), 0u);
}

TEST_F(BluetoothPeerTest, ReportsAPhoneThatHasGone) {
    const auto phone = link(2);
    phone->stream->close();
    EXPECT_TRUE(awaitEvent("phone-gone", {{"btDeviceId", 2}}));
}

TEST_F(BluetoothPeerTest, PhoneThatLeavesBeforeItsDeviceIdIsNotReported) {
    connectLocal(kRfcommSocketName).reset();
    const auto phone = link(2);
    EXPECT_EQ(eventsNamed("phone-gone").size(), 0u);
}

TEST_F(BluetoothPeerTest, SecondLinkOfADeviceReplacesTheFirst) {
    const auto first = link(2);
    const auto second = link(2);
    EXPECT_TRUE(stepUntil([&] { return first->closed; }));
    receiver.client->sendFrame(bytesOfHex(std::string("b80b000002") + kUuidHex + "0000000178"));
    EXPECT_TRUE(stepUntil([&] { return second->received == "x"; }));
}

TEST_F(BluetoothPeerTest, DropsAPhoneOnOrder) {
    const auto phone = link(2);
    obey({{"order", "drop-phone"}, {"btDeviceId", 2}});
    EXPECT_TRUE(stepUntil([&] { return phone->closed; }));
    obey({{"order", "drop-phone"}, {"btDeviceId", 2}});
    EXPECT_EQ(eventsNamed("order-refused", {{"reason", "the device has no link"}}).size(), 1u);
}

TEST_F(BluetoothPeerTest, AnswersAnUnknownMessageWithZeroAndReportsIt) {
    receiver.client->sendFrame(bytesOfHex("a00f0000"));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(hexOfBytes(receiver.answers[0]), "00");
    EXPECT_EQ(eventsNamed("unknown-message", {{"bytes", "a00f0000"}}).size(), 1u);
}

TEST_F(BluetoothPeerTest, NeverAcknowledgesIfSoOrdered) {
    obey({{"order", "acknowledge"}, {"mode", "never"}});
    receiver.client->sendFrame(bytesOfHex("a00f0000"));
    ASSERT_TRUE(awaitEvent("unknown-message"));
    obey({{"order", "acknowledge"}, {"mode", "normal"}});
    receiver.client->sendFrame(bytesOfHex(std::string("b90b000002") + kUuidHex));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(eventsNamed("disconnect-spp").size(), 1u);
    EXPECT_EQ(receiver.answers.size(), 1u);
}

TEST_F(BluetoothPeerTest, SendsFramesOfAnyContent) {
    obey({{"order", "send-frame"}, {"bytes", "b80b0000"}});
    ASSERT_TRUE(stepUntil([&] { return !receiver.commands.empty(); }));
    EXPECT_EQ(hexOfBytes(receiver.commands[0]), "b80b0000");
}

TEST(BluetoothPeer, BytesForAReceiverThatIsNotThereAreLost) {
    wpp_test::TemporaryDirectory directory;
    directory.enter();
    std::ostringstream text;
    EventWriter events(text);
    PollLoop loop;
    const BluetoothPeer peer(loop, events);
    ByteStream phone(
        loop, connectLocal(kRfcommSocketName), [](std::string_view) {}, [] {});
    phone.send("\2abc");
    const wpp_test::Deadline deadline;
    while (text.str().find("from-phone") == std::string::npos && !deadline.passed()) {
        loop.step(Milliseconds(100));
    }
    EXPECT_NE(text.str().find("\"size\":3,\"delivered\":false"), std::string::npos) << text.str();
}

}  // namespace
}  // namespace simulator
