#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Simulator/CertificateAuthority.h"
#include "Tests/Simulator/Strangers/Wire.h"

namespace simulator {

/// How a stranger goes about TLS.
struct TlsManner {
    std::optional<IssuedCertificate> papers;  ///< empty: it shows no certificate
    std::string chain;                        ///< PEM text of a certificate to send behind its own
    int chainLength = 0;                      ///< how often
    int version = 0;                          ///< the only version that it speaks; 0 for any
    std::string ciphers;                      ///< the only ones for TLS 1.2; empty for any
    std::shared_ptr<SSL_SESSION> session;     ///< what it wants to resume; empty: nothing
};

/// A stranger's end of a TLS connection, in which it has every record in its own hands.
///
/// It takes any receiver and any version, however old, so that whatever is refused is refused by the receiver.
class TlsWire {
public:
    static constexpr std::size_t kAllRecords = ~std::size_t{0};

    /// @throws std::runtime_error when OpenSSL refuses the manner.
    TlsWire(Wire connected, const TlsManner& manner);
    TlsWire(const TlsWire&) = delete;
    TlsWire& operator=(const TlsWire&) = delete;

    /// What such a stranger says first.
    static std::string helloOf(const TlsManner& manner);

    /// Goes through the handshake until it is done, is refused, or `wholeRecords` have gone out; half of the
    /// next one follows these. @return whether this side takes it for done.
    bool handshake(std::size_t wholeRecords = kAllRecords);

    /// Records sent so far.
    std::size_t recordsSent() const { return sentRecords; }

    /// Spoils the last byte of the record with this number (from 1) when its turn comes.
    void spoil(std::size_t record) { spoiled = record; }

    /// Sends plain bytes inside TLS. @return false when the receiver is gone.
    bool send(std::string_view plain);

    /// The records that would carry these plain bytes.
    std::string encrypt(std::string_view plain);

    /// Says goodbye inside TLS, and goes on.
    void sayGoodbye();

    /// Asks for another handshake (TLS 1.2) or for new keys (TLS 1.3). @return false when it is gone.
    bool renegotiate();
    bool updateKeys();

    /// Takes plain bytes until so many have come, the connection ends or the limit passes.
    std::string receive(std::size_t count, Milliseconds limit);

    /// Takes what arrives until the connection ends or the limit passes.
    void awaitEnd(Milliseconds limit);

    /// The description of the last alert from the receiver, close_notify left out.
    const std::optional<int>& alert() const { return lastAlert; }

    /// Has the receiver ended TLS in good order?
    bool heardGoodbye() const { return (SSL_get_shutdown(ssl.get()) & SSL_RECEIVED_SHUTDOWN) != 0; }

    /// The session, for another connection to resume.
    std::shared_ptr<SSL_SESSION> session() const;

    bool resumed() const { return SSL_session_reused(ssl.get()) == 1; }

    /// The connection underneath.
    Wire wire;

private:
    struct Release {
        void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
        void operator()(SSL* session) const { SSL_free(session); }
    };
    using Context = std::unique_ptr<SSL_CTX, Release>;

    static Context makeContext(const TlsManner& manner);
    static void onInfo(const SSL* ssl, int where, int value);
    std::string takeOutgoing();
    bool flush();
    bool sendRecord(std::string record);
    void advance(Milliseconds limit);

    std::unique_ptr<SSL, Release> ssl;
    BIO* fromNetwork = nullptr;  // owned by ssl
    BIO* toNetwork = nullptr;    // owned by ssl
    std::size_t sentRecords = 0;
    std::size_t allowedRecords = kAllRecords;
    std::size_t spoiled = 0;
    bool isCut = false;
    std::string plain;  // received and not yet taken
    std::optional<int> lastAlert;
};

/// Cuts a flight into its records.
std::vector<std::string> recordsOf(std::string_view flight);

}  // namespace simulator
