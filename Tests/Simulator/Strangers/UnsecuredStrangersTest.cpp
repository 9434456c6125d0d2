#include <openssl/ssl.h>

#include <string>

#include "Tests/Simulator/Strangers/Siege.h"

// Strangers that never get through a TLS handshake.

namespace simulator {
namespace {

constexpr std::size_t kGarbageSize = 65536;
constexpr std::size_t kVersionInRecord = 1;  // where a ClientHello's two version numbers stand
constexpr std::size_t kVersionInHello = 9;
constexpr std::size_t kTypeInHello = 5;
constexpr std::size_t kTls12Records = 6;  // hello, certificate, key exchange, verification, cipher, finished
constexpr std::size_t kTls13Records = 5;  // hello, cipher, certificate, verification, finished

std::string bytes(std::initializer_list<int> values) {
    std::string text;
    for (const int value : values) {
        text += static_cast<char>(value);
    }
    return text;
}

/// The same nonsense at each run.
std::string garbage() {
    std::string text;
    std::uint32_t state = 12345;
    while (text.size() < kGarbageSize) {
        state = state * 1664525 + 1013904223;
        text += static_cast<char>(state >> 24);
    }
    return text;
}

TlsManner speaking(int version) {
    TlsManner manner;
    manner.version = version;
    return manner;
}

std::string helloOf(int version) {
    return TlsWire::helloOf(speaking(version));
}

/// A greeting of SSL 3, which no library speaks any more.
std::string ssl3Hello() {
    std::string hello = helloOf(TLS1_VERSION);
    hello[kVersionInRecord + 1] = 0;
    hello[kVersionInHello + 1] = 0;
    return hello;
}

/// A greeting with another handshake type in front.
std::string helloOfType(char type) {
    std::string hello = helloOf(TLS1_2_VERSION);
    hello[kTypeInHello] = type;
    return hello;
}

Visit leaveAfter(const std::string& address, const std::string& said, bool byReset) {
    Wire wire = Wire::overTcp(address);
    wire.send(said);
    if (byReset) {
        wire.reset();
    }
    return {};
}

std::function<Visit(const std::string&)> leaving(std::string said, bool byReset) {
    return [said = std::move(said), byReset](const std::string& address) {
        return leaveAfter(address, said, byReset);
    };
}

Visit echo(const std::string& address) {
    Wire wire = Wire::overTcp(address);
    wire.send(helloOf(TLS1_2_VERSION));
    wire.send(wire.receive(kPhoneLimit));
    return endOf(wire);
}

using UnsecuredStrangers = Siege;

TEST_F(UnsecuredStrangers, NonsenseIsTurnedAwayAtOnce) {
    letCome({
        {"garbage", Fate::kTurnedAway, {}, saying(garbage())},
        {"HTTP", Fate::kTurnedAway, {}, saying("GET / HTTP/1.1\r\nHost: head-unit\r\n\r\n")},
        {"record of an impossible length", Fate::kTurnedAway, {}, saying(bytes({22, 3, 1, 255, 255, 1, 0}))},
        {"record of a foreign version", Fate::kTurnedAway, {}, saying(bytes({22, 9, 9, 0, 4, 1, 0, 0, 0}))},
        {"alert first", Fate::kTurnedAway, {}, saying(bytes({21, 3, 1, 0, 2, 2, 40}))},
        {"data first", Fate::kTurnedAway, SSL_AD_UNEXPECTED_MESSAGE, saying(bytes({23, 3, 3, 0, 2, 7, 7}))},
        {"server's part", Fate::kTurnedAway, SSL_AD_UNEXPECTED_MESSAGE, saying(helloOfType(2))},
        {"handshake of an unknown type", Fate::kTurnedAway, SSL_AD_UNEXPECTED_MESSAGE,
         saying(helloOfType(99))},
        {"greeting of 16 MB", Fate::kTurnedAway, {}, saying(bytes({22, 3, 1, 0, 5, 1, 255, 255, 255, 3}))},
        {"empty greeting", Fate::kTurnedAway, SSL_AD_DECODE_ERROR,
         saying(bytes({22, 3, 1, 0, 4, 1, 0, 0, 0}))},
        {"greeting twice", Fate::kTurnedAway, {}, saying(helloOf(TLS1_2_VERSION) + helloOf(TLS1_2_VERSION))},
        {"receiver's own words", Fate::kTurnedAway, SSL_AD_UNEXPECTED_MESSAGE, echo},
    });
}

TEST_F(UnsecuredStrangers, OldVersionsAreTurnedAwayAtOnce) {
    TlsManner hushed = speaking(TLS1_2_VERSION);
    hushed.ciphers = "aNULL";
    letCome({
        {"SSL 2 greeting",
         Fate::kTurnedAway,
         {},
         saying(bytes({128, 46, 1, 0, 2, 0, 21, 0, 0, 0, 16}) + std::string(37, 7))},
        {"SSL 3 greeting", Fate::kTurnedAway, SSL_AD_HANDSHAKE_FAILURE, saying(ssl3Hello())},
        {"TLS 1.0 greeting", Fate::kTurnedAway, SSL_AD_PROTOCOL_VERSION, saying(helloOf(TLS1_VERSION))},
        {"TLS 1.1 greeting", Fate::kTurnedAway, SSL_AD_PROTOCOL_VERSION, saying(helloOf(TLS1_1_VERSION))},
        {"ciphers without a certificate", Fate::kTurnedAway, SSL_AD_HANDSHAKE_FAILURE,
         saying(TlsWire::helloOf(hushed))},
    });
}

TEST_F(UnsecuredStrangers, ThoseThatLeaveAreForgotten) {
    const std::string hello = helloOf(TLS1_2_VERSION);
    letCome({
        {"early close", Fate::kLeft, {}, leaving("", false)},
        {"early reset", Fate::kLeft, {}, leaving("", true)},
        {"close after the greeting", Fate::kLeft, {}, leaving(hello, false)},
        {"reset after the greeting", Fate::kLeft, {}, leaving(hello, true)},
        {"close within the greeting", Fate::kLeft, {}, leaving(hello.substr(0, hello.size() / 2), false)},
        {"reset within the greeting", Fate::kLeft, {}, leaving(hello.substr(0, hello.size() / 2), true)},
    });
}

/// Stops within the record behind so many whole ones, and waits or goes.
std::function<Visit(const std::string&)> stopping(TlsManner manner, std::size_t wholeRecords, bool goes) {
    return [manner = std::move(manner), wholeRecords, goes](const std::string& address) {
        TlsWire tls(Wire::overTcp(address), manner);
        EXPECT_FALSE(tls.handshake(wholeRecords));
        EXPECT_EQ(tls.recordsSent(), wholeRecords);
        if (goes) {
            tls.wire.endSending();
        }
        return endOf(tls);
    };
}

/// Counts the records of a handshake that is not stopped.
std::function<Visit(const std::string&)> counting(TlsManner manner, std::size_t records) {
    return [manner = std::move(manner), records](const std::string& address) {
        TlsWire tls(Wire::overTcp(address), manner);
        EXPECT_TRUE(tls.handshake());
        EXPECT_EQ(tls.recordsSent(), records);
        return Visit{};
    };
}

class CutHandshakes : public Siege {
protected:
    TlsManner honest(int version) const {
        TlsManner manner = speaking(version);
        manner.papers = papers.phone;
        return manner;
    }

