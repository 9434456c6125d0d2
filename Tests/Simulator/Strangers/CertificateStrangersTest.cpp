#include <openssl/ssl.h>
#include <sys/socket.h>

#include <string>
#include <thread>

#include "Tests/Simulator/Strangers/Siege.h"
#include "Tests/Simulator/TlsServer.h"

// Strangers whose TLS is in order but who are not whom the receiver's authority stands for.

namespace simulator {
namespace {

using std::chrono::hours;

constexpr int kChainLength = 400;  // well over the 100 KB that OpenSSL takes for a chain
constexpr std::size_t kVerificationRecord = 4;
constexpr Milliseconds kPatience{30000};

TlsManner showing(const IssuedCertificate& papers, int version = 0) {
    TlsManner manner;
    manner.papers = papers;
    manner.version = version;
    return manner;
}

TlsManner showingNothing(int version) {
    TlsManner manner;
    manner.version = version;
    return manner;
}

/// Goes through the handshake, which the receiver refuses.
std::function<Visit(const std::string&)> knocking(TlsManner manner) {
    return [manner = std::move(manner)](const std::string& address) {
        TlsWire tls(Wire::overTcp(address), manner);
        tls.handshake();
        const Visit visit = endOf(tls);
        EXPECT_FALSE(tls.resumed());
        return visit;
    };
}

/// Proves the possession of its key badly.
std::function<Visit(const std::string&)> lying(TlsManner manner) {
    return [manner = std::move(manner)](const std::string& address) {
        TlsWire tls(Wire::overTcp(address), manner);
        tls.spoil(kVerificationRecord);
        EXPECT_FALSE(tls.handshake());
        return endOf(tls);
    };
}

/// Is let in, by a whole handshake, and goes.
std::function<Visit(const std::string&)> passing(TlsManner manner) {
    return [manner = std::move(manner)](const std::string& address) {
        TlsWire tls(Wire::overTcp(address), manner);
        EXPECT_TRUE(tls.handshake());
        EXPECT_FALSE(tls.resumed());
        tls.sayGoodbye();
        return endOf(tls);
    };
}

/// A session of another head unit, with its ticket.
std::shared_ptr<SSL_SESSION> foreignSession(const Papers& papers, int version) {
    int ends[2];
    EXPECT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
    Wire itsSide{UniqueFd(ends[1])};
    std::thread other([&papers, &itsSide] {
        TlsServer server(papers.foreign.issue("other-head-unit", Usage::kServer), nullptr);
        bool greeted = false;
        while (!itsSide.hasEnded()) {
            server.feed(itsSide.receive(kPatience));
            if (server.established() && !greeted) {
                server.write("welcome");
                greeted = true;
            }
            itsSide.send(server.takeOutgoing());
        }
    });
    std::shared_ptr<SSL_SESSION> session;
    {
        TlsWire tls(Wire{UniqueFd(ends[0])}, showingNothing(version));
        EXPECT_TRUE(tls.handshake());
        EXPECT_EQ(tls.receive(1, kPatience), "welcome");
        session = tls.session();
        EXPECT_EQ(SSL_SESSION_is_resumable(session.get()), 1);
        tls.sayGoodbye();  // without it the session would be resumed nowhere
    }
    other.join();
    return session;
}

TlsManner resuming(TlsManner manner, const Papers& papers) {
    manner.session = foreignSession(papers, manner.version);
    return manner;
}

class CertificateStrangers : public Siege {
protected:
    IssuedCertificate issued(hours notBefore, hours notAfter) const {
        return papers.authority.issue("phone", Usage::kClient, {notBefore, notAfter});
    }

    /// A good certificate, with a crowd of others behind it.
    TlsManner crowded(int version) const {
        TlsManner manner = showing(papers.phone, version);
        manner.chain = papers.authority.caCertificatePem();
        manner.chainLength = kChainLength;
        return manner;
    }
};

TEST_F(CertificateStrangers, ThoseWithoutProperPapersAreTurnedAwayAtOnce) {
    const auto wrongAuthority = papers.foreign.issue("phone", Usage::kClient);
    const auto namesake = papers.namesake.issue("phone", Usage::kClient);
    const auto expired = issued(hours(-48), hours(-24));
    const auto early = issued(hours(24), hours(48));
    const auto selfSigned = CertificateAuthority::selfSigned("phone", Usage::kClient);
    const auto serverUse = papers.authority.issue("phone", Usage::kServer);
    letCome({
        {"wrong authority", Fate::kTurnedAway, SSL_AD_UNKNOWN_CA, knocking(showing(wrongAuthority))},
        {"wrong authority, TLS 1.2", Fate::kTurnedAway, SSL_AD_UNKNOWN_CA,
         knocking(showing(wrongAuthority, TLS1_2_VERSION))},
        {"authority of the same name", Fate::kTurnedAway, SSL_AD_DECRYPT_ERROR, knocking(showing(namesake))},
        {"expired", Fate::kTurnedAway, SSL_AD_CERTIFICATE_EXPIRED, knocking(showing(expired))},
        {"expired, TLS 1.2", Fate::kTurnedAway, SSL_AD_CERTIFICATE_EXPIRED,
         knocking(showing(expired, TLS1_2_VERSION))},
        {"not yet valid", Fate::kTurnedAway, SSL_AD_BAD_CERTIFICATE, knocking(showing(early))},
        {"no certificate", Fate::kTurnedAway, SSL_AD_CERTIFICATE_REQUIRED, knocking(showingNothing(0))},
        {"no certificate, TLS 1.2", Fate::kTurnedAway, SSL_AD_HANDSHAKE_FAILURE,
         knocking(showingNothing(TLS1_2_VERSION))},
        {"self-signed", Fate::kTurnedAway, SSL_AD_UNKNOWN_CA, knocking(showing(selfSigned))},
        {"wrong key usage", Fate::kTurnedAway, SSL_AD_UNSUPPORTED_CERTIFICATE, knocking(showing(serverUse))},
        {"receiver's own certificate", Fate::kTurnedAway, SSL_AD_UNSUPPORTED_CERTIFICATE,
         knocking(showing(papers.receiver))},
        {"somebody else's certificate", Fate::kTurnedAway, SSL_AD_DECRYPT_ERROR,
         lying(showing(papers.phone, TLS1_2_VERSION))},
    });
}

TEST_F(CertificateStrangers, OversizedChainsAreTurnedAwayAtOnce) {
    letCome({
        {"oversized chain", Fate::kTurnedAway, {}, knocking(crowded(TLS1_3_VERSION))},
        {"oversized chain, TLS 1.2", Fate::kTurnedAway, {}, knocking(crowded(TLS1_2_VERSION))},
    });
}

TEST_F(CertificateStrangers, ForeignTicketStandsForNothing) {
    letCome({
        {"foreign ticket, TLS 1.2", Fate::kTurnedAway, SSL_AD_HANDSHAKE_FAILURE,
         knocking(resuming(showingNothing(TLS1_2_VERSION), papers))},
        {"foreign ticket", Fate::kTurnedAway, SSL_AD_CERTIFICATE_REQUIRED,
         knocking(resuming(showingNothing(TLS1_3_VERSION), papers))},
        {"foreign ticket with a certificate, TLS 1.2",
         Fate::kTurnedAway,
         {},
         passing(resuming(showing(papers.phone, TLS1_2_VERSION), papers))},
        {"foreign ticket with a certificate",
         Fate::kTurnedAway,
         {},
         passing(resuming(showing(papers.phone, TLS1_3_VERSION), papers))},
    });
}

}  // namespace
}  // namespace simulator
