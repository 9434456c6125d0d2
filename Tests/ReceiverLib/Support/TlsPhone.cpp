#include "Tests/ReceiverLib/Support/TlsPhone.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <array>
#include <stdexcept>
#include <utility>

#include "private/SocketBio.h"

namespace wpp_test {

using wifi_projection_protocol::FileDescriptor;

namespace {

struct Deleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using Bio = std::unique_ptr<BIO, Deleter>;
using Certificate = std::unique_ptr<X509, Deleter>;
using Key = std::unique_ptr<EVP_PKEY, Deleter>;

void require(bool succeeded) {
    if (!succeeded) {
        throw std::runtime_error("the phone's TLS context cannot be made");
    }
}

Bio openText(const std::string& text) {
    return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

Certificate readCertificate(const std::string& text) {
    return Certificate(PEM_read_bio_X509(openText(text).get(), nullptr, nullptr, nullptr));
}

void identify(SSL_CTX* context, const simulator::IssuedCertificate& identity) {
    const Certificate certificate = readCertificate(identity.certificatePem);
    const Key key(PEM_read_bio_PrivateKey(openText(identity.privateKeyPem).get(), nullptr, nullptr, nullptr));
    require(SSL_CTX_use_certificate(context, certificate.get()) == 1);
    require(SSL_CTX_use_PrivateKey(context, key.get()) == 1);
}

void trust(SSL_CTX* context, const std::string& caPem) {
    require(X509_STORE_add_cert(SSL_CTX_get_cert_store(context), readCertificate(caPem).get()) == 1);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER, nullptr);
}

}  // namespace

TlsPhone::TlsPhone(FileDescriptor connected, const TlsPhoneOptions& options)
    : socket(std::move(connected)),
      socketNumber(std::make_unique<int>(socket.get())),
      context(SSL_CTX_new(TLS_client_method())) {
    // So low that whatever is refused is refused by the head unit.
    SSL_CTX_set_security_level(context.get(), 0);
    require(SSL_CTX_set_min_proto_version(context.get(), TLS1_VERSION) == 1);
    require(SSL_CTX_set_max_proto_version(context.get(), options.maxVersion) == 1);
    if (options.identity) {
        identify(context.get(), *options.identity);
    }
    if (!options.caPem.empty()) {
        trust(context.get(), options.caPem);
    }
    ssl.reset(SSL_new(context.get()));
    BIO* bio = wifi_projection_protocol::makeSocketBio(*socketNumber);
    require(ssl && bio != nullptr);
    SSL_set_bio(ssl.get(), bio, bio);
    const timeval patience{kPatience.count(), 0};
    ::setsockopt(*socketNumber, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
    const int noDelay = 1;
    ::setsockopt(*socketNumber, IPPROTO_TCP, TCP_NODELAY, &noDelay, sizeof noDelay);
}

bool TlsPhone::handshake() {
    ERR_clear_error();
    return note(SSL_connect(ssl.get()));
}

bool TlsPhone::renegotiate() {
    ERR_clear_error();
    return SSL_renegotiate(ssl.get()) == 1 && note(SSL_do_handshake(ssl.get()));
}

bool TlsPhone::send(const std::string& bytes) {
    ERR_clear_error();
    return note(SSL_write(ssl.get(), bytes.data(), static_cast<int>(bytes.size())));
}

std::string TlsPhone::receive() {
    std::array<char, 4096> bytes{};
    ERR_clear_error();
    const int count = SSL_read(ssl.get(), bytes.data(), static_cast<int>(bytes.size()));
    return note(count) ? std::string(bytes.data(), static_cast<std::size_t>(count)) : std::string();
}

void TlsPhone::close() {
    ERR_clear_error();
    SSL_shutdown(ssl.get());
    ERR_clear_error();
    ::shutdown(*socketNumber, SHUT_WR);
}

void TlsPhone::vanish() {
    *socketNumber = -1;
    socket = FileDescriptor();
}

bool TlsPhone::note(int result) {
    if (result <= 0 && reason == 0) {
        reason = ERR_GET_REASON(ERR_peek_last_error());
    }
    ERR_clear_error();
    return result > 0;
}

}  // namespace wpp_test
