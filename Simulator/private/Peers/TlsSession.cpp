#include "Simulator/private/Peers/TlsSession.h"

#include <openssl/err.h>
#include <openssl/pem.h>

#include <array>
#include <stdexcept>

namespace simulator {

namespace {

constexpr int kPlainChunk = 16384;  // the most that one TLS record holds

std::string lastError(const std::string& fallback) {
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0) {
        return fallback;
    }
    std::array<char, 256> text{};
    ERR_error_string_n(code, text.data(), text.size());
    return text.data();
}

void require(bool condition, const std::string& step) {
    if (!condition) {
        throw std::runtime_error(step + ": " + lastError("refused"));
    }
}

using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

Bio bioOf(const std::string& text) {
    return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())), BIO_free);
}

Certificate certificateOf(const std::string& pem) {
    return Certificate(PEM_read_bio_X509(bioOf(pem).get(), nullptr, nullptr, nullptr), X509_free);
}

void useOwnCertificate(SSL_CTX* context, const TlsCredentials& credentials) {
    const Certificate certificate = certificateOf(credentials.certificate);
    require(certificate && SSL_CTX_use_certificate(context, certificate.get()) == 1,
            "the phone's certificate");
    const Key key(PEM_read_bio_PrivateKey(bioOf(credentials.privateKey).get(), nullptr, nullptr, nullptr),
                  EVP_PKEY_free);
    require(key && SSL_CTX_use_PrivateKey(context, key.get()) == 1, "the phone's private key");
}

void trust(SSL_CTX* context, const std::string& caPem) {
    const Certificate ca = certificateOf(caPem);
    require(ca && X509_STORE_add_cert(SSL_CTX_get_cert_store(context), ca.get()) == 1, "the CA certificate");
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
}

}  // namespace

TlsSession::Context TlsSession::makeContext(const TlsCredentials& credentials) {
    Context context(SSL_CTX_new(TLS_client_method()));
    require(context != nullptr, "TLS context");
    require(SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) == 1, "TLS version");
    if (!credentials.certificate.empty()) {
        useOwnCertificate(context.get(), credentials);
    }
    if (!credentials.caCertificate.empty()) {
        trust(context.get(), credentials.caCertificate);
    }
    return context;
}

TlsSession::TlsSession(const TlsCredentials& credentials)
    : context(makeContext(credentials)),
      ssl(SSL_new(context.get())),
      fromNetwork(BIO_new(BIO_s_mem())),
      toNetwork(BIO_new(BIO_s_mem())) {
    require(ssl && fromNetwork != nullptr && toNetwork != nullptr, "TLS session");
    SSL_set_bio(ssl.get(), fromNetwork, toNetwork);
    SSL_set_connect_state(ssl.get());
    advanceHandshake();
}

std::string TlsSession::feed(std::string_view bytes) {
    if (error || peerEnded) {
        return {};
    }
    ERR_clear_error();  // what others on this thread have left behind is no failure of this session
    BIO_write(fromNetwork, bytes.data(), static_cast<int>(bytes.size()));
    if (!done) {
        advanceHandshake();
    }
    return done ? readPlain() : std::string();
}

void TlsSession::write(std::string_view plain) {
    if (established() && !plain.empty()) {
        ERR_clear_error();
        noteResult(SSL_write(ssl.get(), plain.data(), static_cast<int>(plain.size())));
    }
}

void TlsSession::close() {
    if (established()) {
        SSL_shutdown(ssl.get());
        ERR_clear_error();
    }
}

std::string TlsSession::takeOutgoing() {
    std::string bytes(BIO_ctrl_pending(toNetwork), '\0');
    if (!bytes.empty()) {
        BIO_read(toNetwork, bytes.data(), static_cast<int>(bytes.size()));
    }
    return bytes;
}

void TlsSession::advanceHandshake() {
    const int result = SSL_do_handshake(ssl.get());
    done = result == 1;
    noteResult(result);
}

void TlsSession::noteResult(int result) {
    if (result > 0) {
        return;
    }
    switch (SSL_get_error(ssl.get(), result)) {
        case SSL_ERROR_WANT_READ:
        case SSL_ERROR_WANT_WRITE:
            return;
        case SSL_ERROR_ZERO_RETURN:
            peerEnded = true;
            return;
        default:
            error = lastError("connection ended");
    }
}

std::string TlsSession::readPlain() {
    std::string plain;
    std::array<char, kPlainChunk> chunk;
    int count = SSL_read(ssl.get(), chunk.data(), kPlainChunk);
    while (count > 0) {
        plain.append(chunk.data(), static_cast<std::size_t>(count));
        count = SSL_read(ssl.get(), chunk.data(), kPlainChunk);
    }
    noteResult(count);
    return plain;
}

}  // namespace simulator
