#include "Simulator/private/Peers/PhonePeer.h"

#include "Simulator/private/Io/Listener.h"
#include "Simulator/private/Peers/RfcommHub.h"
#include "Tests/Simulator/LoopFixture.h"
#include "Tests/Simulator/TlsEndpoint.h"

namespace simulator {
namespace {

using phone_protocol::HeadUnitMessage;
using phone_protocol::PhoneMessage;

/// The messages in a stream of bytes that a phone has sent.
std::vector<PhoneMessage> messagesIn(const std::string& bytes) {
    phone_protocol::PhoneMessageDecoder decoder;
    std::vector<std::string> serialised;
    EXPECT_TRUE(decoder.feed(bytes.data(), bytes.size(), serialised));
    std::vector<PhoneMessage> messages(serialised.size());
    for (std::size_t index = 0; index < serialised.size(); ++index) {
        EXPECT_TRUE(messages[index].ParseFromString(serialised[index]));
    }
    return messages;
}

std::string startMessage() {
    HeadUnitMessage message;
    message.mutable_start()->set_reason(1);
    return phone_protocol::encodeMessage(message);
}

class PhonePeerTest : public LoopTest {
protected:
    void obey(const Json& order) { book.obey(order.dump()); }

    void connectRfcomm() {
        obey({{"order", "connect-rfcomm"}});
        ASSERT_TRUE(stepUntil([&] { return !linked.empty(); }));
    }

    void connectTcp(const Json& more = Json::object()) {
        Json order = {{"order", "connect-tcp"},
                      {"port", server.port},
                      {"certificate", phoneCertificate.certificatePem},
                      {"privateKey", phoneCertificate.privateKeyPem},
                      {"caCertificate", authority.caCertificatePem()}};
        order.update(more);
        obey(order);
        ASSERT_TRUE(awaitEvent("tls-done"));
        ASSERT_TRUE(stepUntil([&] { return tls.established(); }));
    }

