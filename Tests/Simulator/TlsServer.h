#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>
#include <string_view>

#include "Simulator/CertificateAuthority.h"

namespace simulator {

/// An OpenSSL server without a socket, for the other end of a phone's TLS.
class TlsServer {
public:
    /// @param ca authority whose certificates phones have to show; null takes any phone.
    TlsServer(const IssuedCertificate& own, const CertificateAuthority* ca);

    /// Takes bytes from the phone and does what can be done now.
    void feed(std::string_view bytes);
    void write(std::string_view plain);
    void close();

    /// What has to go to the phone.
    std::string takeOutgoing();

    bool established() const { return SSL_is_init_finished(ssl.get()) == 1 && !failed; }

    std::string received;  ///< plain bytes
    bool failed = false;
    bool ended = false;  ///< the phone has said goodbye

private:
    void advance();

    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl;
    BIO* fromPhone;  // owned by ssl
    BIO* toPhone;    // owned by ssl
};

}  // namespace simulator
