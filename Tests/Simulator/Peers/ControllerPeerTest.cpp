#include "Simulator/private/Peers/ControllerPeer.h"

#include <optional>

#include "Tests/Simulator/FakeReceiver.h"
#include "Tests/Simulator/LoopFixture.h"

namespace simulator {
namespace {

const std::string kHandled(1, '\1');

/// The bytes of a message: its id in host order, here that of the machines that the tests run on, then its
/// body.
std::string message(const std::string& hex) {
    return bytesOfHex(hex);
}

class ControllerPeerTest : public LoopTest {
protected:
    ControllerPeerTest() {
        EXPECT_TRUE(stepUntil([&] { return receiver.isConnected(); }));
        EXPECT_TRUE(awaitEvent("link-up", Json::object(), 2));
    }

    void obey(const Json& order) { book.obey(order.dump()); }

    bool awaitCommands(std::size_t count) {
        return stepUntil([&] { return receiver.commands.size() >= count; });
    }
    bool awaitAnswers(std::size_t count) {
        return stepUntil([&] { return receiver.answers.size() >= count; });
    }

    ControllerPeer peer{loop, events};
    OrderBook book{events, peer.orders()};
    FakeReceiver receiver{loop, "WPP_SOCKET_TO_WPP", "WPP_SOCKET_FROM_WPP"};
};

TEST_F(ControllerPeerTest, SendsTheOrderedCommand) {
    obey({{"order", "send"}, {"message", 1006}, {"btDeviceId", 7}, {"reason", 1}});
    ASSERT_TRUE(awaitCommands(1));
    EXPECT_EQ(hexOfBytes(receiver.commands[0]), "ee0300000701000000");
    EXPECT_EQ(eventsNamed("sent", {{"message", 1006}, {"btDeviceId", 7}}).size(), 1u);
}

TEST_F(ControllerPeerTest, TellsWhichCommandAReplyBelongsTo) {
    obey({{"order", "send"}, {"message", 1004}, {"btDeviceId", 1}});
    obey({{"order", "send"}, {"message", 1005}, {"btDeviceId", 1}});
    ASSERT_TRUE(awaitCommands(2));
    receiver.server->sendFrame(kHandled);
    receiver.server->sendFrame(std::string(1, '\0'));
    ASSERT_TRUE(awaitEvent("reply", Json::object(), 2));
    EXPECT_EQ(eventsNamed("reply", {{"message", 1004}, {"bytes", "01"}}).size(), 1u);
    EXPECT_EQ(eventsNamed("reply", {{"message", 1005}, {"bytes", "00"}}).size(), 1u);
}

TEST_F(ControllerPeerTest, ExpectsNoReplyToTheStartOfTheProtocol) {
    obey({{"order", "send"}, {"message", 1000}});
    obey({{"order", "send"}, {"message", 1001}});
    ASSERT_TRUE(awaitCommands(2));
    receiver.server->sendFrame(kHandled);
    EXPECT_TRUE(awaitEvent("reply", {{"message", 1001}, {"bytes", "01"}}));
}

TEST_F(ControllerPeerTest, RefusesToSendWithoutAMessage) {
    obey({{"order", "send"}});
    EXPECT_EQ(eventsNamed("order-refused", {{"reason", "\"message\" is missing"}}).size(), 1u);
}

TEST_F(ControllerPeerTest, AcknowledgesANotificationWithOneByteAndReportsIt) {
    receiver.client->sendFrame(message("d4070000070000000900000002686f"));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(receiver.answers[0], kHandled);
    EXPECT_EQ(
        eventsNamed("notification", {{"message", 2004}, {"name", "OnWifiConnectStatus"}, {"btDeviceId", 7}})
            .size(),
        1u);
}

TEST_F(ControllerPeerTest, AcknowledgementCanBeAnythingOrNothing) {
    obey({{"order", "acknowledge"}, {"mode", "never"}});
    receiver.client->sendFrame(message("d607000001"));
    ASSERT_TRUE(awaitEvent("notification"));
    obey({{"order", "acknowledge"}, {"mode", "oversized"}});
    receiver.client->sendFrame(message("d607000001"));
    ASSERT_TRUE(awaitAnswers(1));
    obey({{"order", "acknowledge"}, {"mode", "empty"}});
    receiver.client->sendFrame(message("d607000001"));
    ASSERT_TRUE(awaitAnswers(2));
    EXPECT_EQ(receiver.answers[0].size(), 16385u);
    EXPECT_EQ(receiver.answers[1], "");
}

TEST_F(ControllerPeerTest, RefusesAnUnknownAcknowledgement) {
    obey({{"order", "acknowledge"}, {"mode", "loudly"}});
    EXPECT_EQ(eventsNamed("order-refused").size(), 1u);
}

TEST_F(ControllerPeerTest, AnswersTheStartQuestionWithACommandOfItsOwn) {
    obey({{"order", "answer-can-start"}, {"canStart", -5}});
    receiver.client->sendFrame(message("d307000009"));
    ASSERT_TRUE(awaitCommands(1));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(hexOfBytes(receiver.commands[0]), "f003000009fbffffff");
    EXPECT_EQ(receiver.answers[0], kHandled);
}

TEST_F(ControllerPeerTest, AnswersTheStartQuestionNoSoonerThanOrdered) {
    obey({{"order", "answer-can-start"}, {"canStart", 1}, {"after_ms", 80}});
    const wpp_test::Stopwatch watch;
    receiver.client->sendFrame(message("d307000009"));
    ASSERT_TRUE(awaitCommands(1));
    EXPECT_GE(watch.elapsed(), Milliseconds(80));
    EXPECT_LT(watch.elapsed(), wpp_test::kGenerousLimit);
}

TEST_F(ControllerPeerTest, NeverAnswersTheStartQuestionIfSoOrdered) {
    obey({{"order", "answer-can-start"}, {"never", true}});
    receiver.client->sendFrame(message("d307000009"));
    ASSERT_TRUE(awaitAnswers(1));
    obey({{"order", "send"}, {"message", 1001}});
    ASSERT_TRUE(awaitCommands(1));
    EXPECT_EQ(hexOfBytes(receiver.commands[0]), "e9030000");
}

TEST_F(ControllerPeerTest, AnswersTheKeyRequestWithTheMaterial) {
    obey({{"order", "answer-key-request"},
          {"sslCertificate", "a"},
          {"sslPrivateKey", "bc"},
          {"sslCaCertificate", ""}});
    receiver.client->sendFrame(message("d7070000"));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(hexOfBytes(receiver.answers[0]),
              "f30300000000000161000000026263"
              "00000000");
    EXPECT_EQ(eventsNamed("key-answered", {{"message", 1011}}).size(), 1u);
}

TEST_F(ControllerPeerTest, AnswersTheKeyRequestWithAnotherMessageIfSoOrdered) {
    obey({{"order", "answer-key-request"}, {"how", "wrong-id"}});
    receiver.client->sendFrame(message("d7070000"));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(hexOfBytes(receiver.answers[0]), "d0070000");
}

TEST_F(ControllerPeerTest, NeverAnswersTheKeyRequestIfSoOrdered) {
    obey({{"order", "answer-key-request"}, {"how", "never"}});
    receiver.client->sendFrame(message("d7070000"));
    ASSERT_TRUE(awaitEvent("notification", {{"message", 2007}}));
    receiver.client->sendFrame(message("d607000001"));
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(receiver.answers[0], kHandled);
}

TEST_F(ControllerPeerTest, RefusesAnUnknownWayToAnswerTheKeyRequest) {
    obey({{"order", "answer-key-request"}, {"how", "politely"}});
    EXPECT_EQ(eventsNamed("order-refused").size(), 1u);
}

TEST_F(ControllerPeerTest, SendsFramesOfAnyContent) {
    obey({{"order", "send-frame"}, {"bytes", "e7030000"}, {"size", 100000}});
    ASSERT_TRUE(awaitCommands(1));
    EXPECT_EQ(receiver.commands[0], bytesOfHex("e7030000") + std::string(99996, '\0'));
    receiver.server->sendFrame(std::string(1, '\0'));
    EXPECT_TRUE(awaitEvent("reply", {{"message", 999}, {"bytes", "00"}}));
}

TEST_F(ControllerPeerTest, DyingWithinAFrameLeavesHalfAFrame) {
    obey({{"order", "die"}, {"mid_frame", true}});
    obey({{"order", "send-frame"}, {"bytes", "0000000000000000"}});
    // The half frame is 6 of 13 bytes; the frame behind it completes it.
    ASSERT_TRUE(awaitCommands(1));
    EXPECT_EQ(receiver.commands[0].substr(0, 2), bytesOfHex("f003"));
    EXPECT_EQ(eventsNamed("dying").size(), 1u);
}

class LonelyControllerTest : public LoopTest {
protected:
    ControllerPeer peer{loop, events};
    OrderBook book{events, peer.orders()};
};

TEST_F(LonelyControllerTest, RefusesCommandsWhileTheReceiverIsNotThere) {
    book.obey(R"({"order":"send","message":1001})");
    book.obey(R"({"order":"send-frame","bytes":"00"})");
    EXPECT_EQ(eventsNamed("order-refused", {{"reason", "the receiver is not there"}}).size(), 2u);
}

TEST_F(ControllerPeerTest, ConnectsAgainAfterTheReceiverHasGone) {
    receiver.server.reset();
    receiver.client.reset();
    ASSERT_TRUE(awaitEvent("link-down", Json::object(), 2));
    ASSERT_TRUE(awaitEvent("link-up", {{"socket", "WPP_SOCKET_TO_WPP"}}, 2));
    ASSERT_TRUE(stepUntil([&] { return receiver.server != nullptr; }));
    obey({{"order", "send"}, {"message", 1001}});
    EXPECT_TRUE(awaitCommands(1));
}

TEST_F(ControllerPeerTest, ReportsAnUnknownMessageAndAcknowledgesIt) {
    receiver.client->sendFrame("?");
    ASSERT_TRUE(awaitAnswers(1));
    EXPECT_EQ(eventsNamed("notification", {{"message", -1}, {"name", "unknown"}, {"bytes", "3f"}}).size(),
              1u);
}

}  // namespace
}  // namespace simulator