    const CertificateAuthority authority;
    const IssuedCertificate phoneCertificate = authority.issue("phone", Usage::kClient);
    TlsServer tls{authority.issue("head-unit", Usage::kServer), &authority};
    TlsEndpoint server{loop, &tls};
    std::vector<int> linked;
    std::string overRfcomm;
    int gone = 0;
    RfcommHub hub{loop,
                  {[this](std::uint8_t device) { linked.push_back(device); },
                   [this](std::uint8_t, std::string_view bytes) { overRfcomm += bytes; },
                   [this](std::uint8_t) { ++gone; }}};
    PhonePeer peer{loop, events, {9, "client", "name", "description"}};
    OrderBook book{events, peer.orders()};
};

TEST_F(PhonePeerTest, LinksUnderItsDeviceIdAndSaysWhoItIs) {
    connectRfcomm();
    EXPECT_EQ(linked, std::vector<int>{9});
    obey({{"order", "hello"}, {"link", "rfcomm"}});
    ASSERT_TRUE(stepUntil([&] { return messagesIn(overRfcomm).size() == 1; }));
    const PhoneMessage message = messagesIn(overRfcomm)[0];
    EXPECT_EQ(message.hello().client_id(), "client");
    EXPECT_EQ(message.hello().phone_name(), "name");
    EXPECT_EQ(message.hello().description(), "description");
}

TEST_F(PhonePeerTest, SendsWifiVersionAndStatus) {
    connectRfcomm();
    obey({{"order", "wifi-version"}, {"link", "rfcomm"}, {"accepted", false}, {"failure", 4}});
    obey({{"order", "wifi-status"}, {"link", "rfcomm"}, {"status", 2}, {"text", "joined"}});
    ASSERT_TRUE(stepUntil([&] { return messagesIn(overRfcomm).size() == 2; }));
    const std::vector<PhoneMessage> messages = messagesIn(overRfcomm);
    EXPECT_FALSE(messages[0].wifi_version_result().accepted());
    EXPECT_EQ(messages[0].wifi_version_result().failure(), 4u);
    EXPECT_EQ(messages[1].wifi_connect_status().status(), 2u);
    EXPECT_EQ(messages[1].wifi_connect_status().text(), "joined");
}

TEST_F(PhonePeerTest, ReportsWhatTheHeadUnitSaysOverRfcomm) {
    connectRfcomm();
    HeadUnitMessage message;
    message.mutable_settings()->set_host("10.0.0.1");
    hub.send(9, phone_protocol::encodeMessage(message));
    EXPECT_TRUE(awaitEvent("settings", {{"link", "rfcomm"}, {"host", "10.0.0.1"}}));
}

TEST_F(PhonePeerTest, ReportsAHeadUnitThatBreaksTheProtocol) {
    connectRfcomm();
    hub.send(9, "\xff\xff\xff\xff");
    EXPECT_TRUE(awaitEvent("protocol-error", {{"link", "rfcomm"}}));
}

TEST_F(PhonePeerTest, ReportsThatItsChannelWasDropped) {
    connectRfcomm();
    hub.drop(9);
    EXPECT_TRUE(awaitEvent("rfcomm-closed"));
    obey({{"order", "hello"}, {"link", "rfcomm"}});
    EXPECT_EQ(eventsNamed("order-refused", {{"reason", "no connection over rfcomm"}}).size(), 1u);
}

TEST_F(PhonePeerTest, CannotLinkWithoutABluetoothProcess) {
    wpp_test::TemporaryDirectory elsewhere;
    elsewhere.enter();
    obey({{"order", "connect-rfcomm"}});
    EXPECT_EQ(eventsNamed("order-refused", {{"reason", "no Bluetooth process listens"}}).size(), 1u);
}

TEST_F(PhonePeerTest, SpeaksItsProtocolInsideTls) {
    connectTcp();
    obey({{"order", "hello"}});
    obey({{"order", "may-i-start"}});
    obey({{"order", "ready"}});
    ASSERT_TRUE(stepUntil([&] { return messagesIn(server.received()).size() == 3; }));
    const std::vector<PhoneMessage> messages = messagesIn(server.received());
    EXPECT_EQ(messages[0].hello().client_id(), "client");
    EXPECT_TRUE(messages[1].has_may_i_start());
    EXPECT_TRUE(messages[2].has_ready_for_projection());
}

TEST_F(PhonePeerTest, AnswersAStartWithItsResult) {
    obey({{"order", "answer-start"}, {"result", 17}});
    connectTcp();
    server.send(startMessage());
    ASSERT_TRUE(awaitEvent("start-answered", {{"result", 17}}));
    ASSERT_TRUE(stepUntil([&] { return messagesIn(server.received()).size() == 1; }));
    EXPECT_EQ(messagesIn(server.received())[0].start_result().result(), 17u);
}

TEST_F(PhonePeerTest, AnswersAStartNoSoonerThanOrdered) {
    obey({{"order", "answer-start"}, {"after_ms", 80}});
    connectTcp();
    const wpp_test::Stopwatch watch;
    server.send(startMessage());
    ASSERT_TRUE(awaitEvent("start-answered"));
    EXPECT_GE(watch.elapsed(), Milliseconds(80));
    EXPECT_LT(watch.elapsed(), wpp_test::kGenerousLimit);
}

TEST_F(PhonePeerTest, NeverAnswersAStartIfSoOrdered) {
    obey({{"order", "answer-start"}, {"never", true}});
    connectTcp();
    server.send(startMessage());
    ASSERT_TRUE(awaitEvent("start"));
    obey({{"order", "ready"}});
    ASSERT_TRUE(stepUntil([&] { return !messagesIn(server.received()).empty(); }));
    EXPECT_TRUE(messagesIn(server.received())[0].has_ready_for_projection());
    EXPECT_EQ(eventsNamed("start-answered").size(), 0u);
}

TEST_F(PhonePeerTest, StartThatOutlivesItsConnectionIsNotAnswered) {
    obey({{"order", "answer-start"}, {"after_ms", 200}});
    connectTcp();
    server.send(startMessage());
    ASSERT_TRUE(awaitEvent("start"));
    obey({{"order", "close"}});
    bool due = false;
    loop.after(Milliseconds(200),
               [&] { due = true; });  // set after the phone's own timer, hence due behind it
    ASSERT_TRUE(stepUntil([&] { return due && server.closed; }));
    EXPECT_EQ(eventsNamed("start-answered").size(), 0u);
    EXPECT_EQ(server.received(), "");
}

TEST_F(PhonePeerTest, ClosesItsLinksOnOrder) {
    connectRfcomm();
    connectTcp();
    obey({{"order", "close"}, {"link", "tcp"}});
    obey({{"order", "close"}, {"link", "rfcomm"}});
    EXPECT_TRUE(stepUntil([&] { return server.closed && gone == 1; }));
    EXPECT_TRUE(tls.ended);
    EXPECT_EQ(eventsNamed("closed").size(), 2u);
}

TEST_F(PhonePeerTest, SendsBytesOfAnyContent) {
    connectTcp();
    obey({{"order", "send-bytes"}, {"link", "tcp"}, {"bytes", "ffffffff"}});
    EXPECT_TRUE(stepUntil([&] { return server.received() == "\xff\xff\xff\xff"; }));
}

TEST_F(PhonePeerTest, ReportsThatTheReceiverClosed) {
    connectTcp();
    server.stream->close();
    EXPECT_TRUE(awaitEvent("tcp-closed", {{"reason", "closed by the receiver"}}));
}

TEST_F(PhonePeerTest, GreetsAsSoonAsTlsIsDoneWhenOrderedTo) {
    connectTcp({{"greet", true}, {"description", "of this connection"}});
    EXPECT_TRUE(stepUntil([&] { return tls.received.find("of this connection") != std::string::npos; }));
}

TEST_F(PhonePeerTest, RefusedConnectionIsReportedAtOnceWithoutPatience) {
    std::uint16_t freePort = 0;
    { freePort = TlsEndpoint(loop, nullptr).port; }
    obey({{"order", "connect-tcp"}, {"port", freePort}});
    EXPECT_TRUE(awaitEvent("tcp-closed", {{"reason", "connect: Connection refused"}}));
}

TEST_F(PhonePeerTest, RefusedConnectionIsTriedAgainUntilPatienceIsOver) {
    std::uint16_t freePort = 0;
    { freePort = TlsEndpoint(loop, nullptr).port; }
    const wpp_test::Stopwatch watch;
    obey({{"order", "connect-tcp"}, {"port", freePort}, {"patience_ms", 100}});
    ASSERT_TRUE(awaitEvent("tcp-closed", {{"reason", "connect: Connection refused"}}));
    EXPECT_GE(watch.elapsed(), Milliseconds(100));
    EXPECT_LT(watch.elapsed(), wpp_test::kGenerousLimit);
    EXPECT_EQ(eventsNamed("tcp-connecting").size(), 1u);
}

TEST_F(PhonePeerTest, RefusesAnUnknownLinkOrManner) {
    obey({{"order", "hello"}, {"link", "pigeon"}});
    EXPECT_EQ(eventsNamed("order-refused", {{"reason", "\"link\" is none of rfcomm, tcp"}}).size(), 1u);
    obey({{"order", "connect-tcp"}, {"manner", "rude"}});
    EXPECT_EQ(eventsNamed("order-refused",
                          {{"reason", "\"manner\" is none of half-hello, plain-text, silent, tls"}})
                  .size(),
              1u);
}

}  // namespace
}  // namespace simulator
