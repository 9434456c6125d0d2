#include <openssl/ssl.h>

#include <string>

#include "Tests/Simulator/Strangers/Siege.h"
#include "phone/PhoneMessageCodec.h"
#include "phone/PhoneProtocol.pb.h"

// Strangers with a good certificate, who do not keep to the protocol inside TLS.

namespace simulator {
namespace {

using phone_protocol::encodeMessage;
using phone_protocol::PhoneMessage;

constexpr Milliseconds kPatience{30000};
constexpr Milliseconds kSecond{1000};
constexpr int kFloodRounds = 200;
constexpr int kFloodMessages = 200;  // in each round
constexpr int kRenewals = 100;
constexpr std::size_t kLongestId = 256;
constexpr std::size_t kLongestText = 4096;
constexpr std::uint8_t kKnownDevice = 200;
constexpr const char* kKnownId = "stranger-200";

/// What is said inside TLS, and whatever else is done there.
using Script = std::function<void(TlsWire& tls)>;

std::string hello(const std::string& clientId, const std::string& name = "stranger") {
    PhoneMessage message;
    message.mutable_hello()->set_client_id(clientId);
    message.mutable_hello()->set_phone_name(name);
    return encodeMessage(message);
}

std::string mayIStart() {
    PhoneMessage message;
    message.mutable_may_i_start();
    return encodeMessage(message);
}

std::string ready() {
    PhoneMessage message;
    message.mutable_ready_for_projection();
    return encodeMessage(message);
}

std::string startResult() {
    PhoneMessage message;
    message.mutable_start_result()->set_result(1);
    return encodeMessage(message);
}

std::string status(const std::string& text) {
    PhoneMessage message;
    message.mutable_wifi_connect_status()->set_status(1);
    message.mutable_wifi_connect_status()->set_text(text);
    return encodeMessage(message);
}

std::string lengthWord(std::uint32_t length) {
    std::string word;
    for (int shift = 24; shift >= 0; shift -= 8) {
        word += static_cast<char>(length >> shift & 0xff);
    }
    return word;
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) {
        all += text;
    }
    return all;
}

Script sayingInside(std::string words) {
    return [words = std::move(words)](TlsWire& tls) { tls.send(words); };
}

/// Sends the last words a byte at a time.
Script sayingSlowly(std::string first, std::string slowly) {
    return [first = std::move(first), slowly = std::move(slowly)](TlsWire& tls) {
        tls.send(first);
        for (std::size_t at = 0; at < slowly.size() && !tls.wire.hasEnded(); ++at) {
            tls.send(slowly.substr(at, 1));
            tls.wire.awaitEnd(kSecond);
        }
    };
}

class SecuredStrangers : public Siege {
protected:
    using Come = std::function<Visit(const std::string&)>;

    Come securedBy(int version, Script script, Wire::Room room = Wire::Room::kUsual) const {
        TlsManner manner;
        manner.papers = papers.phone;
        manner.version = version;
        return [manner = std::move(manner), script = std::move(script), room](const std::string& address) {
            TlsWire tls(Wire::overTcp(address, room), manner);
            EXPECT_TRUE(tls.handshake());
            script(tls);
            return endOf(tls);
        };
    }

    Come secured(Script script) const { return securedBy(0, std::move(script)); }

    /// Says who it is, is welcome, and goes on.
    Come greeted(Script script, Wire::Room room = Wire::Room::kUsual) const {
        const Script whole = [script = std::move(script)](TlsWire& tls) {
            tls.send(hello(kKnownId));
            EXPECT_FALSE(tls.receive(1, kPatience).empty());
            script(tls);
        };
        return securedBy(0, whole, room);
    }

    /// Makes `kKnownId` known to the receiver's library, by RFCOMM, but not to the controller.
    void becomeKnown() {
        known.emplace(openRfcomm(kKnownDevice));
        announceRfcomm(kKnownDevice);
        known->send(hello(kKnownId));
        ASSERT_FALSE(known->receive(kPatience).empty());
    }

