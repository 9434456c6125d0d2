#include <string>
#include <utility>
#include <vector>

#include "LibWpp/SppMessages.h"
#include "Simulator/private/Peers/MessageBytes.h"
#include "Tests/Simulator/Strangers/Siege.h"
#include "Tests/Support/Deadline.h"
#include "phone/PhoneMessageCodec.h"
#include "phone/PhoneProtocol.pb.h"

// Strangers that come over RFCOMM: paired by the Bluetooth process, but unknown to the controller.

namespace simulator {
namespace {

using phone_protocol::encodeMessage;
using phone_protocol::PhoneMessage;
using wifi_projection_protocol::RecvSppDataSerializer;

constexpr Milliseconds kPatience{30000};
constexpr Milliseconds kAMoment{300};  // in which nothing may come; what would come takes some milliseconds
constexpr Milliseconds kMargin{100};
constexpr Milliseconds kLateness{25000};
constexpr int kFloodMessages = 2000;
constexpr const char* kForeignUuid = "00000000000000000000000000000000";

std::string hello(const std::string& clientId) {
    PhoneMessage message;
    message.mutable_hello()->set_client_id(clientId);
    return encodeMessage(message);
}

std::string mayIStart() {
    PhoneMessage message;
    message.mutable_may_i_start();
    return encodeMessage(message);
}

std::string status() {
    PhoneMessage message;
    message.mutable_wifi_connect_status()->set_text("joined");
    return encodeMessage(message);
}

std::string oversized() {
    return std::string("\x00\x01\x00\x01", 4);
}

std::string flood() {
    std::string all;
    for (int i = 0; i < kFloodMessages; ++i) {
        all += status();
    }
    return all;
}

class RfcommStrangers : public Siege {
protected:
    struct Channel {
        std::uint8_t device;
        Wire wire;
    };

    /// A channel that is open and handed to the receiver.
    Channel open() {
        const std::uint8_t device = nextDevice++;
        Channel channel{device, openRfcomm(device)};
        announceRfcomm(device);
        return channel;
    }

    /// A channel that has greeted, too.
    Channel openAndGreet() {
        Channel channel = open();
        channel.wire.send(hello("stranger"));
        EXPECT_FALSE(channel.wire.receive(kPatience).empty());
        return channel;
    }

    /// The receiver has the channel dropped.
    void expectDropped(Channel& channel, const char* name) {
        SCOPED_TRACE(name);
        expectRfcommDropped(channel.device);
        expectClosed(channel, name);
    }

    void expectClosed(Channel& channel, const char* name) {
        SCOPED_TRACE(name);
        channel.wire.awaitEnd(kPatience);
        EXPECT_TRUE(channel.wire.hasEnded());
        serveHonestPhone(name);
    }

    /// The receiver does nothing, and serves the honest phone meanwhile.
    void expectIgnored(Channel& channel, const char* name) {
        SCOPED_TRACE(name);
        serveHonestPhone(name);
        EXPECT_EQ(channel.wire.receive(kAMoment), "");
        EXPECT_FALSE(channel.wire.hasEnded());
    }

    /// Bytes as the Bluetooth process reports them, of whatever device and service.
    void reportBytes(std::uint8_t device, const std::string& uuid, const std::string& bytes) {
        const void* const data = bytes.data();
        RecvSppDataSerializer message(device, uuid, static_cast<const std::uint8_t*>(data),
                                      static_cast<std::uint32_t>(bytes.size()));
        road->order(Road::kBluetooth, {{"order", "send-frame"}, {"bytes", hexOfBytes(payloadOf(message))}});
        road->await({Road::kBluetooth, "reply", {{"bytes", "01"}}, Json::object(), {}});
    }

