#include "Benchmarks/RoundTrip/Support/TlsContext.h"

#include <openssl/pem.h>
#include <openssl/x509.h>

#include <stdexcept>

namespace bench {

namespace {

struct Deleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};

std::unique_ptr<BIO, Deleter> openText(const std::string& text) {
    return std::unique_ptr<BIO, Deleter>(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::unique_ptr<X509, Deleter> readCertificate(const std::string& text) {
    return std::unique_ptr<X509, Deleter>(PEM_read_bio_X509(openText(text).get(), nullptr, nullptr, nullptr));
}

std::unique_ptr<EVP_PKEY, Deleter> readKey(const std::string& text) {
    return std::unique_ptr<EVP_PKEY, Deleter>(
        PEM_read_bio_PrivateKey(openText(text).get(), nullptr, nullptr, nullptr));
}

}  // namespace

SslContext makeContext(const SSL_METHOD* method, const TlsMaterial& material) {
    SslContext context(SSL_CTX_new(method));
    const auto authority = readCertificate(material.authority);
    SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION);
    SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
    SSL_CTX_set_options(context.get(), SSL_OP_NO_TICKET);
    SSL_CTX_set_num_tickets(context.get(), 0);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, nullptr);
    if (SSL_CTX_use_certificate(context.get(), readCertificate(material.certificate).get()) != 1 ||
        SSL_CTX_use_PrivateKey(context.get(), readKey(material.privateKey).get()) != 1 ||
        X509_STORE_add_cert(SSL_CTX_get_cert_store(context.get()), authority.get()) != 1) {
        throw std::runtime_error("OpenSSL refuses the certificates");
    }
    SSL_CTX_add_client_CA(context.get(), authority.get());
    return context;
}

}  // namespace bench