    void beForgotten() {
        withdrawRfcomm(kKnownDevice);
        known->awaitEnd(kPatience);
        EXPECT_TRUE(known->hasEnded());
    }

private:
    std::optional<Wire> known;
};

TEST_F(SecuredStrangers, ThoseWhoGreetBadlyAreTurnedAwayAtOnce) {
    const std::string unknownKind = lengthWord(2) + "\x78\x01";  // field 15 is 1
    letCome({
        {"length of 4 GB", Fate::kTurnedAway, {}, secured(sayingInside(lengthWord(~0u)))},
        {"length one too large", Fate::kTurnedAway, {}, secured(sayingInside(lengthWord(65537)))},
        {"length of zero", Fate::kTurnedAway, {}, secured(sayingInside(lengthWord(0)))},
        {"garbage as a message",
         Fate::kTurnedAway,
         {},
         secured(sayingInside(lengthWord(8) + std::string(8, '\xff')))},
        {"unknown message", Fate::kTurnedAway, {}, secured(sayingInside(unknownKind))},
        {"question first", Fate::kTurnedAway, {}, secured(sayingInside(mayIStart()))},
        {"ready first", Fate::kTurnedAway, {}, secured(sayingInside(ready()))},
        {"result first", Fate::kTurnedAway, {}, secured(sayingInside(startResult()))},
        {"status first", Fate::kTurnedAway, {}, secured(sayingInside(status("joined")))},
        {"greeting without an id", Fate::kTurnedAway, {}, secured(sayingInside(hello("")))},
        {"id one byte too long",
         Fate::kTurnedAway,
         {},
         secured(sayingInside(hello(std::string(kLongestId + 1, 'x'))))},
        {"name one byte too long",
         Fate::kTurnedAway,
         {},
         secured(sayingInside(hello("x", std::string(kLongestText + 1, 'x'))))},
        {"id that nobody knows", Fate::kTurnedAway, {}, secured(sayingInside(hello("nobody")))},
        {"flood ahead of the greeting",
         Fate::kTurnedAway,
         {},
         secured(sayingInside(repeated(status("joined"), kFloodMessages)))},
    });
}

TEST_F(SecuredStrangers, ThoseWhoBreakTlsAreTurnedAwayAtOnce) {
    const Script half = sayingInside(hello("x").substr(0, 6));
    letCome({
        {"close without close_notify", Fate::kTurnedAway, {}, secured([](TlsWire& tls) {
             tls.wire.endSending();
         })},
        {"close_notify alone", Fate::kTurnedAway, {}, secured([](TlsWire& tls) { tls.sayGoodbye(); })},
        {"close within a message", Fate::kTurnedAway, {}, secured([half](TlsWire& tls) {
             half(tls);
             tls.wire.endSending();
         })},
        {"close_notify within a message", Fate::kTurnedAway, {}, secured([half](TlsWire& tls) {
             half(tls);
             tls.sayGoodbye();
         })},
        {"close within a record", Fate::kTurnedAway, {}, secured([](TlsWire& tls) {
             tls.wire.send(tls.encrypt(hello("x")).substr(0, 10));
             tls.wire.endSending();
         })},
        {"garbage record", Fate::kTurnedAway, SSL_AD_BAD_RECORD_MAC, secured([](TlsWire& tls) {
             tls.wire.send(std::string("\x17\x03\x03\x00\x20", 5) + std::string(32, 'x'));
         })},
        {"oversized record", Fate::kTurnedAway, {}, secured([](TlsWire& tls) {
             tls.wire.send(std::string("\x17\x03\x03\xff\xff", 5));
         })},
        {"plain text after TLS", Fate::kTurnedAway, {}, secured([](TlsWire& tls) {
             tls.wire.send("GET / HTTP/1.1\r\n\r\n");
         })},
        {"record twice", Fate::kTurnedAway, SSL_AD_BAD_RECORD_MAC, secured([](TlsWire& tls) {
             const std::string record = tls.encrypt(std::string(1, '\0'));
             tls.wire.send(record + record);
         })},
        {"spoiled record", Fate::kTurnedAway, SSL_AD_BAD_RECORD_MAC, secured([](TlsWire& tls) {
             std::string record = tls.encrypt(hello("x"));
             record.back() = static_cast<char>(~record.back());
             tls.wire.send(record);
         })},
        {"reset after TLS", Fate::kLeft, {}, secured([](TlsWire& tls) { tls.wire.reset(); })},
    });
}

TEST_F(SecuredStrangers, ThoseWhoDallyAreTimedOut) {
    letCome({
        {"silence after TLS", Fate::kTimedOut, {}, secured([](TlsWire&) {})},
        {"half a length", Fate::kTimedOut, {}, secured(sayingInside(std::string(2, '\0')))},
        {"truncated message", Fate::kTimedOut, {}, secured(sayingInside(hello("x").substr(0, 6)))},
        {"endless message",
         Fate::kTimedOut,
         {},
         secured(sayingSlowly(lengthWord(65536), std::string(65536, 'x')))},
        {"renegotiation", Fate::kTimedOut, SSL_AD_NO_RENEGOTIATION,
         securedBy(TLS1_2_VERSION, [](TlsWire& tls) { EXPECT_TRUE(tls.renegotiate()); })},
        {"new keys again and again",
         Fate::kTimedOut,
         {},
         securedBy(TLS1_3_VERSION,
                   [](TlsWire& tls) {
                       for (int i = 0; i < kRenewals && tls.updateKeys(); ++i) {
                       }
                   })},
    });
}

TEST_F(SecuredStrangers, ThoseWhoGoWrongAfterTheGreetingAreTurnedAwayAtOnce) {
    becomeKnown();
    letCome({
        {"greeting twice", Fate::kTurnedAway, {}, greeted(sayingInside(hello(kKnownId)))},
        {"result that is not due", Fate::kTurnedAway, {}, greeted(sayingInside(startResult()))},
        {"status one byte too long",
         Fate::kTurnedAway,
         {},
         greeted(sayingInside(status(std::string(kLongestText + 1, 'x'))))},
        {"garbage after the greeting",
         Fate::kTurnedAway,
         {},
         greeted(sayingInside(lengthWord(4) + std::string(4, '\xff')))},
        {"length of zero after the greeting", Fate::kTurnedAway, {}, greeted(sayingInside(lengthWord(0)))},
        {"oversized length after the greeting",
         Fate::kTurnedAway,
         {},
         greeted(sayingInside(lengthWord(65537)))},
        {"end after the greeting", Fate::kTurnedAway, {}, greeted([](TlsWire& tls) {
             tls.wire.endSending();
         })},
        {"flood of messages", Fate::kTurnedAway, {}, greeted([](TlsWire& tls) {
             const std::string many = repeated(status("joined"), kFloodMessages);
             for (int i = 0; i < kFloodRounds && tls.send(many); ++i) {
             }
             tls.sayGoodbye();
         })},
        {"ready although nobody knows it", Fate::kTurnedAway, {}, greeted([](TlsWire& tls) {
             tls.send(ready() + mayIStart());
             EXPECT_FALSE(tls.receive(1, kPatience).empty());
             tls.sayGoodbye();
         })},
    });
    beForgotten();
}

TEST_F(SecuredStrangers, TruncatedMessageAfterTheGreetingIsTimedOut) {
    becomeKnown();
    letCome({{"truncated message after the greeting",
              Fate::kTimedOut,
              {},
              greeted(sayingInside(status("joined").substr(0, 6)))}});
    beForgotten();
}

TEST_F(SecuredStrangers, OneWhoAsksAndNeverReadsIsTimedOut) {
    constexpr int kQuestions = 40000;  // a multiple of what has room on the way as answers
    becomeKnown();
    const Script script = [](TlsWire& tls) {
        tls.send(repeated(mayIStart(), kQuestions));
        tls.wire.awaitEndUnread(kPatience);
    };
    letCome({{"asks and never reads", Fate::kTimedOut, {}, greeted(script, Wire::Room::kLittle)}});
    beForgotten();
}

TEST_F(SecuredStrangers, NewConnectionOfTheSameIdTakesTheFormerOnesPlace) {
    becomeKnown();
    TlsManner manner;
    manner.papers = papers.phone;
    TlsWire former(Wire::overTcp("127.4.0.1"), manner);
    ASSERT_TRUE(former.handshake());
    former.send(hello(kKnownId));
    ASSERT_FALSE(former.receive(1, kPatience).empty());
    letCome({{"same id", Fate::kTurnedAway, {}, greeted([](TlsWire& tls) { tls.sayGoodbye(); })}});
    EXPECT_TRUE(endOf(former).endedByReceiver);
    EXPECT_TRUE(former.heardGoodbye());
    beForgotten();
}

}  // namespace
}  // namespace simulator
