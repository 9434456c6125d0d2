#pragma once

#include <openssl/ssl.h>

#include <memory>

#include "Benchmarks/RoundTrip/Support/Handshaker.h"

namespace bench {

struct SslDeleter {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
    void operator()(SSL_CTX* context) const { SSL_CTX_free(context); }
};
using Ssl = std::unique_ptr<SSL, SslDeleter>;
using SslContext = std::unique_ptr<SSL_CTX, SslDeleter>;

/// A context with the rules of the product's: TLS 1.2 and later, a certificate of the authority on the other side, no
/// resumption. @throws std::runtime_error when OpenSSL refuses the texts.
SslContext makeContext(const SSL_METHOD* method, const TlsMaterial& material);

}  // namespace bench
