#include "Simulator/private/Peers/TlsSession.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "Tests/Simulator/TlsServer.h"

namespace simulator {
namespace {

class TlsSessionTest : public testing::Test {
protected:
    TlsCredentials phoneOf(const CertificateAuthority& issuer) const {
        const IssuedCertificate issued = issuer.issue("phone", Usage::kClient);
        return {issued.certificatePem, issued.privateKeyPem, authority.caCertificatePem()};
    }

    /// Carries bytes both ways until neither side has any left. @return what the phone has received in plain.
    static std::string exchange(TlsSession& phone, TlsServer& server) {
        std::string plain;
        std::string toServer = phone.takeOutgoing();
        std::string toPhone = server.takeOutgoing();
        while (!toServer.empty() || !toPhone.empty()) {
            server.feed(toServer);
            plain += phone.feed(toPhone);
            toServer = phone.takeOutgoing();
            toPhone = server.takeOutgoing();
        }
        return plain;
    }

    const CertificateAuthority authority;
    TlsServer server{authority.issue("head-unit", Usage::kServer), &authority};
};

TEST_F(TlsSessionTest, HandshakeEstablishesBothSides) {
    TlsSession phone(phoneOf(authority));
    exchange(phone, server);
    EXPECT_TRUE(phone.established());
    EXPECT_TRUE(server.established());
    EXPECT_EQ(phone.version(), "TLSv1.3");
}

TEST_F(TlsSessionTest, CarriesPlainBytesBothWays) {
    TlsSession phone(phoneOf(authority));
    exchange(phone, server);
    const std::string much(100000, 'x');
    phone.write("from the phone");
    server.write(much);
    EXPECT_EQ(exchange(phone, server), much);
    EXPECT_EQ(server.received, "from the phone");
}

TEST_F(TlsSessionTest, TakesBytesOneByOne) {
    TlsSession phone(phoneOf(authority));
    exchange(phone, server);
    server.write("slow");
    std::string plain;
    for (const char byte : server.takeOutgoing()) {
        plain += phone.feed(std::string_view(&byte, 1));
    }
    EXPECT_EQ(plain, "slow");
}

TEST_F(TlsSessionTest, BytesBeforeTheHandshakeAreDropped) {
    TlsSession phone(phoneOf(authority));
    phone.write("too early");
    exchange(phone, server);
    EXPECT_TRUE(phone.established());
    EXPECT_EQ(server.received, "");
}

TEST_F(TlsSessionTest, PhoneTurnsAForeignReceiverAway) {
    const CertificateAuthority foreign("Foreign authority");
    TlsServer stranger(foreign.issue("head-unit", Usage::kServer), nullptr);
    TlsSession phone(phoneOf(authority));
    exchange(phone, stranger);
    EXPECT_FALSE(phone.established());
    ASSERT_TRUE(phone.failure().has_value());
    EXPECT_NE(phone.failure()->find("certificate verify failed"), std::string::npos);
    EXPECT_TRUE(stranger.failed);
}

TEST_F(TlsSessionTest, PhoneWithoutACaTakesAnyReceiver) {
    const CertificateAuthority foreign("Foreign authority");
    TlsServer stranger(foreign.issue("head-unit", Usage::kServer), nullptr);
    TlsSession phone({});
    exchange(phone, stranger);
    EXPECT_TRUE(phone.established());
}

TEST_F(TlsSessionTest, LearnsThatItsForeignCertificateIsTurnedAway) {
    const CertificateAuthority foreign("Foreign authority");
    TlsSession phone(phoneOf(foreign));
    exchange(phone, server);
    EXPECT_TRUE(server.failed);
    ASSERT_TRUE(phone.failure().has_value());
    EXPECT_NE(phone.failure()->find("unknown ca"), std::string::npos) << *phone.failure();
    EXPECT_FALSE(phone.established());
}

TEST_F(TlsSessionTest, LearnsThatACertificateIsRequired) {
    TlsSession phone({"", "", authority.caCertificatePem()});
    exchange(phone, server);
    ASSERT_TRUE(phone.failure().has_value());
    EXPECT_NE(phone.failure()->find("certificate required"), std::string::npos) << *phone.failure();
}

TEST_F(TlsSessionTest, PlainTextFromTheOtherSideIsAFailure) {
    TlsSession phone(phoneOf(authority));
    phone.feed("HTTP/1.1 400 Bad Request\r\n");
    EXPECT_TRUE(phone.failure().has_value());
    EXPECT_EQ(phone.feed("more"), "");
}

TEST_F(TlsSessionTest, GoodbyeReachesTheOtherSide) {
    TlsSession phone(phoneOf(authority));
    exchange(phone, server);
    phone.close();
    exchange(phone, server);
    EXPECT_TRUE(server.ended);
}

TEST_F(TlsSessionTest, NoticesTheOtherSidesGoodbye) {
    TlsSession phone(phoneOf(authority));
    exchange(phone, server);
    server.close();
    exchange(phone, server);
    EXPECT_TRUE(phone.ended());
    EXPECT_FALSE(phone.failure().has_value());
}

TEST_F(TlsSessionTest, CredentialsThatAreNoPemAreRefused) {
    EXPECT_THROW(TlsSession({"no PEM", "", ""}), std::runtime_error);
    EXPECT_THROW(TlsSession({"", "", "no PEM"}), std::runtime_error);
    const TlsCredentials own = phoneOf(authority);
    EXPECT_THROW(TlsSession({own.certificate, "no PEM", ""}), std::runtime_error);
}

}  // namespace
}  // namespace simulator
