#include "Simulator/private/Peers/TcpLink.h"

#include <stdexcept>

#include "Tests/Simulator/LoopFixture.h"
#include "Tests/Simulator/TlsEndpoint.h"

namespace simulator {
namespace {

class TcpLinkTest : public LoopTest {
protected:
    TcpLinkTest() {
        const IssuedCertificate issued = authority.issue("phone", Usage::kClient);
        credentials = {issued.certificatePem, issued.privateKeyPem, authority.caCertificatePem()};
    }

    std::unique_ptr<TcpLink> connect(std::uint16_t port, TcpManner manner, const std::string& bindTo = {}) {
        return std::make_unique<TcpLink>(
            loop, TcpLink::Address{"127.0.0.1", port, bindTo}, manner, credentials,
            TcpLink::Handlers{[this] { connected = true; },
                              [this](const std::string& text) { version = text; },
                              [this](std::string_view plain) { received += plain; },
                              [this](const std::string& text) { ended = text; }});
    }

    const CertificateAuthority authority;
    TlsServer tls{authority.issue("head-unit", Usage::kServer), &authority};
    TlsEndpoint server{loop, &tls};
    TlsCredentials credentials;
    bool connected = false;
    std::string version;
    std::string received;
    std::string ended;
};

TEST_F(TcpLinkTest, ConnectsSecuresAndCarriesBytes) {
    const auto link = connect(server.port, TcpManner::kTls);
    ASSERT_TRUE(stepUntil([&] { return !version.empty(); }));
    EXPECT_TRUE(connected);
    link->send("hello");
    ASSERT_TRUE(stepUntil([&] { return server.received() == "hello"; }));
    server.send("settings");
    EXPECT_TRUE(stepUntil([&] { return received == "settings"; }));
}

TEST_F(TcpLinkTest, ComesFromTheAddressItIsBoundTo) {
    const auto link = connect(server.port, TcpManner::kTls, "127.0.1.77");
    ASSERT_TRUE(stepUntil([&] { return server.stream != nullptr; }));
    EXPECT_EQ(server.peerAddress, "127.0.1.77");
}

TEST_F(TcpLinkTest, ReportsARefusedConnection) {
    std::uint16_t freePort = 0;
    { freePort = TlsEndpoint(loop, nullptr).port; }
    const auto link = connect(freePort, TcpManner::kTls);
    ASSERT_TRUE(stepUntil([&] { return !ended.empty(); }));
    EXPECT_EQ(ended, "connect: Connection refused");
    EXPECT_FALSE(connected);
}

TEST_F(TcpLinkTest, ReportsThatTheReceiverHasClosed) {
    const auto link = connect(server.port, TcpManner::kTls);
    ASSERT_TRUE(stepUntil([&] { return !version.empty() && tls.established(); }));
    server.stream->close();
    ASSERT_TRUE(stepUntil([&] { return !ended.empty(); }));
    EXPECT_EQ(ended, "closed by the receiver");
}

TEST_F(TcpLinkTest, ReportsTheReceiversGoodbye) {
    const auto link = connect(server.port, TcpManner::kTls);
    ASSERT_TRUE(stepUntil([&] { return !version.empty() && tls.established(); }));
    tls.close();
    server.stream->send(tls.takeOutgoing());
    ASSERT_TRUE(stepUntil([&] { return !ended.empty(); }));
    EXPECT_EQ(ended, "ended by the receiver");
}

TEST_F(TcpLinkTest, SaysGoodbyeOnClose) {
    const auto link = connect(server.port, TcpManner::kTls);
    ASSERT_TRUE(stepUntil([&] { return !version.empty() && tls.established(); }));
    link->close();
    EXPECT_TRUE(stepUntil([&] { return tls.ended; }));
}

TEST_F(TcpLinkTest, ReportsWhyTlsFailed) {
    TlsEndpoint plain(loop, nullptr);
    const auto link = connect(plain.port, TcpManner::kTls);
    ASSERT_TRUE(stepUntil([&] { return !plain.raw.empty(); }));
    plain.stream->send("this is no TLS at all");
    ASSERT_TRUE(stepUntil([&] { return !ended.empty(); }));
    EXPECT_EQ(ended.rfind("TLS: ", 0), 0u) << ended;
}

TEST_F(TcpLinkTest, SilentMannerSendsNothing) {
    TlsEndpoint plain(loop, nullptr);
    auto link = connect(plain.port, TcpManner::kSilent);
    ASSERT_TRUE(stepUntil([&] { return connected && plain.stream; }));
    link->send("x");
    link.reset();
    ASSERT_TRUE(stepUntil([&] { return plain.closed; }));
    EXPECT_EQ(plain.raw, "");
}

TEST_F(TcpLinkTest, PlainTextMannerTalksWithoutTls) {
    TlsEndpoint plain(loop, nullptr);
    const auto link = connect(plain.port, TcpManner::kPlainText);
    EXPECT_TRUE(stepUntil([&] { return plain.raw.rfind("GET / HTTP/1.1\r\n", 0) == 0; }));
}

TEST_F(TcpLinkTest, HalfHelloMannerSendsTheBeginningOfATlsGreeting) {
    TlsEndpoint plain(loop, nullptr);
    auto link = connect(plain.port, TcpManner::kHalfHello);
    ASSERT_TRUE(stepUntil([&] { return !plain.raw.empty(); }));
    link.reset();
    ASSERT_TRUE(stepUntil([&] { return plain.closed; }));
    ASSERT_GT(plain.raw.size(), 5u);
    EXPECT_EQ(plain.raw[0], 22);  // a handshake record
    const auto announced = static_cast<std::size_t>(static_cast<unsigned char>(plain.raw[3]) * 256 +
                                                    static_cast<unsigned char>(plain.raw[4]));
    EXPECT_LT(plain.raw.size() - 5, announced);
}

TEST_F(TcpLinkTest, HostThatIsNoAddressIsRefused) {
    EXPECT_THROW(TcpLink(loop, {"head unit", 1, ""}, TcpManner::kTls, credentials, {}), std::runtime_error);
    EXPECT_THROW(TcpLink(loop, {"127.0.0.1", 1, "nowhere"}, TcpManner::kTls, credentials, {}),
                 std::runtime_error);
}

TEST_F(TcpLinkTest, AddressThatIsNotOwnIsRefused) {
    EXPECT_THROW(TcpLink(loop, {"127.0.0.1", 1, "192.0.2.1"}, TcpManner::kTls, credentials, {}),
                 std::runtime_error);
}

}  // namespace
}  // namespace simulator
