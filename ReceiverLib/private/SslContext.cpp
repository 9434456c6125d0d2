#include "private/SslContext.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

#include <array>
#include <climits>
#include <vector>

namespace wifi_projection_protocol {

namespace {

struct Deleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
    void operator()(X509* certificate) const { X509_free(certificate); }
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
using Bio = std::unique_ptr<BIO, Deleter>;
using Certificate = std::unique_ptr<X509, Deleter>;
using Key = std::unique_ptr<EVP_PKEY, Deleter>;

// Without it OpenSSL would ask for the passphrase of an encrypted key on the terminal, and wait.
int refusePassphrase(char*, int, int, void*) {
    return -1;
}

Bio openText(const std::string& text) {
    if (text.size() > INT_MAX) {
        return nullptr;
    }
    return Bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())));
}

std::vector<Certificate> readCertificates(const std::string& text) {
    std::vector<Certificate> certificates;
    const Bio bio = openText(text);
    while (bio) {
        Certificate certificate(PEM_read_bio_X509(bio.get(), nullptr, refusePassphrase, nullptr));
        if (!certificate) {
            break;
        }
        certificates.push_back(std::move(certificate));
    }
    return certificates;
}

bool useCertificate(SSL_CTX* context, const std::string& text) {
    const std::vector<Certificate> chain = readCertificates(text);
    if (chain.empty() || SSL_CTX_use_certificate(context, chain.front().get()) != 1) {
        return false;
    }
    for (std::size_t i = 1; i < chain.size(); ++i) {
        if (SSL_CTX_add1_chain_cert(context, chain[i].get()) != 1) {
            return false;
        }
    }
    return true;
}

bool usePrivateKey(SSL_CTX* context, const std::string& text) {
    const Bio bio = openText(text);
    if (!bio) {
        return false;
    }
    const Key key(PEM_read_bio_PrivateKey(bio.get(), nullptr, refusePassphrase, nullptr));
    return key && SSL_CTX_use_PrivateKey(context, key.get()) == 1 && SSL_CTX_check_private_key(context) == 1;
}

bool requirePhoneCertificate(SSL_CTX* context, const std::string& text, bool acceptAnyPhone) {
    const std::vector<Certificate> authorities = readCertificates(text);
    for (const Certificate& authority : authorities) {
        if (X509_STORE_add_cert(SSL_CTX_get_cert_store(context), authority.get()) != 1 ||
            SSL_CTX_add_client_CA(context, authority.get()) != 1) {
            return false;
        }
    }
    // An authority in the text is trusted by itself, also when it is not a root.
    X509_VERIFY_PARAM_set_flags(SSL_CTX_get0_param(context), X509_V_FLAG_PARTIAL_CHAIN);
    SSL_CTX_set_verify(context, SSL_VERIFY_PEER | (acceptAnyPhone ? 0 : SSL_VERIFY_FAIL_IF_NO_PEER_CERT),
                       nullptr);
    return !authorities.empty() && SSL_CTX_set_purpose(context, X509_PURPOSE_SSL_CLIENT) == 1;
}

bool setSessionRules(SSL_CTX* context, const std::string& serviceName) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int size = 0;
    if (EVP_Digest(serviceName.data(), serviceName.size(), digest.data(), &size, EVP_sha256(), nullptr) !=
        1) {
        return false;
    }
    SSL_CTX_set_session_cache_mode(context, SSL_SESS_CACHE_OFF);
    SSL_CTX_set_options(context, SSL_OP_NO_RENEGOTIATION | SSL_OP_NO_COMPRESSION | SSL_OP_NO_TICKET |
                                     SSL_OP_CIPHER_SERVER_PREFERENCE);
    return SSL_CTX_set_num_tickets(context, 0) == 1 &&
           SSL_CTX_set_session_id_context(context, digest.data(), size) == 1;
}

}  // namespace

SslContext makeServerContext(const SslTexts& texts, bool acceptAnyPhone, const std::string& serviceName) {
    SslContext context(SSL_CTX_new(TLS_server_method()));
    const bool valid = context && SSL_CTX_set_min_proto_version(context.get(), TLS1_2_VERSION) == 1 &&
                       setSessionRules(context.get(), serviceName) &&
                       useCertificate(context.get(), texts.certificate) &&
                       usePrivateKey(context.get(), texts.privateKey) &&
                       (texts.caCertificate.empty() ||
                        requirePhoneCertificate(context.get(), texts.caCertificate, acceptAnyPhone));
    ERR_clear_error();
    return valid ? std::move(context) : nullptr;
}

}  // namespace wifi_projection_protocol