    void TearDown() override {
        expectControllerHeardNothing();
        Siege::TearDown();
    }

private:
    std::uint8_t nextDevice = 100;
};

TEST_F(RfcommStrangers, ThoseWhoBreakTheProtocolAreDroppedAtOnce) {
    const std::vector<std::pair<const char*, std::string>> firstWords{
        {"garbage", std::string(64, '\xff')},
        {"garbage as a message", std::string("\0\0\0\x04", 4) + std::string(4, '\xff')},
        {"HTTP", "GET / HTTP/1.1\r\n\r\n"},
        {"oversized length", oversized()},
        {"zero length", std::string(4, '\0')},
        {"status first", status()},
        {"question first", mayIStart()},
        {"greeting without an id", hello("")},
        {"flood ahead of the greeting", flood()},
    };
    for (const auto& [name, words] : firstWords) {
        Channel channel = open();
        const wpp_test::Stopwatch stopwatch;
        channel.wire.send(words);
        expectRfcommDropped(channel.device);
        EXPECT_LT(stopwatch.elapsed(), kPhoneLimit - kMargin) << name;
        expectClosed(channel, name);
    }
}

TEST_F(RfcommStrangers, ThoseWhoBreakTheProtocolAfterTheGreetingAreDroppedAtOnce) {
    const std::vector<std::pair<const char*, std::string>> words{
        {"greeting twice", hello("stranger")},
        {"question that belongs on TCP", mayIStart()},
        {"garbage after the greeting", std::string(64, '\xff')},
        {"zero length after the greeting", std::string(4, '\0')},
        {"flood, then an oversized length", flood() + oversized()},
    };
    for (const auto& [name, nextWords] : words) {
        Channel channel = openAndGreet();
        channel.wire.send(nextWords);
        expectDropped(channel, name);
    }
}

TEST_F(RfcommStrangers, ThoseWhoDallyAreDroppedAtTheLimit) {
    const wpp_test::Stopwatch stopwatch;
    Channel silent = open();
    Channel halfway = open();
    Channel endless = open();
    Channel slow = open();
    Channel truncated = openAndGreet();
    halfway.wire.send(hello("stranger").substr(0, 6));
    endless.wire.send(std::string("\0\1\0\0", 4) + std::string(1000, 'x'));
    slow.wire.sendSlowly(hello("x").substr(0, 3), Milliseconds(1000));
    truncated.wire.send(status().substr(0, 5));
    serveHonestPhone("five strangers that dally");
    for (Channel* channel : {&silent, &halfway, &endless, &slow, &truncated}) {
        expectRfcommDropped(channel->device);
        channel->wire.awaitEnd(kPatience);
        EXPECT_TRUE(channel->wire.hasEnded());
        EXPECT_GE(stopwatch.elapsed(), kPhoneLimit - kMargin);
    }
    EXPECT_LE(stopwatch.elapsed(), 2 * kPhoneLimit + kLateness);
}

TEST_F(RfcommStrangers, ThoseWhoComeAtTheWrongTimeAreIgnored) {
    const std::uint8_t device = 90;
    Channel early{device, openRfcomm(device)};
    early.wire.send(hello("stranger"));
    expectIgnored(early, "data before the connection");
    announceRfcomm(device);
    early.wire.send(hello("stranger"));
    EXPECT_FALSE(early.wire.receive(kPatience).empty());
    withdrawRfcomm(device);
    early.wire.awaitEnd(kPatience);
    EXPECT_TRUE(early.wire.hasEnded());

    Channel late{device, openRfcomm(device)};
    late.wire.send(hello("stranger"));
    expectIgnored(late, "data after the connection");
}

TEST_F(RfcommStrangers, DataOfAnotherDeviceOrServiceIsIgnored) {
    Channel channel = openAndGreet();
    reportBytes(channel.device, kForeignUuid, std::string(64, '\xff'));
    expectIgnored(channel, "foreign service");
    reportBytes(channel.device, "", std::string(64, '\xff'));
    expectIgnored(channel, "empty service");
    reportBytes(250, "4DE17A0052CB11E6BDF40800200C9A66", std::string(64, '\xff'));
    expectIgnored(channel, "unknown device");
    reportBytes(channel.device, "4DE17A0052CB11E6BDF40800200C9A66", "");
    expectIgnored(channel, "nothing at all");
    channel.wire.send(std::string(64, '\xff'));
    expectDropped(channel, "its own");
}

TEST_F(RfcommStrangers, GreetingByteByByteIsTaken) {
    Channel channel = open();
    channel.wire.sendSlowly(hello("stranger"), Milliseconds(1));
    serveHonestPhone("greeting byte by byte");
    const wpp_test::Deadline deadline;
    while (channel.wire.received().empty() && !deadline.passed()) {
        channel.wire.receive(deadline.remaining());
    }
    EXPECT_FALSE(channel.wire.received().empty());
    withdrawRfcomm(channel.device);
}

TEST_F(RfcommStrangers, FloodOfProperMessagesIsTakenAndGoesNowhere) {
    Channel channel = openAndGreet();
    channel.wire.send(flood());
    serveHonestPhone("flood");
    EXPECT_FALSE(channel.wire.hasEnded());
    withdrawRfcomm(channel.device);
    expectRfcommDropped(channel.device);
}

TEST_F(RfcommStrangers, SecondConnectionOfADeviceTakesTheFirstOnesPlace) {
    Channel channel = openAndGreet();
    announceRfcomm(channel.device);
    expectDropped(channel, "connected twice");
    withdrawRfcomm(channel.device);
}

}  // namespace
}  // namespace simulator
