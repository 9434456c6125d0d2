#include "Simulator/CertificateAuthority.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rand.h>
#include <openssl/x509v3.h>

#include <stdexcept>

namespace simulator {

namespace {

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;
using Certificate = std::unique_ptr<X509, decltype(&X509_free)>;
using Bio = std::unique_ptr<BIO, decltype(&BIO_free)>;

constexpr int kVersion3 = 2;  // the field counts from 0
constexpr int kSerialBits = 127;
constexpr int kSecondsPerDay = 24 * 60 * 60;

void require(bool succeeded, const char* step) {
    if (!succeeded) {
        ERR_clear_error();
        throw std::runtime_error(std::string("certificate authority: ") + step + " failed");
    }
}

Key makeKey() {
    Key key(EVP_EC_gen("P-256"), EVP_PKEY_free);
    require(key != nullptr, "making a key");
    return key;
}

void setSerial(X509* certificate) {
    const std::unique_ptr<BIGNUM, decltype(&BN_free)> number(BN_new(), BN_free);
    require(number && BN_rand(number.get(), kSerialBits, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1 &&
                BN_to_ASN1_INTEGER(number.get(), X509_get_serialNumber(certificate)) != nullptr,
            "setting the serial number");
}

bool setTime(ASN1_TIME* time, std::chrono::seconds fromNow) {
    const auto seconds = fromNow.count();
    return X509_time_adj_ex(time, static_cast<int>(seconds / kSecondsPerDay),
                            static_cast<long>(seconds % kSecondsPerDay), nullptr) != nullptr;
}

void setCommonName(X509* certificate, const std::string& commonName) {
    const auto* text = reinterpret_cast<const unsigned char*>(commonName.data());
    require(X509_NAME_add_entry_by_txt(X509_get_subject_name(certificate), "CN", MBSTRING_UTF8, text,
                                       static_cast<int>(commonName.size()), -1, 0) == 1,
            "setting the common name");
}

void addExtension(X509* certificate, X509* issuer, int nid, const char* value) {
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> extension(
        X509V3_EXT_conf_nid(nullptr, &context, nid, value), X509_EXTENSION_free);
    require(extension && X509_add_ext(certificate, extension.get(), -1) == 1, "adding an extension");
}

// A certificate with everything but issuer, extensions and signature.
Certificate makeBlank(const std::string& commonName, EVP_PKEY* key, Validity validity) {
    Certificate certificate(X509_new(), X509_free);
    require(certificate && X509_set_version(certificate.get(), kVersion3) == 1, "making a certificate");
    setSerial(certificate.get());
    require(setTime(X509_getm_notBefore(certificate.get()), validity.notBefore) &&
                setTime(X509_getm_notAfter(certificate.get()), validity.notAfter),
            "setting the validity");
    setCommonName(certificate.get(), commonName);
    require(X509_set_pubkey(certificate.get(), key) == 1, "setting the public key");
    return certificate;
}

void addUsage(X509* certificate, X509* issuer, Usage usage) {
    addExtension(certificate, issuer, NID_basic_constraints, "critical,CA:FALSE");
    addExtension(certificate, issuer, NID_key_usage, "critical,digitalSignature");
    addExtension(certificate, issuer, NID_ext_key_usage,
                 usage == Usage::kServer ? "serverAuth" : "clientAuth");
}

void sign(X509* certificate, X509* issuer, EVP_PKEY* issuerKey) {
    require(X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) == 1, "setting the issuer");
    require(X509_sign(certificate, issuerKey, EVP_sha256()) > 0, "signing a certificate");
}

template <typename Write>
std::string toPem(Write write) {
    const Bio bio(BIO_new(BIO_s_mem()), BIO_free);
    require(bio && write(bio.get()) == 1, "writing a PEM text");
    char* text = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &text);
    return std::string(text, static_cast<std::size_t>(size));
}

std::string certificateToPem(X509* certificate) {
    return toPem([certificate](BIO* bio) { return PEM_write_bio_X509(bio, certificate); });
}

std::string keyToPem(EVP_PKEY* key) {
    return toPem([key](BIO* bio) {
        return PEM_write_bio_PrivateKey(bio, key, nullptr, nullptr, 0, nullptr, nullptr);
    });
}

}  // namespace

CertificateAuthority::CertificateAuthority(const std::string& commonName)
    : key(makeKey()), certificate(makeBlank(commonName, key.get(), Validity{})) {
    addExtension(certificate.get(), certificate.get(), NID_basic_constraints, "critical,CA:TRUE");
    addExtension(certificate.get(), certificate.get(), NID_key_usage, "critical,keyCertSign,cRLSign");
    sign(certificate.get(), certificate.get(), key.get());
    certificatePem = certificateToPem(certificate.get());
}

IssuedCertificate CertificateAuthority::issue(const std::string& commonName, Usage usage,
                                              Validity validity) const {
    const Key holderKey = makeKey();
    const Certificate issued = makeBlank(commonName, holderKey.get(), validity);
    addUsage(issued.get(), certificate.get(), usage);
    sign(issued.get(), certificate.get(), key.get());
    return {certificateToPem(issued.get()), keyToPem(holderKey.get())};
}

IssuedCertificate CertificateAuthority::selfSigned(const std::string& commonName, Usage usage,
                                                   Validity validity) {
    const Key ownKey = makeKey();
    const Certificate made = makeBlank(commonName, ownKey.get(), validity);
    addUsage(made.get(), made.get(), usage);
    sign(made.get(), made.get(), ownKey.get());
    return {certificateToPem(made.get()), keyToPem(ownKey.get())};
}

}  // namespace simulator
