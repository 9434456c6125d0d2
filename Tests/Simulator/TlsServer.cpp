#include "Tests/Simulator/TlsServer.h"

#include <gtest/gtest.h>
#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>

namespace simulator {

namespace {

using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Certificate certificateOf(const std::string& pem) {
    const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
    return Certificate(PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr), X509_free);
}

Key keyOf(const std::string& pem) {
    const Bio bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), BIO_free);
    return Key(PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr), EVP_PKEY_free);
}

}  // namespace

TlsServer::TlsServer(const IssuedCertificate& own, const CertificateAuthority* ca)
    : context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free),
      ssl(nullptr, SSL_free),
      fromPhone(BIO_new(BIO_s_mem())),
      toPhone(BIO_new(BIO_s_mem())) {
    EXPECT_EQ(SSL_CTX_use_certificate(context.get(), certificateOf(own.certificatePem).get()), 1);
    EXPECT_EQ(SSL_CTX_use_PrivateKey(context.get(), keyOf(own.privateKeyPem).get()), 1);
    if (ca != nullptr) {
        X509_STORE_add_cert(SSL_CTX_get_cert_store(context.get()),
                            certificateOf(ca->caCertificatePem()).get());
        SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    }
    ssl.reset(SSL_new(context.get()));
    SSL_set_bio(ssl.get(), fromPhone, toPhone);
    SSL_set_accept_state(ssl.get());
}

void TlsServer::feed(std::string_view bytes) {
    BIO_write(fromPhone, bytes.data(), static_cast<int>(bytes.size()));
    advance();
}

void TlsServer::write(std::string_view plain) {
    SSL_write(ssl.get(), plain.data(), static_cast<int>(plain.size()));
}

void TlsServer::close() {
    SSL_shutdown(ssl.get());
}

std::string TlsServer::takeOutgoing() {
    std::string bytes(BIO_ctrl_pending(toPhone), '\0');
    if (!bytes.empty()) {
        BIO_read(toPhone, bytes.data(), static_cast<int>(bytes.size()));
    }
    return bytes;
}

void TlsServer::advance() {
    std::array<char, 16384> chunk;
    ERR_clear_error();
    int count = SSL_read(ssl.get(), chunk.data(), static_cast<int>(chunk.size()));
    while (count > 0) {
        received.append(chunk.data(), static_cast<std::size_t>(count));
        count = SSL_read(ssl.get(), chunk.data(), static_cast<int>(chunk.size()));
    }
    const int error = SSL_get_error(ssl.get(), count);
    ended = error == SSL_ERROR_ZERO_RETURN;
    failed = failed || (!ended && error != SSL_ERROR_WANT_READ);
}

}  // namespace simulator
