#pragma once

#include <openssl/ssl.h>

#include <memory>
#include <string>

namespace wifi_projection_protocol {

struct SslContextDeleter {
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using SslContext = std::unique_ptr<SSL_CTX, SslContextDeleter>;

/// The PEM texts of a TLS server.
struct SslTexts {
    const std::string& certificate;  ///< its certificate, any intermediate ones after it
    const std::string& privateKey;   ///< the key of the certificate, not encrypted
    const std::string&
        caCertificate;  ///< one or more authorities of the phones; empty: phones need no certificate
};

/// Makes the TLS server context: TLS 1.2 and later, no renegotiation, no session resumption, so that every
/// connection shows its certificate anew. @return empty when a text is not valid or key and certificate
/// differ.
SslContext makeServerContext(const SslTexts& texts, bool acceptAnyPhone, const std::string& serviceName);

}  // namespace wifi_projection_protocol
