#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <optional>
#include <string>

#include "Simulator/CertificateAuthority.h"
#include "Tests/ReceiverLib/Support/PhoneChannel.h"
#include "private/FileDescriptor.h"

namespace wpp_test {

/// How a phone goes about TLS.
struct TlsPhoneOptions {
    std::optional<simulator::IssuedCertificate> identity;  // empty: it shows no certificate
    std::string caPem;                                     // empty: it trusts every head unit
    int maxVersion = 0;                                    // 0: as high as can be
};

/// A phone's end of a TLS connection: an independent client on a blocking socket whose reads end after
/// kPatience.
class TlsPhone : public PhoneChannel {
public:
    TlsPhone(wifi_projection_protocol::FileDescriptor socket, const TlsPhoneOptions& options);

    /// @return false when the head unit refuses, as far as is known yet.
    bool handshake();

    bool send(const std::string& bytes) override;
    std::string receive() override;

    /// Ends the connection in good order.
    void close() override;

    /// Closes the socket without a word.
    void vanish();

    /// Asks for another handshake within the connection. @return false when it is refused.
    bool renegotiate();

    /// Has the head unit ended the connection in good order?
    bool hasHeardGoodbye() const { return (SSL_get_shutdown(ssl.get()) & SSL_RECEIVED_SHUTDOWN) != 0; }

    int version() const { return SSL_version(ssl.get()); }

    /// OpenSSL's reason code of the first failure; 0 when there was none.
    int failureReason() const { return reason; }

private:
    struct Deleter {
        void operator()(SSL_CTX* tlsContext) const { SSL_CTX_free(tlsContext); }
        void operator()(SSL* tls) const { SSL_free(tls); }
    };

    bool note(int result);

    wifi_projection_protocol::FileDescriptor socket;
    std::unique_ptr<int> socketNumber;  // looked up by the BIO, which stays where it is when the phone moves
    std::unique_ptr<SSL_CTX, Deleter> context;
    std::unique_ptr<SSL, Deleter> ssl;
    int reason = 0;
};

}  // namespace wpp_test