    void letStop(Fate fate) {
        names.reserve(kTls12Records + kTls13Records);
        std::vector<Stranger> strangers{
            {"whole TLS 1.2 handshake", Fate::kLeft, {}, counting(honest(TLS1_2_VERSION), kTls12Records)},
            {"whole TLS 1.3 handshake", Fate::kLeft, {}, counting(honest(TLS1_3_VERSION), kTls13Records)}};
        addCuts(strangers, "TLS 1.2", TLS1_2_VERSION, kTls12Records, fate);
        addCuts(strangers, "TLS 1.3", TLS1_3_VERSION, kTls13Records, fate);
        letCome(strangers);
    }

private:
    void addCuts(std::vector<Stranger>& strangers, const char* text, int version, std::size_t records,
                 Fate fate) {
        for (std::size_t whole = 0; whole < records; ++whole) {
            names.push_back(std::string(text) + " cut within record " + std::to_string(whole + 1));
            strangers.push_back({names.back().c_str(),
                                 fate,
                                 {},
                                 stopping(honest(version), whole, fate == Fate::kTurnedAway)});
        }
    }

    std::vector<std::string> names;
};

TEST_F(CutHandshakes, StrangerThatStopsWithinAnyRecordIsTimedOut) {
    letStop(Fate::kTimedOut);
}

TEST_F(CutHandshakes, StrangerThatEndsWithinAnyRecordIsForgottenAtOnce) {
    letStop(Fate::kTurnedAway);
}

TEST_F(UnsecuredStrangers, SlowOnesAreTimedOut) {
    const std::string hello = helloOf(TLS1_2_VERSION);
    letCome({
        {"silent", Fate::kTimedOut, {}, saying("")},
        {"half a ClientHello", Fate::kTimedOut, {}, saying(hello.substr(0, hello.size() / 2))},
        {"half a record header", Fate::kTimedOut, {}, saying(hello.substr(0, 3))},
        {"record without content", Fate::kTimedOut, {}, saying(hello + bytes({22, 3, 3}))},
        {"one byte per second",
         Fate::kTimedOut,
         {},
         [hello](const std::string& address) {
             Wire wire = Wire::overTcp(address);
             wire.sendSlowly(hello, Milliseconds(1000));
             return endOf(wire);
         }},
        {"greeting, then one byte per second",
         Fate::kTimedOut,
         {},
         [hello](const std::string& address) {
             Wire wire = Wire::overTcp(address);
             wire.send(hello);
             wire.sendSlowly(bytes({22, 3, 3, 64, 0}) + hello, Milliseconds(1000));
             return endOf(wire);
         }},
    });
}

}  // namespace
}  // namespace simulator
